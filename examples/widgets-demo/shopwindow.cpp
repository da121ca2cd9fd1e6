#include "shopwindow.h"

#include <VelmoraInAppMessaging/iamuiembeddedbanner.h>
#include <VelmoraInAppMessaging/velmorainappmessaging.h>

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTabWidget>
#include <QVBoxLayout>

#include <algorithm>

using namespace Qt::StringLiterals;
using velmora::IAMUIEmbeddedBanner;

namespace shopdemo {

namespace {

QLabel *heading(const QString &text, int pixelSize, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPixelSize(pixelSize);
    font.setBold(true);
    label->setFont(font);
    label->setWordWrap(true);
    return label;
}

QLabel *paragraph(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setStyleSheet(u"color: #4A5363;"_s);
    return label;
}

// A screen: a page widget (the target of its messages) around a scrolling column.
QWidget *makePage(QVBoxLayout **column)
{
    auto *page = new QWidget;
    auto *pageLayout = new QVBoxLayout(page);
    pageLayout->setContentsMargins(0, 0, 0, 0);
    auto *scroll = new QScrollArea(page);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto *content = new QWidget(scroll);
    *column = new QVBoxLayout(content);
    (*column)->setContentsMargins(16, 16, 16, 16);
    (*column)->setSpacing(12);
    scroll->setWidget(content);
    pageLayout->addWidget(scroll);
    return page;
}

IAMUIEmbeddedBanner *embeddedSlot(const QString &componentId, QVBoxLayout *column)
{
    auto *slot = new IAMUIEmbeddedBanner(column->parentWidget());
    slot->setComponentId(componentId);
    slot->setShowsLoadingPlaceholder(true);
    column->addWidget(slot);
    return slot;
}

QPixmap swatch(const QColor &color, QSize size)
{
    QPixmap pixmap(size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawRoundedRect(QRectF(QPointF(0, 0), size), 10, 10);
    return pixmap;
}

} // namespace

ShopWindow::ShopWindow(QWidget *parent)
    : QMainWindow(parent)
    , m_products {
        { u"Linen shirt"_s, u"39.00"_s, u"Light, breathable linen for warm days."_s,
          QColor(0xE8, 0xD5, 0xB7) },
        { u"Canvas tote"_s, u"18.50"_s, u"Carries a week of groceries, folds into a pocket."_s,
          QColor(0x9C, 0xB4, 0x8A) },
        { u"Rain jacket"_s, u"89.00"_s, u"Taped seams and a hood that stays put in the wind."_s,
          QColor(0x3E, 0x6C, 0x9A) },
        { u"Wool beanie"_s, u"24.90"_s, u"Soft merino, warm without the itch."_s,
          QColor(0xC6, 0x5D, 0x4B) },
        { u"Trail socks"_s, u"12.00"_s, u"Cushioned soles for long walks."_s,
          QColor(0x5B, 0x4E, 0x77) },
    }
{
    setWindowTitle(u"Velmora Shop"_s);
    m_tabs = new QTabWidget(this);
    m_tabs->setDocumentMode(true);
    m_tabs->addTab(makeHome(), u"Home"_s);
    m_tabs->addTab(makeCatalogue(), u"Catalogue"_s);
    m_tabs->addTab(makeCart(), u"Cart"_s);
    setCentralWidget(m_tabs);
    statusBar()->showMessage(u"Welcome"_s);

    connect(m_tabs, &QTabWidget::currentChanged, this, &ShopWindow::reportScreen);
    connect(m_catalogueStack, &QStackedWidget::currentChanged, this, &ShopWindow::reportScreen);

    // The library's view of the user's actions, shown where a developer trying it looks.
    auto &messaging = velmora::VelmoraInAppMessaging::shared();
    const auto describe = [](const velmora::InAppMessage &message) -> QString {
        const velmora::SingleMessageCreative *creative = message.creative();
        QString title = creative && creative->title ? creative->title->text : QString();
        if (title.isEmpty() && creative && creative->body)
            title = creative->body->text;
        QString kind;
        switch (message.type()) {
        case velmora::InAppMessage::Type::PopupModal:
            kind = u"modal"_s;
            break;
        case velmora::InAppMessage::Type::PopupBanner:
            kind = u"banner"_s;
            break;
        case velmora::InAppMessage::Type::EmbeddedBanner:
            kind = u"embedded banner"_s;
            break;
        case velmora::InAppMessage::Type::Unsupported:
            kind = message.rawType();
            break;
        }
        return title.isEmpty() ? kind : kind + u" \u201c"_s + title + u"\u201d"_s;
    };
    connect(&messaging, &velmora::VelmoraInAppMessaging::messageDetectedForDisplay, this,
            [this, describe](const velmora::InAppMessage &message) {
                statusBar()->showMessage(u"Showing "_s + describe(message));
            });
    connect(&messaging, &velmora::VelmoraInAppMessaging::messageClicked, this,
            [this, describe](const velmora::InAppMessage &message) {
                statusBar()->showMessage(u"Clicked "_s + describe(message));
            });
    connect(&messaging, &velmora::VelmoraInAppMessaging::messageDismissed, this,
            [this, describe](const velmora::InAppMessage &message) {
                statusBar()->showMessage(u"Closed "_s + describe(message));
            });
    connect(
        &messaging, &velmora::VelmoraInAppMessaging::messageError, this,
        [this](const std::optional<velmora::InAppMessage> &, const velmora::VelmoraError &error) {
            statusBar()->showMessage(u"Error: "_s + error.description());
        });
}

QWidget *ShopWindow::makeHome()
{
    QVBoxLayout *column = nullptr;
    m_home = makePage(&column);
    QWidget *content = column->parentWidget();
    column->addWidget(heading(u"Good morning"_s, 22, content));
    column->addWidget(
        paragraph(u"New arrivals every Monday, free returns for 30 days."_s, content));
    embeddedSlot(u"home_top"_s, column);
    column->addWidget(heading(u"Today's picks"_s, 16, content));
    for (int i = 0; i < 3; ++i) {
        auto *row
            = new QPushButton(m_products[i].name + u"  \u00b7  "_s + m_products[i].price, content);
        row->setIcon(swatch(m_products[i].color, { 28, 28 }));
        row->setIconSize({ 28, 28 });
        row->setMinimumHeight(44);
        row->setStyleSheet(u"text-align: left; padding-left: 8px;"_s);
        connect(row, &QPushButton::clicked, this, [this, i] { openProduct(i); });
        column->addWidget(row);
    }
    column->addStretch();
    return m_home;
}

QWidget *ShopWindow::makeCatalogue()
{
    m_catalogueStack = new QStackedWidget;

    QVBoxLayout *column = nullptr;
    m_catalogueList = makePage(&column);
    QWidget *content = column->parentWidget();
    column->addWidget(heading(u"Catalogue"_s, 22, content));
    embeddedSlot(u"catalogue_top"_s, column);
    auto *list = new QListWidget(content);
    list->setIconSize({ 36, 36 });
    list->setSpacing(2);
    list->setFrameShape(QFrame::NoFrame);
    for (const Product &product : std::as_const(m_products))
        new QListWidgetItem(QIcon(swatch(product.color, { 36, 36 })),
                            product.name + u"\n"_s + product.price, list);
    list->setMinimumHeight(int(m_products.size()) * 42 + 4);
    connect(list, &QListWidget::itemClicked, this,
            [this, list](QListWidgetItem *item) { openProduct(list->row(item)); });
    column->addWidget(list);
    column->addStretch();
    m_catalogueStack->addWidget(m_catalogueList);
    m_catalogueStack->addWidget(makeProductPage());
    return m_catalogueStack;
}

QWidget *ShopWindow::makeProductPage()
{
    QVBoxLayout *column = nullptr;
    m_productPage = makePage(&column);
    QWidget *content = column->parentWidget();
    auto *back = new QPushButton(u"\u2039 Catalogue"_s, content);
    back->setFlat(true);
    connect(back, &QPushButton::clicked, this, [this] { m_catalogueStack->setCurrentIndex(0); });
    column->addWidget(back, 0, Qt::AlignLeft);
    m_productSwatch = new QLabel(content);
    m_productSwatch->setMinimumHeight(220);
    m_productSwatch->setAlignment(Qt::AlignCenter);
    column->addWidget(m_productSwatch);
    m_productName = heading(QString(), 22, content);
    m_productPrice = heading(QString(), 16, content);
    m_productDescription = paragraph(QString(), content);
    column->addWidget(m_productName);
    column->addWidget(m_productPrice);
    column->addWidget(m_productDescription);
    auto *add = new QPushButton(u"Add to cart"_s, content);
    add->setMinimumHeight(44);
    connect(add, &QPushButton::clicked, this, [this] { addToCart(m_currentProduct); });
    column->addWidget(add);
    column->addStretch();
    return m_productPage;
}

QWidget *ShopWindow::makeCart()
{
    QVBoxLayout *column = nullptr;
    m_cartPage = makePage(&column);
    QWidget *content = column->parentWidget();
    column->addWidget(heading(u"Your cart"_s, 22, content));
    m_cartList = new QListWidget(content);
    m_cartList->setFrameShape(QFrame::NoFrame);
    column->addWidget(m_cartList);
    m_cartTotal = heading(QString(), 16, content);
    column->addWidget(m_cartTotal);

    auto *form = new QFormLayout;
    m_nameField = new QLineEdit(content);
    m_nameField->setPlaceholderText(u"Full name"_s);
    m_emailField = new QLineEdit(content);
    m_emailField->setPlaceholderText(u"name@example.com"_s);
    m_addressField = new QLineEdit(content);
    m_addressField->setPlaceholderText(u"Street, city"_s);
    auto *delivery = new QComboBox(content);
    delivery->addItems({ u"Standard (3-5 days)"_s, u"Express (next day)"_s });
    form->addRow(u"Name"_s, m_nameField);
    form->addRow(u"Email"_s, m_emailField);
    form->addRow(u"Address"_s, m_addressField);
    form->addRow(u"Delivery"_s, delivery);
    column->addLayout(form);
    auto *order = new QPushButton(u"Place order"_s, content);
    order->setMinimumHeight(44);
    connect(order, &QPushButton::clicked, this,
            [this] { statusBar()->showMessage(u"Thank you, your order is on its way."_s); });
    column->addWidget(order);
    embeddedSlot(u"cart_footer"_s, column);
    column->addStretch();
    updateCart();
    return m_cartPage;
}

QString ShopWindow::screenName(Screen screen)
{
    switch (screen) {
    case Screen::Home:
        return u"home"_s;
    case Screen::Catalogue:
        return u"catalogue"_s;
    case Screen::Product:
        return u"product"_s;
    case Screen::Cart:
        return u"cart"_s;
    }
    return {};
}

ShopWindow::Screen ShopWindow::currentScreen() const
{
    switch (m_tabs->currentIndex()) {
    case 1:
        return m_catalogueStack->currentIndex() == 0 ? Screen::Catalogue : Screen::Product;
    case 2:
        return Screen::Cart;
    default:
        return Screen::Home;
    }
}

QWidget *ShopWindow::screenWidget(Screen screen) const
{
    switch (screen) {
    case Screen::Home:
        return m_home;
    case Screen::Catalogue:
        return m_catalogueList;
    case Screen::Product:
        return m_productPage;
    case Screen::Cart:
        return m_cartPage;
    }
    return nullptr;
}

QList<IAMUIEmbeddedBanner *> ShopWindow::embeddedSlots(Screen screen) const
{
    return screenWidget(screen)->findChildren<IAMUIEmbeddedBanner *>();
}

void ShopWindow::showScreen(Screen screen)
{
    switch (screen) {
    case Screen::Home:
        m_tabs->setCurrentIndex(0);
        break;
    case Screen::Catalogue:
        m_catalogueStack->setCurrentIndex(0);
        m_tabs->setCurrentIndex(1);
        break;
    case Screen::Product:
        openProduct(m_currentProduct);
        break;
    case Screen::Cart:
        m_tabs->setCurrentIndex(2);
        break;
    }
}

void ShopWindow::openProduct(int index)
{
    m_currentProduct = int(std::clamp(qsizetype(index), qsizetype(0), m_products.size() - 1));
    const Product &product = m_products[m_currentProduct];
    m_productSwatch->setPixmap(swatch(product.color, { 220, 220 }));
    m_productName->setText(product.name);
    m_productPrice->setText(product.price);
    m_productDescription->setText(product.description);
    // Both changes would report a screen; the page is set first so that only the last one
    // reports a different screen.
    const bool sameTab = m_tabs->currentIndex() == 1;
    if (sameTab && m_catalogueStack->currentIndex() == 1)
        return;
    const QSignalBlocker blocker(sameTab ? nullptr : m_catalogueStack);
    m_catalogueStack->setCurrentIndex(1);
    m_tabs->setCurrentIndex(1);
}

void ShopWindow::addToCart(int index)
{
    m_cart.append(index);
    updateCart();
    statusBar()->showMessage(m_products[index].name + u" is in your cart."_s);
}

void ShopWindow::fillOrderForm(const QString &name, const QString &email, const QString &address)
{
    m_nameField->setText(name);
    m_emailField->setText(email);
    m_addressField->setText(address);
}

void ShopWindow::updateCart()
{
    m_cartList->clear();
    double total = 0;
    for (int index : std::as_const(m_cart)) {
        const Product &product = m_products[index];
        new QListWidgetItem(QIcon(swatch(product.color, { 24, 24 })),
                            product.name + u"  \u00b7  "_s + product.price, m_cartList);
        total += product.price.toDouble();
    }
    // As tall as its rows, so the form follows right below.
    const int rows = int(std::clamp(m_cart.size(), qsizetype(1), qsizetype(4)));
    m_cartList->setFixedHeight(rows * m_cartList->sizeHintForRow(0) + 8);
    m_cartTotal->setText(m_cart.isEmpty() ? u"Nothing here yet"_s
                                          : u"Total "_s + QString::number(total, 'f', 2));
}

void ShopWindow::start()
{
    m_started = true;
    reportScreen();
}

void ShopWindow::reportScreen()
{
    if (!m_started)
        return;
    const Screen screen = currentScreen();
    const QString name = screenName(screen);
    velmora::VelmoraInAppMessaging::shared().screenView(name, screenWidget(screen));
}

} // namespace shopdemo
