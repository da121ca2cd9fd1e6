#pragma once

#include <QColor>
#include <QList>
#include <QMainWindow>
#include <QString>

QT_BEGIN_NAMESPACE
class QLabel;
class QLineEdit;
class QListWidget;
class QStackedWidget;
class QTabWidget;
QT_END_NAMESPACE

namespace velmora {
class IAMUIEmbeddedBanner;
}

namespace shopdemo {

/// The demo shop: tabs for the home page, a catalogue that navigates into product pages and a
/// cart with an order form. Every screen change is reported to the library, which shows that
/// screen's messages on it.
class ShopWindow : public QMainWindow
{
    Q_OBJECT

public:
    enum class Screen { Home, Catalogue, Product, Cart };

    explicit ShopWindow(QWidget *parent = nullptr);

    static QString screenName(Screen screen);
    Screen currentScreen() const;
    /// The widget the screen's messages are shown on.
    QWidget *screenWidget(Screen screen) const;
    /// The embedded banner slots placed on a screen.
    QList<velmora::IAMUIEmbeddedBanner *> embeddedSlots(Screen screen) const;

    void showScreen(Screen screen);
    void openProduct(int index);
    void addToCart(int index);
    void fillOrderForm(const QString &name, const QString &email, const QString &address);

    /// Reports the current screen once the window is shown.
    void start();

private:
    struct Product
    {
        QString name;
        QString price;
        QString description;
        QColor color;
    };

    QWidget *makeHome();
    QWidget *makeCatalogue();
    QWidget *makeProductPage();
    QWidget *makeCart();
    void reportScreen();
    void updateCart();

    QList<Product> m_products;
    QList<int> m_cart;
    int m_currentProduct = 0;
    bool m_started = false;

    QTabWidget *m_tabs = nullptr;
    QStackedWidget *m_catalogueStack = nullptr;
    QWidget *m_home = nullptr;
    QWidget *m_catalogueList = nullptr;
    QWidget *m_productPage = nullptr;
    QWidget *m_cartPage = nullptr;
    QLabel *m_productSwatch = nullptr;
    QLabel *m_productName = nullptr;
    QLabel *m_productPrice = nullptr;
    QLabel *m_productDescription = nullptr;
    QListWidget *m_cartList = nullptr;
    QLabel *m_cartTotal = nullptr;
    QLineEdit *m_nameField = nullptr;
    QLineEdit *m_emailField = nullptr;
    QLineEdit *m_addressField = nullptr;
};

} // namespace shopdemo
