#include "images/loadedimage.h"

namespace velmora {

QSize LoadedImage::size() const
{
    if (const auto *animation = animatedSource())
        return animation->size();
    return std::get<StillImageSource>(m_source).size();
}

QImage LoadedImage::firstFrame() const
{
    if (const auto *animation = animatedSource())
        return animation->frameImage(0);
    return std::get<StillImageSource>(m_source).image();
}

} // namespace velmora
