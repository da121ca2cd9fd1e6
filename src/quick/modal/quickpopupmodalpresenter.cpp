#include "modal/quickpopupmodalpresenter.h"

#include "common/logging.h"
#include "layout/screensnapshot.h"
#include "modal/quickpopupmodalview.h"

#include <VelmoraInAppMessaging/inappmessage.h>

#include <QGuiApplication>
#include <QQmlEngine>

using namespace Qt::StringLiterals;

namespace velmora::quick {

QuickPopupModalPresenter::QuickPopupModalPresenter(QObject *parent)
    : QObject(parent)
{ }

QuickPopupModalPresenter::~QuickPopupModalPresenter()
{
    removeModalWindow();
}

QWindow *QuickPopupModalPresenter::foregroundWindow()
{
    QWindow *window = layout::foregroundWindow();
    // A replacement goes over the same host as the modal it replaces.
    if (auto *modal = qobject_cast<QuickPopupModalView *>(window))
        return modal->hostWindow();
    return window;
}

QQmlEngine *QuickPopupModalPresenter::engine()
{
    if (!m_engine)
        m_engine = std::make_shared<QQmlEngine>();
    return m_engine.get();
}

void QuickPopupModalPresenter::present(const QString &screenName, const QString &scenarioId,
                                       const PopupModalAction &content,
                                       ReactionHandler reactionHandler)
{
    QWindow *host = foregroundWindow();
    if (!host) {
        reportNoForegroundWindow(content, m_onError);
        return;
    }

    if (m_current) {
        noteModalReplaced();
        removeModalWindow();
    }

    auto *modal = new QuickPopupModalView(content, engine());
    // The connection's copy of the engine goes only when the window's last base is gone.
    connect(modal, &QObject::destroyed, modal, [engine = m_engine] { Q_UNUSED(engine); });
    modal->attach(m_onClicked, m_onDismissed, m_onError, std::move(reactionHandler), screenName,
                  scenarioId);
    QPointer<QuickPopupModalPresenter> self(this);
    QPointer<QuickPopupModalView> weakModal(modal);
    const auto removeIfCurrent = [self, weakModal] {
        // A modal that was replaced meanwhile must not take its successor with it.
        if (self && weakModal && self->m_current == weakModal)
            self->removeModalWindow();
    };
    modal->onDismiss = removeIfCurrent;
    // A modal goes with the window it covers, silently, as a child window would.
    connect(host, &QObject::destroyed, modal, removeIfCurrent);
    m_current = modal;
    modal->showOver(host);
}

void QuickPopupModalPresenter::removeModalWindow()
{
    QuickPopupModalView *modal = m_current;
    m_current = nullptr;
    if (!modal)
        return;
    // Nothing of a removed modal may call back, even from a fade still under way.
    modal->forgetCallbacks();
    const bool hadFocus = QGuiApplication::focusWindow() == modal;
    QWindow *host = modal->hostWindow();
    modal->hide();
    modal->deleteLater();
    // The keyboard goes back where it was before the modal took it.
    if (hadFocus && host && host->isVisible())
        host->requestActivate();
}

} // namespace velmora::quick
