// The demo shop against a back end of your choice, normally velmora-devserver:
//
//     velmora-widgets-demo --api-host HOST --api-key KEY --tenant TENANT [--ca-file PEM]
//                          [--tour DIR]
//
// With --tour it walks through every screen by itself (offscreen works), saves a PNG of each
// state into DIR, prints their paths and quits.

#include "shopwindow.h"
#include "tour.h"

#include <VelmoraInAppMessaging/velmorainappmessaging.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDesktopServices>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QStatusBar>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

// The sample campaigns link to a shop that does not exist: show where a tap would go instead
// of opening a browser.
class LinkCatcher : public QObject
{
    Q_OBJECT

public:
    explicit LinkCatcher(QStatusBar *statusBar)
        : m_statusBar(statusBar)
    { }

public Q_SLOTS:
    void openUrl(const QUrl &url) { m_statusBar->showMessage(u"Would open "_s + url.toString()); }

private:
    QStatusBar *m_statusBar;
};

} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(u"velmora-widgets-demo"_s);
    QApplication::setOrganizationName(u"Velmora"_s);

    QCommandLineParser parser;
    parser.setApplicationDescription(u"A small shop that shows in-app messages."_s);
    parser.addHelpOption();
    parser.addOptions({
        { u"api-host"_s, u"The back end's API host, as velmora-devserver prints it."_s, u"HOST"_s },
        { u"api-key"_s, u"The API key."_s, u"KEY"_s, u"demo-key"_s },
        { u"tenant"_s, u"The tenant id."_s, u"TENANT"_s, u"demo-tenant"_s },
        { u"ca-file"_s, u"Also trust the CA certificates in this PEM file."_s, u"FILE"_s },
        { u"customer-id"_s, u"The signed-in customer, if any."_s, u"ID"_s },
        { u"tour"_s, u"Visit every screen, save a PNG of each into DIR, then quit."_s, u"DIR"_s },
    });
    parser.process(app);
    if (!parser.isSet(u"api-host"_s)) {
        std::fprintf(stderr, "velmora-widgets-demo: --api-host is required\n");
        return 64;
    }
    if (parser.isSet(u"ca-file"_s)) {
        const auto certificates = QSslCertificate::fromPath(parser.value(u"ca-file"_s));
        if (certificates.isEmpty()) {
            std::fprintf(stderr, "velmora-widgets-demo: no certificate in %s\n",
                         qPrintable(parser.value(u"ca-file"_s)));
            return 2;
        }
        // Before the library's first request, which takes the default configuration.
        QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
        ssl.addCaCertificates(certificates);
        QSslConfiguration::setDefaultConfiguration(ssl);
    }

    auto &messaging = velmora::VelmoraInAppMessaging::shared();
    messaging.setup(parser.value(u"api-key"_s), parser.value(u"tenant"_s),
                    parser.value(u"api-host"_s));
    if (parser.isSet(u"customer-id"_s))
        messaging.setCustomerId(parser.value(u"customer-id"_s));

    // Embedded banner slots are made after shared(), which hands them its store.
    shopdemo::ShopWindow window;
    LinkCatcher links(window.statusBar());
    for (const QString &scheme : { u"https"_s, u"http"_s })
        QDesktopServices::setUrlHandler(scheme, &links, "openUrl");

    int status = 0;
    if (parser.isSet(u"tour"_s)) {
        shopdemo::Tour tour(&window, parser.value(u"tour"_s));
        status = tour.run();
    } else {
        window.resize(400, 760);
        window.show();
        window.start();
        status = QApplication::exec();
    }
    for (const QString &scheme : { u"https"_s, u"http"_s })
        QDesktopServices::unsetUrlHandler(scheme);
    return status;
}

#include "main.moc"
