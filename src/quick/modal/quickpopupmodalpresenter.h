#pragma once

#include "modal/quickpopupmodalview.h"
#include "presentation/popupmodalpresentertype.h"

#include <QObject>
#include <QPointer>

#include <memory>

QT_BEGIN_NAMESPACE
class QQmlEngine;
QT_END_NAMESPACE

namespace velmora::quick {

/// Shows popup modals for a QML host (a QGuiApplication, no widgets) in windows of their own
/// over the host's foreground window, one at a time: a new modal replaces the one on show at
/// once and silently (no close reaction, no dismissed callback). A closed modal's window is
/// destroyed, and the host's window gets the keyboard back.
class QuickPopupModalPresenter final : public QObject, public PopupModalPresenterType
{
    Q_OBJECT

public:
    explicit QuickPopupModalPresenter(QObject *parent = nullptr);
    ~QuickPopupModalPresenter() override;

    void present(const QString &screenName, const QString &scenarioId,
                 const PopupModalAction &content, ReactionHandler reactionHandler) override;

    void setOnClicked(MessageHandler handler) override { m_onClicked = std::move(handler); }
    void setOnDismissed(MessageHandler handler) override { m_onDismissed = std::move(handler); }
    void setOnError(MessageErrorHandler handler) override { m_onError = std::move(handler); }

    /// The modal on show, if any.
    QuickPopupModalView *currentModal() const { return m_current; }
    /// Removes the modal on show at once, silently.
    void removeModalWindow();
    void dismissAll() override { removeModalWindow(); }

    /// The top-level window a modal would cover now: the top-level of the window with focus,
    /// else the first visible one; never a modal of ours.
    static QWindow *foregroundWindow();

private:
    QQmlEngine *engine();

    // Shared by the modals' windows, so the card's QML is compiled once; each window keeps it
    // alive until the window itself is gone.
    std::shared_ptr<QQmlEngine> m_engine;
    QPointer<QuickPopupModalView> m_current;
    MessageHandler m_onClicked;
    MessageHandler m_onDismissed;
    MessageErrorHandler m_onError;
};

} // namespace velmora::quick
