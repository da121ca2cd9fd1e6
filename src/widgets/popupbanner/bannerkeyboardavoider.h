#pragma once

#include <VelmoraInAppMessaging/displayposition.h>

#include <QEasingCurve>
#include <QHash>
#include <QObject>
#include <QPointer>
#include <QRectF>

#include <optional>

namespace velmora {

class IAMPopupBannerViewController;

namespace layout {
class KeyboardSource;
}

/// Keeps bottom-row banners above the on-screen keyboard, moving them with the keyboard's own
/// animation; banners of the other rows never move. Holds its banners weakly.
class BannerKeyboardAvoider : public QObject
{
    Q_OBJECT

public:
    explicit BannerKeyboardAvoider(layout::KeyboardSource *keyboard, QObject *parent = nullptr);

    /// Starts following the keyboard for `banner`; a keyboard already up applies at once.
    void track(DisplayPosition position, IAMPopupBannerViewController *banner);
    void forget(DisplayPosition position);
    void forgetAll();
    bool isTracking(DisplayPosition position) const;

private:
    void keyboardWillChange(bool visible, const QRectF &endRectangle, int durationMs,
                            const QEasingCurve &easing);

    QPointer<layout::KeyboardSource> m_keyboard;
    QHash<DisplayPosition, QPointer<IAMPopupBannerViewController>> m_entries;
};

} // namespace velmora
