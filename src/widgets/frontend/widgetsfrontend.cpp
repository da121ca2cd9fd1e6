#include "frontend/widgetsfrontend.h"

#include "embedded/iamuiembeddedbanner_p.h"
#include "modal/popupmodalpresenter.h"
#include "popupbanner/popupbannerpresenter.h"
#include "presentation/popupmodalpresentertype.h"

#include <QApplication>
#include <QQueue>
#include <QStackedWidget>
#include <QTabWidget>

namespace velmora::widgets {

namespace {

// The first visible stack or tab container under `root` (breadth first, so the outermost one
// decides), or null when `root` holds none.
QWidget *firstContainerBelow(QWidget *root)
{
    QQueue<QWidget *> queue;
    queue.enqueue(root);
    while (!queue.isEmpty()) {
        QWidget *widget = queue.dequeue();
        if ((qobject_cast<QStackedWidget *>(widget) || qobject_cast<QTabWidget *>(widget))
            && widget->isVisible())
            return widget;
        const auto children = widget->findChildren<QWidget *>(Qt::FindDirectChildrenOnly);
        for (QWidget *child : children) {
            if (!child->isWindow())
                queue.enqueue(child);
        }
    }
    return nullptr;
}

QWidget *currentPage(QWidget *container)
{
    if (auto *stack = qobject_cast<QStackedWidget *>(container))
        return stack->currentWidget();
    return static_cast<QTabWidget *>(container)->currentWidget();
}

} // namespace

bool isWidgetsHost()
{
    return qobject_cast<QApplication *>(QCoreApplication::instance()) != nullptr;
}

std::unique_ptr<PopupBannerPresenterType> makeBannerPresenter()
{
    if (!isWidgetsHost())
        return nullptr;
    return std::make_unique<PopupBannerPresenter>();
}

void useEmbeddedBannerStore(EmbeddedBannerStore *store)
{
    IAMUIEmbeddedBannerPrivate::setDefaultStore(store);
}

std::unique_ptr<PopupModalPresenterType> makeModalPresenter()
{
    if (!isWidgetsHost())
        return nullptr;
    return std::make_unique<PopupModalPresenter>();
}

QWidget *findTopWidget()
{
    if (!isWidgetsHost())
        return nullptr;
    QWidget *current = QApplication::activeModalWidget();
    if (!current)
        current = QApplication::activeWindow();
    if (!current)
        return nullptr;
    for (;;) {
        QWidget *container = firstContainerBelow(current);
        if (!container)
            return current;
        QWidget *page = currentPage(container);
        // A container without a current page ends the search at the container itself.
        if (!page)
            return container;
        current = page;
    }
}

} // namespace velmora::widgets
