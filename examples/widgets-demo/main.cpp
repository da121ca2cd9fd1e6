// The demo shop against a back end of your choice, normally velmora-devserver:
//
//     velmora-widgets-demo --api-host HOST --api-key KEY --tenant TENANT [--ca-file PEM]
//                          [--tour DIR]
//
// With --tour it walks through every screen by itself (offscreen works), saves a PNG of each
// state into DIR, prints their paths and quits.

#include "democommon.h"
#include "shopwindow.h"
#include "tour.h"

#include <VelmoraInAppMessaging/velmorainappmessaging.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDesktopServices>
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
    democommon::addOptions(parser);
    parser.process(app);
    if (const int status = democommon::connectLibrary(parser, "velmora-widgets-demo"))
        return status;

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
