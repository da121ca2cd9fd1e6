#pragma once

#include <QObject>

#include <memory>

QT_BEGIN_NAMESPACE
class QWidget;
QT_END_NAMESPACE

namespace velmora {

class EmbeddedBannerStore;
class PopupBannerPresenterType;
class PopupModalPresenterType;

/// What the Widgets front-end gives the library's object graph. Nothing here creates a widget
/// unless the host runs a QApplication.
namespace widgets {

/// Whether the host runs a QApplication, so widgets may be created.
bool isWidgetsHost();

std::unique_ptr<PopupBannerPresenterType> makeBannerPresenter();
/// The store embedded banners show when the host creates them without one.
void useEmbeddedBannerStore(EmbeddedBannerStore *store);
std::unique_ptr<PopupModalPresenterType> makeModalPresenter();

/// The widget a screen's messages go on when the host names none: starting at the active modal
/// widget, else the active window, it follows the current page of the first visible stacked
/// widget or tab widget inside, again and again, and ends at a container without a current
/// page or a widget holding no such container. Null without an active window.
QWidget *findTopWidget();

} // namespace widgets
} // namespace velmora
