// Renders every state of the Widgets popup banner offscreen into PNGs, at a phone and a
// desktop size and at device pixel ratios 1 and 2, so that a change to the views can be looked
// at before it ships. Images come over HTTPS from a loopback server, as in production.
//
//     velmora-gallery OUTPUT_DIR

#include "embedded/iamuiembeddedbanner_p.h"
#include "httpserver/httpserver.h"
#include "images/imageloader.h"
#include "layout/keyboardsource.h"
#include "modal/iampopupmodalviewcontroller.h"
#include "modal/popupmodalpresenter.h"
#include "popupbanner/iampopupbannerviewcontroller.h"
#include "popupbanner/popupbannerpresenter.h"
#include "presentation/embeddedbannerstore.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QSslConfiguration>
#include <QTimer>
#include <QVBoxLayout>
#include <QtCore/qtestsupport_core.h>

#include <cstdio>
#include <functional>

using namespace Qt::StringLiterals;
using namespace velmora;

namespace {

struct Scene
{
    QString name;
    QList<PopupBannerAction> banners;
    bool keyboard = false;
};

TextContent text(const QString &value, const QString &color = {}, const QString &background = {})
{
    TextContent content;
    content.text = value;
    if (!color.isEmpty())
        content.textColor = color;
    if (!background.isEmpty())
        content.backgroundColor = background;
    return content;
}

PopupBannerAction banner(DisplayPosition position, const QString &image, bool withText,
                         bool withButton, std::optional<ContentsSize> size = std::nullopt,
                         Margin margin = { 12, 12, 12, 12 })
{
    PopupBannerAction action;
    action.position = position;
    action.margin = margin;
    action.size = size;
    action.creative.image.url = image;
    if (withText) {
        action.creative.title = text(u"Spring sale"_s);
        action.creative.body = text(u"Everything 20% off until Sunday, in every store."_s);
    }
    if (withButton) {
        ButtonContent button;
        button.text = u"Shop now"_s;
        button.backgroundColor = u"E4572E"_s;
        action.creative.button = button;
    }
    return action;
}

ContentsSize percentWidth(int percent)
{
    ContentsSize size;
    size.width = { percent, ContentsLength::Unit::Percentage };
    return size;
}

// A plain host screen: a header and a few rows, so the banners sit on something real.
QWidget *makeHost(QSize size)
{
    auto *host = new QWidget;
    host->resize(size);
    host->setAutoFillBackground(true);
    QPalette palette = host->palette();
    palette.setColor(QPalette::Window, QColor(0xF2, 0xF3, 0xF5));
    host->setPalette(palette);
    auto *layout = new QVBoxLayout(host);
    auto *header = new QLabel(u"Velmora Shop"_s, host);
    QFont font = header->font();
    font.setPixelSize(20);
    font.setBold(true);
    header->setFont(font);
    layout->addWidget(header);
    for (int row = 1; row <= 6; ++row) {
        auto *label = new QLabel(u"Product %1 · 24.90"_s.arg(row), host);
        label->setMinimumHeight(48);
        layout->addWidget(label);
    }
    layout->addStretch();
    return host;
}

void render(QWidget *host, qreal dpr, const QString &path)
{
    QImage image(host->size() * dpr, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(dpr);
    image.fill(Qt::transparent);
    host->render(&image);
    image.save(path);
}

// A host column with three embedded slots: a banner with a picture, a slot still waiting for
// the store (its shimmer), and a text-only banner.
QStringList renderEmbedded(const QString &outDir, const std::function<QString(QString)> &image)
{
    QStringList written;
    for (const QSize size : { QSize(390, 844), QSize(1280, 800) }) {
        EmbeddedBannerStore store;
        // A screen's content column: full width on a phone, at most 560 wide and centred on a
        // desktop, as hosts lay out reading columns.
        auto *host = new QWidget;
        host->resize(size);
        host->setAutoFillBackground(true);
        QPalette palette = host->palette();
        palette.setColor(QPalette::Window, QColor(0xF2, 0xF3, 0xF5));
        host->setPalette(palette);
        auto *outer = new QHBoxLayout(host);
        auto *content = new QWidget(host);
        content->setMaximumWidth(560);
        outer->addWidget(content);
        auto *column = new QVBoxLayout(content);
        column->setContentsMargins(0, 0, 0, 0);
        column->setSpacing(12);
        auto *header = new QLabel(u"Velmora Shop"_s, content);
        QFont font = header->font();
        font.setPixelSize(20);
        font.setBold(true);
        header->setFont(font);
        column->addWidget(header);
        const auto slot = [&](const QString &id) {
            auto *banner = IAMUIEmbeddedBannerPrivate::create(&store, content);
            banner->setComponentId(id);
            banner->setShowsLoadingPlaceholder(true);
            column->addWidget(banner);
            return banner;
        };
        const auto row = [&](int number) {
            column->addWidget(new QLabel(u"Product %1 · 24.90"_s.arg(number), content));
        };
        IAMUIEmbeddedBanner *hero = slot(u"hero"_s);
        row(1);
        slot(u"deals"_s);
        row(2);
        IAMUIEmbeddedBanner *footer = slot(u"footer"_s);
        row(3);
        column->addStretch();
        host->show();
        store.clearAll(u"gallery"_s, host);
        store.setLoading(true);
        EmbeddedComponentUpdate update;
        update.screenName = u"gallery"_s;
        update.id = update.content.componentId = u"hero"_s;
        update.content.creative.image.url = image(u"spring-sale.png"_s);
        update.content.creative.title = text(u"Spring sale"_s);
        update.content.creative.body = text(u"Everything 20% off until Sunday, in every store."_s);
        EmbeddedComponentUpdate textOnly = update;
        textOnly.id = textOnly.content.componentId = u"footer"_s;
        textOnly.content.creative.image.url.clear();
        textOnly.content.creative.title
            = text(u"Free shipping over 50"_s, u"FFFFFF"_s, u"1D2635"_s);
        textOnly.content.creative.body = text(u"On every order, until the end of the month."_s);
        textOnly.content.creative.backgroundColor = u"FFF7E8"_s;
        store.apply({ update, textOnly });
        const auto revealed = [&] {
            return hero->state() == IAMUIEmbeddedBanner::State::Revealed
                && footer->state() == IAMUIEmbeddedBanner::State::Revealed;
        };
        if (!QTest::qWaitFor(revealed, 10000))
            std::fprintf(stderr, "embedded: not every banner showed\n");
        QTest::qWait(300); // a shimmer sweep mid-way
        for (const qreal dpr : { 1.0, 2.0 }) {
            const QString path = u"%1/embedded-%2x%3@%4x.png"_s.arg(outDir)
                                     .arg(size.width())
                                     .arg(size.height())
                                     .arg(int(dpr));
            render(host, dpr, path);
            written << path;
        }
        delete host;
    }
    return written;
}

// The popup modal over a host screen, composed as the window system would show the two.
QStringList renderModal(const QString &outDir, const std::function<QString(QString)> &image)
{
    PopupModalAction full;
    full.creative.image.url = image(u"spring-sale.png"_s);
    full.creative.image.linkUrl = u"https://example.com/sale"_s;
    full.creative.title = text(u"Spring sale"_s);
    full.creative.body = text(u"Everything 20% off until Sunday, in every store and online."_s);
    full.creative.button = ButtonContent { u"Shop now"_s, u"https://example.com/sale"_s, {}, {} };
    PopupModalAction imageOnly;
    imageOnly.creative.image.url = image(u"loyalty.jpg"_s);
    PopupModalAction textOnly;
    textOnly.creative.title = text(u"Free shipping over 50"_s);
    textOnly.creative.body = text(u"On every order, until the end of the month."_s);
    textOnly.creative.button = ButtonContent { u"Got it"_s, {}, u"FFFFFF"_s, u"1D2635"_s };
    PopupModalAction longText = full;
    QString body;
    for (int i = 0; i < 30; ++i)
        body += u"Our terms changed: read how we keep your data, what you can ask of us and "
                u"how to reach us. "_s;
    longText.creative.body = text(body);
    longText.creative.title = text(u"We updated our terms"_s, u"FFFFFF"_s, u"1D2635"_s);

    const QList<std::pair<QString, PopupModalAction>> scenes {
        { u"modal-full"_s, full },
        { u"modal-image-only"_s, imageOnly },
        { u"modal-text-only"_s, textOnly },
        { u"modal-long-text"_s, longText },
    };
    QStringList written;
    for (const QSize size : { QSize(390, 844), QSize(1280, 800) }) {
        for (const auto &[name, action] : scenes) {
            QWidget *host = makeHost(size);
            host->show();
            QApplication::setActiveWindow(host);
            PopupModalPresenter presenter;
            presenter.present(u"gallery"_s, name, action, {});
            IAMPopupModalViewController *modal = presenter.currentModal();
            if (!modal) {
                std::fprintf(stderr, "%s: no modal\n", qPrintable(name));
                delete host;
                continue;
            }
            QTest::qWait(action.creative.image.url.isEmpty() ? 400 : 1500);
            for (const qreal dpr : { 1.0, 2.0 }) {
                QImage shot(size * dpr, QImage::Format_ARGB32_Premultiplied);
                shot.setDevicePixelRatio(dpr);
                shot.fill(Qt::transparent);
                host->render(&shot);
                QPainter painter(&shot);
                modal->render(&painter);
                painter.end();
                const QString path = u"%1/%2-%3x%4@%5x.png"_s.arg(outDir, name)
                                         .arg(size.width())
                                         .arg(size.height())
                                         .arg(int(dpr));
                shot.save(path);
                written << path;
            }
            presenter.removeModalWindow();
            delete host;
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
    }
    return written;
}

} // namespace

int main(int argc, char *argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: velmora-gallery OUTPUT_DIR\n");
        return 2;
    }
    const QString outDir = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(outDir);

    loopback::HttpServer server;
    if (!server.listen(loopback::HttpServer::Mode::Https))
        return 1;
    const QDir images(QStringLiteral(VELMORA_CAMPAIGN_IMAGES));
    server.setDefaultHandler([&](const loopback::RecordedRequest &request) {
        QFile file(images.filePath(request.path().section(u'/', -1)));
        if (!file.open(QIODevice::ReadOnly))
            return loopback::Response::withStatus(404);
        return loopback::Response::withStatus(200, file.readAll());
    });
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.addCaCertificate(loopback::Certificate::shared()->certificate());
    ImageLoader::shared()->setSslConfiguration(tls);
    const auto image = [&](const QString &name) { return server.url(u"/"_s + name).toString(); };

    QList<Scene> scenes;
    Scene nine { u"positions"_s, {} };
    Scene nineSized { u"positions-sized"_s, {} };
    const QStringList names
        = { u"top-left"_s,     u"top"_s,         u"top-right"_s, u"center-left"_s, u"center"_s,
            u"center-right"_s, u"bottom-left"_s, u"bottom"_s,    u"bottom-right"_s };
    for (int i = 0; i < 9; ++i) {
        PopupBannerAction action
            = banner(allDisplayPositions[size_t(i)], image(u"position-"_s + names[i] + u".png"_s),
                     false, false);
        action.creative.title = text(names[i]);
        nine.banners << action;
        action.size = percentWidth(30);
        nineSized.banners << action;
    }
    scenes << nine << nineSized;
    scenes << Scene { u"full"_s,
                      { banner(DisplayPosition::Top, image(u"spring-sale.png"_s), true, true) } };
    scenes << Scene { u"text-only"_s, { banner(DisplayPosition::Center, QString(), true, true) } };
    scenes << Scene { u"image-only"_s,
                      { banner(DisplayPosition::Top, image(u"hello.png"_s), false, false) } };
    scenes << Scene { u"button-only"_s,
                      { banner(DisplayPosition::Center, image(u"free-shipping.png"_s), false,
                               true) } };
    {
        PopupBannerAction styled = banner(DisplayPosition::Bottom, image(u"tour.png"_s), true, true,
                                          percentWidth(100), { 0, 16, 12, 12 });
        styled.creative.title = text(u"Take the tour"_s, u"FFFFFF"_s, u"1D2635"_s);
        styled.creative.backgroundColor = u"FFF7E8"_s;
        scenes << Scene { u"styled-bottom"_s, { styled } };
        scenes << Scene { u"keyboard"_s, { styled }, true };
    }
    scenes << Scene { u"animated"_s,
                      { banner(DisplayPosition::Bottom, image(u"welcome.gif"_s), true, false) } };

    QStringList written;
    for (const QSize size : { QSize(390, 844), QSize(1280, 800) }) {
        for (const Scene &scene : std::as_const(scenes)) {
            QWidget *host = makeHost(size);
            host->show();
            layout::ManualKeyboardSource keyboard;
            PopupBannerPresenter presenter(&keyboard);
            for (const PopupBannerAction &action : scene.banners) {
                PopupBannerRequest request;
                request.screenName = u"gallery"_s;
                request.scenarioId = scene.name;
                request.content = action;
                request.target = host;
                presenter.present(request);
            }
            const auto allShown = [&] {
                for (const PopupBannerAction &action : scene.banners) {
                    auto *shown = presenter.bannerAt(action.position);
                    if (!shown || !shown->hasReportedOpen())
                        return false;
                }
                return true;
            };
            if (!QTest::qWaitFor(allShown, 10000))
                std::fprintf(stderr, "%s: not every banner showed\n", qPrintable(scene.name));
            if (scene.keyboard)
                keyboard.setKeyboard(true, QRectF(0, size.height() - 300, size.width(), 300), 0);
            QTest::qWait(400); // fades
            for (const qreal dpr : { 1.0, 2.0 }) {
                const QString path = u"%1/%2-%3x%4@%5x.png"_s.arg(outDir, scene.name)
                                         .arg(size.width())
                                         .arg(size.height())
                                         .arg(int(dpr));
                render(host, dpr, path);
                written << path;
            }
            delete host;
        }
    }
    written << renderEmbedded(outDir, image);
    written << renderModal(outDir, image);
    for (const QString &path : std::as_const(written))
        std::printf("%s\n", qPrintable(path));
    return 0;
}
