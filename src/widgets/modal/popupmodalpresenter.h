#pragma once

#include "modal/iampopupmodalviewcontroller.h"
#include "presentation/popupmodalpresentertype.h"

#include <QObject>
#include <QPointer>

class QWidget;

namespace velmora {

/// Shows popup modals in windows of their own over the host's foreground window, one at a
/// time: a new modal replaces the one on show at once and silently (no close reaction, no
/// dismissed callback). A closed modal's window is destroyed.
class PopupModalPresenter final : public QObject, public PopupModalPresenterType
{
    Q_OBJECT

public:
    explicit PopupModalPresenter(QObject *parent = nullptr);
    ~PopupModalPresenter() override;

    void present(const QString &screenName, const QString &scenarioId,
                 const PopupModalAction &content, ReactionHandler reactionHandler) override;

    void setOnClicked(MessageHandler handler) override { m_onClicked = std::move(handler); }
    void setOnDismissed(MessageHandler handler) override { m_onDismissed = std::move(handler); }
    void setOnError(MessageErrorHandler handler) override { m_onError = std::move(handler); }

    /// The modal on show, if any.
    IAMPopupModalViewController *currentModal() const { return m_current; }
    /// Removes the modal on show at once, silently.
    void removeModalWindow();
    void dismissAll() override { removeModalWindow(); }

    /// The top-level widget a modal would cover now: the active window, else the top-level of
    /// the window with focus, else the first visible one; never a modal of ours.
    static QWidget *foregroundWindow();

private:
    QPointer<IAMPopupModalViewController> m_current;
    MessageHandler m_onClicked;
    MessageHandler m_onDismissed;
    MessageErrorHandler m_onError;
};

} // namespace velmora
