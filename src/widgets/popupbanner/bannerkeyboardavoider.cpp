#include "popupbanner/bannerkeyboardavoider.h"

#include "layout/bannerlayout.h"
#include "layout/keyboardsource.h"
#include "popupbanner/iampopupbannerviewcontroller.h"

namespace velmora {

BannerKeyboardAvoider::BannerKeyboardAvoider(layout::KeyboardSource *keyboard, QObject *parent)
    : QObject(parent)
    , m_keyboard(keyboard)
{
    if (keyboard)
        connect(keyboard, &layout::KeyboardSource::keyboardWillChange, this,
                &BannerKeyboardAvoider::keyboardWillChange);
}

void BannerKeyboardAvoider::track(DisplayPosition position, IAMPopupBannerViewController *banner)
{
    // Only the bottom row follows the keyboard.
    if (layout::rowOf(position) != layout::Row::Bottom)
        return;
    m_entries.insert(position, banner);
    if (m_keyboard && m_keyboard->isKeyboardVisible())
        banner->followKeyboard(m_keyboard->keyboardRectangle().height());
}

void BannerKeyboardAvoider::forget(DisplayPosition position)
{
    m_entries.remove(position);
}

void BannerKeyboardAvoider::forgetAll()
{
    m_entries.clear();
}

bool BannerKeyboardAvoider::isTracking(DisplayPosition position) const
{
    return m_entries.contains(position);
}

void BannerKeyboardAvoider::keyboardWillChange(bool visible, const QRectF &endRectangle,
                                               int durationMs, const QEasingCurve &easing)
{
    const std::optional<qreal> height
        = visible ? std::optional<qreal>(endRectangle.height()) : std::nullopt;
    for (const QPointer<IAMPopupBannerViewController> &banner : std::as_const(m_entries)) {
        if (banner)
            banner->followKeyboard(height, durationMs, easing);
    }
}

} // namespace velmora
