// The demo shop for QML hosts against a back end of your choice, normally velmora-devserver:
//
//     velmora-quick-demo --api-host HOST [--api-key KEY] [--tenant TENANT] [--ca-file PEM]
//                        [--customer-id ID] [--tour DIR]
//
// --api-host is the back end's API host, as velmora-devserver prints it ("api-host: ...");
// --ca-file trusts the CA certificates in a PEM file (the dev server's "ca-file: ..."). With
// --tour it walks through every screen by itself, offscreen, saves a PNG of each state into
// DIR, prints their paths and exits 0 once all were saved.

#include "democommon.h"
#include "tour.h"

#include <VelmoraInAppMessaging/velmorainappmessaging.h>

#include <QCommandLineParser>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickWindow>

#include <cstdio>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {

// The sample campaigns link to a shop that does not exist: show where a tap would go instead
// of opening a browser.
class LinkCatcher : public QObject
{
    Q_OBJECT

public:
    explicit LinkCatcher(QObject *window)
        : m_window(window)
    { }

public Q_SLOTS:
    void openUrl(const QUrl &url)
    {
        m_window->setProperty("status", QString(u"Would open "_s + url.toString()));
    }

private:
    QObject *m_window;
};

bool wantsTour(int argc, char *argv[])
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--tour") == 0 || std::strncmp(argv[i], "--tour=", 7) == 0)
            return true;
    }
    return false;
}

} // namespace

int main(int argc, char *argv[])
{
    // The tour needs no display, and draws with the software renderer so that its
    // screenshots are the same everywhere.
    const bool tour = wantsTour(argc, argv);
    if (tour) {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    }

    QGuiApplication app(argc, argv);
    QGuiApplication::setApplicationName(u"velmora-quick-demo"_s);
    QGuiApplication::setOrganizationName(u"Velmora"_s);

    QCommandLineParser parser;
    parser.setApplicationDescription(u"A small Qt Quick shop that shows in-app messages."_s);
    democommon::addOptions(parser);
    parser.process(app);
    if (const int status = democommon::connectLibrary(parser, "velmora-quick-demo"))
        return status;

    QQmlApplicationEngine engine;
    engine.load(QUrl(u"qrc:/qt-project.org/imports/VelmoraQuickDemo/Main.qml"_s));
    auto *window = engine.rootObjects().isEmpty()
        ? nullptr
        : qobject_cast<QQuickWindow *>(engine.rootObjects().constFirst());
    if (!window)
        return 1;
    LinkCatcher links(window);
    for (const QString &scheme : { u"https"_s, u"http"_s })
        QDesktopServices::setUrlHandler(scheme, &links, "openUrl");

    int status = 0;
    if (tour) {
        quickdemo::Tour walk(window, parser.value(u"tour"_s));
        status = walk.run();
    } else {
        window->show();
        status = QGuiApplication::exec();
    }
    for (const QString &scheme : { u"https"_s, u"http"_s })
        QDesktopServices::unsetUrlHandler(scheme);
    return status;
}

#include "main.moc"
