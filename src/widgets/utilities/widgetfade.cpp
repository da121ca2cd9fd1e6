#include "utilities/widgetfade.h"

#include <QEasingCurve>
#include <QGraphicsOpacityEffect>
#include <QPointer>
#include <QPropertyAnimation>
#include <QWidget>

namespace velmora {

namespace detail {

// The effect a fade installs; only this one is removed again once the widget is opaque.
class FadeEffect : public QGraphicsOpacityEffect
{
    Q_OBJECT

public:
    using QGraphicsOpacityEffect::QGraphicsOpacityEffect;
};

// One running fade, a child of the effect it animates.
class FadeAnimation : public QPropertyAnimation
{
    Q_OBJECT

public:
    FadeAnimation(QGraphicsOpacityEffect *effect, QWidget *widget, bool hidesAtEnd,
                  WidgetFade::Completion completion)
        : QPropertyAnimation(effect, "opacity", effect)
        , widget(widget)
        , hidesAtEnd(hidesAtEnd)
        , completion(std::move(completion))
    { }

    QPointer<QWidget> widget;
    bool hidesAtEnd;
    WidgetFade::Completion completion;
};

} // namespace detail

namespace {

using detail::FadeAnimation;
using detail::FadeEffect;

FadeAnimation *runningFade(const QWidget *widget)
{
    QGraphicsEffect *effect = widget ? widget->graphicsEffect() : nullptr;
    return effect ? effect->findChild<FadeAnimation *>(QString(), Qt::FindDirectChildrenOnly)
                  : nullptr;
}

void runLater(QWidget *widget, WidgetFade::Completion completion)
{
    if (widget && completion)
        QMetaObject::invokeMethod(widget, std::move(completion), Qt::QueuedConnection);
}

// The ease-in-ease-out timing curve of the platform the views were designed on.
QEasingCurve easeInEaseOut()
{
    QEasingCurve curve(QEasingCurve::BezierSpline);
    curve.addCubicBezierSegment(QPointF(0.42, 0.0), QPointF(0.58, 1.0), QPointF(1.0, 1.0));
    return curve;
}

enum class Ending { Finished, Interrupted, Replaced };

void endFade(FadeAnimation *fade, Ending ending)
{
    // Detach first, so that the fade is no longer found while its widget changes below.
    fade->stop();
    auto *effect = static_cast<QGraphicsOpacityEffect *>(fade->targetObject());
    fade->setParent(nullptr);
    fade->deleteLater();

    const qreal finalOpacity = fade->endValue().toReal();
    QWidget *widget = fade->widget;
    WidgetFade::Completion completion = std::move(fade->completion);
    if (!widget)
        return;
    effect->setOpacity(finalOpacity);
    if (ending == Ending::Finished && fade->hidesAtEnd)
        widget->setVisible(false);
    if (ending != Ending::Replaced && finalOpacity >= 1.0 && qobject_cast<FadeEffect *>(effect))
        widget->setGraphicsEffect(nullptr);
    runLater(widget, std::move(completion));
}

void fade(QWidget *widget, qreal from, qreal to, bool hidesAtEnd, WidgetFade::Completion completion)
{
    if (!widget)
        return;
    if (FadeAnimation *running = runningFade(widget))
        endFade(running, Ending::Replaced);

    auto *effect = qobject_cast<QGraphicsOpacityEffect *>(widget->graphicsEffect());
    if (!effect && widget->graphicsEffect()) {
        // Replacing the widget's own effect would silently drop its look; end at once.
        widget->setVisible(!hidesAtEnd);
        runLater(widget, std::move(completion));
        return;
    }
    if (!effect) {
        effect = new FadeEffect(widget);
        widget->setGraphicsEffect(effect);
    }
    effect->setOpacity(from);
    widget->setVisible(true);

    auto *animation = new FadeAnimation(effect, widget, hidesAtEnd, std::move(completion));
    animation->setDuration(int(WidgetFade::duration.count()));
    animation->setStartValue(from);
    animation->setEndValue(to);
    animation->setEasingCurve(easeInEaseOut());
    QObject::connect(animation, &QAbstractAnimation::finished, animation,
                     [animation] { endFade(animation, Ending::Finished); });
    animation->start();
}

} // namespace

void WidgetFade::show(QWidget *widget, Completion completion)
{
    // Not from 0: a fully transparent effect skips painting, so the widget's first paint would
    // wait for the animation's first tick, a display frame later.
    fade(widget, faintestOpacity, 1.0, false, std::move(completion));
}

void WidgetFade::hide(QWidget *widget, Completion completion)
{
    fade(widget, 1.0, 0.0, true, std::move(completion));
}

void WidgetFade::stop(QWidget *widget)
{
    if (FadeAnimation *running = runningFade(widget))
        endFade(running, Ending::Interrupted);
}

bool WidgetFade::isFading(const QWidget *widget)
{
    return runningFade(widget) != nullptr;
}

qreal WidgetFade::opacity(const QWidget *widget)
{
    const auto *effect
        = widget ? qobject_cast<QGraphicsOpacityEffect *>(widget->graphicsEffect()) : nullptr;
    return effect ? effect->opacity() : 1.0;
}

} // namespace velmora

#include "widgetfade.moc"
