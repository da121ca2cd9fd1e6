#include "command.h"
#include "embedded/iamuiembeddedbanner_p.h"
#include "images/imageloader.h"
#include "layout/keyboardsource.h"
#include "modal/iampopupmodalviewcontroller.h"
#include "modal/popupmodalpresenter.h"
#include "network/apiresponse.h"
#include "popupbanner/iampopupbannerviewcontroller.h"
#include "popupbanner/popupbannerpresenter.h"
#include "presentation/actionclassification.h"
#include "presentation/embeddedbannerstore.h"
#include "utilities/iamanimatedimageview.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPainter>
#include <QRegularExpression>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QVBoxLayout>
#include <QtCore/qtestsupport_core.h>

#include <algorithm>
#include <memory>
#include <tuple>

using namespace Qt::StringLiterals;

namespace velmora::inspect {

namespace {

const QString usage = u"render RESPONSE [--size WxH] [--dpr N] [--out DIR] [--ca-file PEM]"_s;
// A picture that has not arrived by then is treated as failed, as a user would see it.
constexpr int imageTimeoutMs = 20000;
// The fade-ins: the views are drawn as they look once settled.
constexpr int fadeMs = 450;
constexpr int embeddedInset = 16;

struct Options
{
    QString response;
    QSize size { 390, 844 };
    qreal dpr = 1;
    QString outDir = u"."_s;
};

// The plain screen an action is drawn on: the colour of a typical app background.
std::unique_ptr<QWidget> makeScreen(QSize size)
{
    auto screen = std::make_unique<QWidget>();
    screen->resize(size);
    screen->setAutoFillBackground(true);
    QPalette palette = screen->palette();
    palette.setColor(QPalette::Window, QColor(0xF2, 0xF3, 0xF5));
    screen->setPalette(palette);
    return screen;
}

QImage grab(QWidget *screen, qreal dpr, QWidget *window = nullptr)
{
    QImage image(screen->size() * dpr, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(dpr);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    screen->render(&painter);
    if (window) {
        // The modal paints its dim by replacing pixels, as a window of its own does: draw it
        // apart, then over the screen.
        QImage layer(window->size() * dpr, QImage::Format_ARGB32_Premultiplied);
        layer.setDevicePixelRatio(dpr);
        layer.fill(Qt::transparent);
        window->render(&layer, QPoint(), QRegion(), QWidget::DrawChildren);
        painter.drawImage(window->mapToGlobal(QPoint()) - screen->mapToGlobal(QPoint()), layer);
    }
    return image;
}

QString imageFailure(const QString &url)
{
    return u"its image did not load ("_s + url + u')';
}

struct Outcome
{
    std::optional<QImage> image;
    QString why;
    // Drawn as the library shows a message whose picture failed: said on standard error, so
    // that an author does not take it for the design.
    bool imageMissing = false;
};

bool imageMissing(const QString &url, const QWidget *view)
{
    const auto *image = view ? view->findChild<IAMAnimatedImageView *>(u"coverImage"_s) : nullptr;
    return !url.isEmpty() && (!image || !image->loadedImage());
}

Outcome renderBanner(const Options &options, const ClassifiedPopupBanner &banner)
{
    std::unique_ptr<QWidget> screen = makeScreen(options.size);
    screen->show();
    layout::ManualKeyboardSource keyboard;
    PopupBannerPresenter presenter(&keyboard);
    std::optional<QString> error;
    presenter.setOnError([&](const std::optional<InAppMessage> &, const VelmoraError &failure) {
        error = failure.description();
    });
    PopupBannerRequest request;
    request.screenName = u"render"_s;
    request.scenarioId = banner.action.meta.scenarioId;
    request.content = banner.content;
    request.target = screen.get();
    presenter.present(request);
    const DisplayPosition position = banner.content.position;
    const auto done = [&] {
        const IAMPopupBannerViewController *shown = presenter.bannerAt(position);
        return error || !shown || shown->hasReportedOpen();
    };
    if (!QTest::qWaitFor(done, imageTimeoutMs))
        return { std::nullopt, imageFailure(banner.content.creative.image.url) };
    if (error)
        return { std::nullopt, *error };
    if (!presenter.bannerAt(position))
        return { std::nullopt, imageFailure(banner.content.creative.image.url) };
    QTest::qWait(fadeMs);
    return { grab(screen.get(), options.dpr),
             {},
             imageMissing(banner.content.creative.image.url, presenter.bannerAt(position)) };
}

Outcome renderModal(const Options &options, const ClassifiedModal &modal)
{
    std::unique_ptr<QWidget> screen = makeScreen(options.size);
    screen->show();
    QApplication::setActiveWindow(screen.get());
    PopupModalPresenter presenter;
    std::optional<QString> error;
    presenter.setOnError([&](const std::optional<InAppMessage> &, const VelmoraError &failure) {
        error = failure.description();
    });
    presenter.present(u"render"_s, modal.action.meta.scenarioId, modal.content, {});
    IAMPopupModalViewController *view = presenter.currentModal();
    if (!view)
        return { std::nullopt, error.value_or(u"the modal did not show"_s) };
    // A modal shows before its picture arrives; a preview waits for it.
    const auto *cover = view->findChild<IAMAnimatedImageView *>(u"coverImage"_s);
    bool loaded = modal.content.creative.image.url.isEmpty();
    if (cover && !loaded) {
        const QMetaObject::Connection finished = QObject::connect(
            cover, &IAMAnimatedImageView::loadFinished, view, [&loaded] { loaded = true; });
        std::ignore = QTest::qWaitFor([&] { return loaded || cover->loadedImage().has_value(); },
                                      imageTimeoutMs);
        QObject::disconnect(finished);
    }
    QTest::qWait(fadeMs);
    Outcome outcome { grab(screen.get(), options.dpr, view),
                      {},
                      imageMissing(modal.content.creative.image.url, view) };
    presenter.removeModalWindow();
    return outcome;
}

Outcome renderEmbedded(const Options &options, const ClassifiedEmbeddedBanner &banner)
{
    std::unique_ptr<QWidget> screen = makeScreen(options.size);
    // A host lays a slot out in its content column, inset from the screen's edges.
    auto *column = new QVBoxLayout(screen.get());
    column->setContentsMargins(embeddedInset, embeddedInset, embeddedInset, embeddedInset);
    EmbeddedBannerStore store;
    IAMUIEmbeddedBanner *slot = IAMUIEmbeddedBannerPrivate::create(&store, screen.get());
    slot->setShowsLoadingPlaceholder(true);
    slot->setComponentId(banner.content.componentId);
    column->addWidget(slot);
    column->addStretch();
    screen->show();
    store.clearAll(u"render"_s, screen.get());
    EmbeddedComponentUpdate update;
    update.id = banner.content.componentId;
    update.content = banner.content;
    update.scenarioId = banner.action.meta.scenarioId;
    update.screenName = u"render"_s;
    store.apply({ update });
    const auto settled
        = [slot] { return slot->state() != IAMUIEmbeddedBanner::State::Placeholder; };
    if (!QTest::qWaitFor(settled, imageTimeoutMs)
        || slot->state() == IAMUIEmbeddedBanner::State::Hidden)
        return { std::nullopt, imageFailure(banner.content.creative.image.url) };
    QTest::qWait(100);
    const IAMAnimatedImageView *image = IAMUIEmbeddedBannerPrivate::get(slot)->imageView();
    return { grab(screen.get(), options.dpr),
             {},
             !banner.content.creative.image.url.isEmpty() && !image->loadedImage() };
}

QString fileStem(int index, const QString &scenarioId)
{
    static const QRegularExpression unsafe(u"[^A-Za-z0-9._-]+"_s);
    QString name = scenarioId;
    name.replace(unsafe, u"_"_s);
    return u"%1-%2"_s.arg(index, 2, 10, QLatin1Char('0')).arg(name.left(60));
}

std::optional<Options> parseOptions(const QStringList &args)
{
    QCommandLineParser parser;
    parser.addPositionalArgument(u"RESPONSE"_s, u"A view-event response body."_s);
    parser.addOptions({
        { u"size"_s, u"The screen's size in logical pixels."_s, u"WxH"_s, u"390x844"_s },
        { u"dpr"_s, u"The device pixel ratio of the PNGs."_s, u"N"_s, u"1"_s },
        { u"out"_s, u"The folder the PNGs are written to."_s, u"DIR"_s, u"."_s },
        { u"ca-file"_s, u"Also trust the CA certificates in this PEM file."_s, u"FILE"_s },
    });
    if (!parser.parse(QStringList { u"velmora-inspect"_s } + args)
        || parser.positionalArguments().size() != 1) {
        printErr(parser.errorText().isEmpty() ? u"usage: velmora-inspect "_s + usage
                                              : parser.errorText());
        return std::nullopt;
    }
    Options options;
    options.response = parser.positionalArguments().first();
    static const QRegularExpression sizePattern(u"^(\\d{1,5})x(\\d{1,5})$"_s);
    const QRegularExpressionMatch size = sizePattern.match(parser.value(u"size"_s));
    options.size
        = size.hasMatch() ? QSize(size.captured(1).toInt(), size.captured(2).toInt()) : QSize();
    if (options.size.width() < 1 || options.size.height() < 1) {
        printErr(u"--size must be WIDTHxHEIGHT, got \""_s + parser.value(u"size"_s) + u'"');
        return std::nullopt;
    }
    bool ok = false;
    options.dpr = parser.value(u"dpr"_s).toDouble(&ok);
    if (!ok || options.dpr < 0.5 || options.dpr > 4) {
        printErr(u"--dpr must be a number from 0.5 to 4, got \""_s + parser.value(u"dpr"_s) + u'"');
        return std::nullopt;
    }
    options.outDir = parser.value(u"out"_s);
    if (parser.isSet(u"ca-file"_s)) {
        const auto certificates = QSslCertificate::fromPath(parser.value(u"ca-file"_s));
        if (certificates.isEmpty()) {
            printErr(u"no certificate in "_s + parser.value(u"ca-file"_s));
            return std::nullopt;
        }
        QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
        ssl.addCaCertificates(certificates);
        QSslConfiguration::setDefaultConfiguration(ssl);
        ImageLoader::shared()->setSslConfiguration(ssl);
    }
    return options;
}

int runRender(const QStringList &args)
{
    const std::optional<Options> options = parseOptions(args);
    if (!options)
        return Usage;
    QByteArray body;
    if (const auto status = readFileArgument({ options->response }, usage, &body))
        return *status;
    auto decoded = decodeAPIResponse(body);
    if (!decoded) {
        printErr(u"the response is rejected as a whole: "_s + decoded.error().description);
        return Failed;
    }
    if (!QDir().mkpath(options->outDir)) {
        printErr(u"cannot create "_s + options->outDir);
        return Unreadable;
    }
    QList<InAppMessageAction> actions = decoded.value().actions;
    sortForDisplay(actions);

    // What the library would display, in display order; everything else says why not.
    const std::optional<ClassifiedModal> modal = classify::firstModal(actions);
    const QList<ClassifiedPopupBanner> banners = classify::popupBanners(actions);
    const QList<ClassifiedEmbeddedBanner> embedded = classify::embeddedBanners(actions);

    QJsonArray rendered;
    QJsonArray skipped;
    const auto skip = [&](const InAppMessageAction &action, const QString &why) {
        skipped.append(
            QJsonObject { { u"scenario_id"_s, action.meta.scenarioId }, { u"why"_s, why } });
    };
    bool modalSeen = false;
    for (qsizetype i = 0; i < actions.size(); ++i) {
        const InAppMessageAction &action = actions[i];
        const InAppMessage &message = action.contents;
        Outcome outcome;
        if (message.popupModalAction()) {
            // The list is in display order, so the first modal in it is the one that shows.
            if (modalSeen) {
                skip(action, u"only the highest-ranked modal of a screen shows"_s);
                continue;
            }
            modalSeen = true;
            outcome = renderModal(*options, *modal);
        } else if (const PopupBannerAction *banner = message.popupBannerAction()) {
            const auto found = std::find_if(banners.begin(), banners.end(), [&](const auto &b) {
                return b.action.meta.scenarioId == action.meta.scenarioId
                    && b.content.position == banner->position;
            });
            if (found == banners.end()) {
                skip(action,
                     banner->creative.isDisplayable()
                         ? u"a higher-ranked banner takes its position"_s
                         : u"it has no image, title or body to show"_s);
                continue;
            }
            outcome = renderBanner(*options, *found);
        } else if (const EmbeddedBannerAction *slot = message.embeddedBannerAction()) {
            const auto found = std::find_if(embedded.begin(), embedded.end(), [&](const auto &b) {
                return b.action.meta.scenarioId == action.meta.scenarioId
                    && b.content.componentId == slot->componentId;
            });
            if (found == embedded.end()) {
                skip(action,
                     slot->componentId.isEmpty() ? u"it names no component, so no slot shows it"_s
                                                 : u"it has no image, title or body to show"_s);
                continue;
            }
            outcome = renderEmbedded(*options, *found);
        } else {
            skip(action, u"unsupported message type \""_s + message.rawType() + u'"');
            continue;
        }
        if (!outcome.image) {
            skip(action, outcome.why);
            continue;
        }
        if (outcome.imageMissing) {
            printErr(action.meta.scenarioId + u": "_s + imageFailure(message.creative()->image.url)
                     + u"; drawn without it, as the library shows it"_s);
        }
        const QString path
            = QDir(options->outDir)
                  .absoluteFilePath(fileStem(int(i) + 1, action.meta.scenarioId) + u".png"_s);
        if (!outcome.image->save(path)) {
            printErr(u"cannot write "_s + path);
            return Unreadable;
        }
        rendered.append(QJsonObject { { u"scenario_id"_s, action.meta.scenarioId },
                                      { u"type"_s, message.rawType() },
                                      { u"png"_s, path } });
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    const QJsonObject result { { u"rendered"_s, rendered }, { u"skipped"_s, skipped } };
    printOut(QString::fromUtf8(QJsonDocument(result).toJson(QJsonDocument::Compact)));
    return Success;
}

const bool registered = registerCommand(
    { u"render"_s, usage + u"  draw each message of a response as the Widgets views show it"_s,
      runRender, true });

} // namespace

} // namespace velmora::inspect
