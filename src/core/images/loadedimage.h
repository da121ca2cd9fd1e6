#pragma once

#include "images/animatedimagesource.h"

#include <variant>

namespace velmora {

/// What the image loader hands to the views: one still bitmap or a whole animation.
class LoadedImage
{
public:
    static LoadedImage still(StillImageSource source) { return LoadedImage(std::move(source)); }
    static LoadedImage animated(AnimatedImageSource source)
    {
        return LoadedImage(std::move(source));
    }

    bool isAnimated() const { return std::holds_alternative<AnimatedImageSource>(m_source); }
    /// Null unless the image is a still.
    const StillImageSource *stillSource() const { return std::get_if<StillImageSource>(&m_source); }
    /// Null unless the image is an animation.
    const AnimatedImageSource *animatedSource() const
    {
        return std::get_if<AnimatedImageSource>(&m_source);
    }

    /// Pixel size: the still's, or the animation's first frame's.
    QSize size() const;
    /// The still, or the animation's first frame, ready to paint.
    QImage firstFrame() const;

private:
    explicit LoadedImage(std::variant<StillImageSource, AnimatedImageSource> source)
        : m_source(std::move(source))
    { }

    std::variant<StillImageSource, AnimatedImageSource> m_source;
};

} // namespace velmora
