#include "modal/popupmodalpresenter.h"

#include "common/logging.h"
#include "layout/screensnapshot.h"
#include "modal/iampopupmodalviewcontroller.h"

#include <VelmoraInAppMessaging/inappmessage.h>

#include <QApplication>
#include <QWindow>

using namespace Qt::StringLiterals;

namespace velmora {

namespace {

// Our own modal is never the window to cover: a replacement goes over the same host.
QWidget *hostOf(QWidget *window)
{
    if (auto *modal = qobject_cast<IAMPopupModalViewController *>(window))
        return modal->hostWindow();
    return window;
}

} // namespace

PopupModalPresenter::PopupModalPresenter(QObject *parent)
    : QObject(parent)
{ }

PopupModalPresenter::~PopupModalPresenter()
{
    removeModalWindow();
}

QWidget *PopupModalPresenter::foregroundWindow()
{
    if (QWidget *active = hostOf(QApplication::activeWindow()))
        return active;
    const QWindow *window = layout::foregroundWindow();
    if (!window)
        return nullptr;
    const auto topLevels = QApplication::topLevelWidgets();
    for (QWidget *widget : topLevels) {
        if (widget->windowHandle() == window)
            return hostOf(widget);
    }
    return nullptr;
}

void PopupModalPresenter::present(const QString &screenName, const QString &scenarioId,
                                  const PopupModalAction &content, ReactionHandler reactionHandler)
{
    QWidget *host = foregroundWindow();
    if (!host) {
        reportNoForegroundWindow(content, m_onError);
        return;
    }

    if (m_current) {
        noteModalReplaced();
        removeModalWindow();
    }

    auto *modal = new IAMPopupModalViewController(content);
    modal->attach(m_onClicked, m_onDismissed, m_onError, std::move(reactionHandler), screenName,
                  scenarioId);
    QPointer<PopupModalPresenter> self(this);
    QPointer<IAMPopupModalViewController> weakModal(modal);
    modal->onDismiss = [self, weakModal] {
        // A modal that was replaced meanwhile must not take its successor with it.
        if (self && weakModal && self->m_current == weakModal)
            self->removeModalWindow();
    };
    m_current = modal;
    modal->showOver(host);
}

void PopupModalPresenter::removeModalWindow()
{
    IAMPopupModalViewController *modal = m_current;
    m_current = nullptr;
    if (!modal)
        return;
    // Nothing of a removed modal may call back, even from a fade still under way.
    modal->forgetCallbacks();
    modal->hide();
    modal->setParent(nullptr);
    modal->deleteLater();
}

} // namespace velmora
