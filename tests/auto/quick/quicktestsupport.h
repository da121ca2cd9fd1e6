// What the Qt Quick suites share: they reach the library as a QML-only host does, through QML,
// the public headers and loopback servers.
#pragma once

#include "httpserver/httpserver.h"

#include <VelmoraInAppMessaging/velmorainappmessaging.h>

#include <QAnimationDriver>
#include <QBuffer>
#include <QDesktopServices>
#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSslConfiguration>
#include <QStandardPaths>
#include <QTest>

namespace velmora::test {

inline QByteArray png(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

inline QByteArray png(QSize size, QColor color = Qt::red)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(color);
    return png(image);
}

// An HTTPS image server whose authority the library trusts. The trust goes into the default
// configuration, which the library's first request takes.
inline bool listenHttps(loopback::HttpServer &images)
{
    QStandardPaths::setTestModeEnabled(true);
    if (!loopback::Certificate::shared())
        return false;
    QSslConfiguration::setDefaultConfiguration(
        loopback::Certificate::shared()->clientConfiguration());
    return images.listen(loopback::HttpServer::Mode::Https);
}

// A plain HTTP back end beside the trusted HTTPS image server.
inline bool listenLoopback(loopback::HttpServer &api, loopback::HttpServer &images)
{
    return listenHttps(images) && api.listen(loopback::HttpServer::Mode::Http);
}

// The reactions the back end received, in order, as "reaction:scenario_id".
inline QStringList reactions(const loopback::HttpServer &api)
{
    QStringList out;
    for (const auto &request : api.requests()) {
        if (request.path().endsWith(u"/reaction"))
            out << request.json()[u"reaction"].toString() + u':'
                    + request.json()[u"scenario_id"].toString();
    }
    return out;
}

// Animation time moves only when a test says so. Events on either side of a step let posted
// registrations and the updates the step causes through.
class ManualAnimationDriver : public QAnimationDriver
{
public:
    qint64 elapsed() const override { return m_elapsed; }
    // Like the default driver, whose clock starts over with each start.
    void start() override
    {
        m_elapsed = 0;
        QAnimationDriver::start();
    }
    void step(qint64 msecs)
    {
        QCoreApplication::processEvents();
        m_elapsed += msecs;
        advance();
        QCoreApplication::processEvents();
    }

private:
    qint64 m_elapsed = 0;
};

inline void setUpFacade(const loopback::HttpServer &api)
{
    using namespace Qt::StringLiterals;
    VelmoraInAppMessaging::shared().setup(u"key"_s, u"tenant"_s,
                                          api.url(u"/vorpex/v1"_s).toString());
}

// The facade's delegate signals as lines: "clicked", "dismissed", or the error's description
// after `errorPrefix`.
inline void logFacadeSignals(QObject *context, QStringList *log, const QString &errorPrefix = {})
{
    using namespace Qt::StringLiterals;
    auto &facade = VelmoraInAppMessaging::shared();
    QObject::connect(&facade, &VelmoraInAppMessaging::messageClicked, context,
                     [log] { *log << u"clicked"_s; });
    QObject::connect(&facade, &VelmoraInAppMessaging::messageDismissed, context,
                     [log] { *log << u"dismissed"_s; });
    QObject::connect(&facade, &VelmoraInAppMessaging::messageError, context,
                     [log, errorPrefix](const auto &, const VelmoraError &error) {
                         *log << errorPrefix + error.description();
                     });
}

// The object of an inline QML document, or null with the errors printed.
inline std::unique_ptr<QObject> createQml(QQmlEngine &engine, const QByteArray &qml,
                                          const QString &fileName = QStringLiteral("inline.qml"))
{
    QQmlComponent component(&engine);
    component.setData(qml, QUrl::fromLocalFile(QDir::current().absoluteFilePath(fileName)));
    std::unique_ptr<QObject> object(component.create());
    if (!object)
        qWarning().noquote() << component.errorString();
    return object;
}

// The item of an inline QML document, placed in the scene of `window`.
inline std::unique_ptr<QQuickItem> createItem(QQmlEngine &engine, const QByteArray &qml,
                                              QQuickWindow *window)
{
    std::unique_ptr<QQuickItem> item(qobject_cast<QQuickItem *>(createQml(engine, qml).release()));
    if (item)
        item->setParentItem(window->contentItem());
    return item;
}

// A window on screen, or null when it was never exposed.
inline std::unique_ptr<QQuickWindow> exposedWindow(QSize size, QColor color = Qt::white)
{
    auto window = std::make_unique<QQuickWindow>();
    window->setColor(color);
    window->resize(size);
    window->show();
    return QTest::qWaitForWindowExposed(window.get()) ? std::move(window) : nullptr;
}

// Opens https links by logging "link:<url>", as a host's handler would, for as long as it lives.
class LinkRecorder : public QObject
{
    Q_OBJECT
public:
    explicit LinkRecorder(QStringList *log)
        : m_log(log)
    {
        QDesktopServices::setUrlHandler(QStringLiteral("https"), this, "open");
    }
    ~LinkRecorder() override { QDesktopServices::unsetUrlHandler(QStringLiteral("https")); }

public Q_SLOTS:
    void open(const QUrl &url) { *m_log << QStringLiteral("link:") + url.toString(); }

private:
    QStringList *m_log;
};

} // namespace velmora::test

// QTEST_MAIN would make a QApplication, as Widgets is linked; a QML-only host has none.
#define VELMORA_QUICK_TEST_MAIN(TestObject)                                                        \
    int main(int argc, char **argv)                                                                \
    {                                                                                              \
        QGuiApplication app(argc, argv);                                                           \
        TestObject test;                                                                           \
        return QTest::qExec(&test, argc, argv);                                                    \
    }
