#include "painting/cardshadow.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>
#include <vector>

namespace velmora {

namespace {

// One horizontal pass of a running-sum box blur over the alpha channel; three
// passes of a box approximate a Gaussian closely enough for a shadow, at a cost
// independent of the radius.
void boxBlurRows(std::vector<float> &alpha, int width, int height, int radius)
{
    std::vector<float> row(static_cast<size_t>(width));
    const float scale = 1.0f / float(2 * radius + 1);
    for (int y = 0; y < height; ++y) {
        float *line = alpha.data() + size_t(y) * size_t(width);
        std::copy(line, line + width, row.begin());
        float sum = 0;
        for (int x = -radius; x <= radius; ++x)
            sum += (x >= 0 && x < width) ? row[size_t(x)] : 0.0f;
        for (int x = 0; x < width; ++x) {
            line[x] = sum * scale;
            const int out = x - radius;
            const int in = x + radius + 1;
            sum += (in < width ? row[size_t(in)] : 0.0f) - (out >= 0 ? row[size_t(out)] : 0.0f);
        }
    }
}

void transpose(std::vector<float> &alpha, int &width, int &height)
{
    std::vector<float> out(alpha.size());
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            out[size_t(x) * size_t(height) + size_t(y)]
                = alpha[size_t(y) * size_t(width) + size_t(x)];
    alpha.swap(out);
    std::swap(width, height);
}

} // namespace

CardShadow::CardShadow(QColor color, QPointF offset, qreal blurRadius, qreal cornerRadius)
    : m_color(color)
    , m_offset(offset)
    , m_blurRadius(blurRadius)
    , m_cornerRadius(cornerRadius)
{ }

// The blur's tail reaches about three sigma, 1.5 radii, beyond the card's edge.
qreal CardShadow::reach() const
{
    return std::ceil(1.5 * m_blurRadius);
}

qreal CardShadow::extent() const
{
    return reach() + std::max(std::abs(m_offset.x()), std::abs(m_offset.y()));
}

int CardShadow::cornerSpan(qreal dpr) const
{
    return int(std::ceil(m_cornerRadius * dpr)) + int(std::ceil(reach() * dpr)) + 1;
}

const QImage &CardShadow::nineSliceTemplate(qreal dpr)
{
    if (m_template.isNull() || m_template.devicePixelRatio() != dpr) {
        const int side = 2 * cornerSpan(dpr) + 1;
        m_template = render(QSizeF(side, side), dpr);
    }
    return m_template;
}

void CardShadow::paint(QPainter &painter, const QRectF &cardRect)
{
    if (cardRect.isEmpty())
        return;
    const qreal dpr = painter.device() ? painter.device()->devicePixelRatioF() : 1.0;
    const QPointF origin = cardRect.topLeft() + m_offset - QPointF(reach(), reach());
    const int span = cornerSpan(dpr);
    const int cardWidth = int(std::ceil(cardRect.width() * dpr));
    const int cardHeight = int(std::ceil(cardRect.height() * dpr));
    if (cardWidth < 2 * span + 1 || cardHeight < 2 * span + 1) {
        if (m_cache.isNull() || m_cacheSize != cardRect.size()
            || m_cache.devicePixelRatio() != dpr) {
            m_cache = render(cardRect.size() * dpr, dpr);
            m_cacheSize = cardRect.size();
        }
        painter.drawImage(origin, m_cache);
        return;
    }

    // Corners as rendered, edges and middle stretched from the template's single
    // middle row and column, all in whole device pixels so the slices meet
    // without seams.
    const QImage &slices = nineSliceTemplate(dpr);
    const int pad = int(std::ceil(reach() * dpr));
    const int edge = pad + span;
    const int sourceX[] = { 0, edge, edge + 1, slices.width() };
    const int sourceY[] = { 0, edge, edge + 1, slices.height() };
    const int targetX[] = { 0, edge, cardWidth + 2 * pad - edge, cardWidth + 2 * pad };
    const int targetY[] = { 0, edge, cardHeight + 2 * pad - edge, cardHeight + 2 * pad };
    const bool smooth = painter.testRenderHint(QPainter::SmoothPixmapTransform);
    painter.setRenderHint(QPainter::SmoothPixmapTransform, false);
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            const QRectF target(origin.x() + targetX[column] / dpr, origin.y() + targetY[row] / dpr,
                                (targetX[column + 1] - targetX[column]) / dpr,
                                (targetY[row + 1] - targetY[row]) / dpr);
            const QRectF source(sourceX[column], sourceY[row],
                                sourceX[column + 1] - sourceX[column],
                                sourceY[row + 1] - sourceY[row]);
            painter.drawImage(target, slices, source);
        }
    }
    painter.setRenderHint(QPainter::SmoothPixmapTransform, smooth);
}

QImage CardShadow::render(const QSizeF &deviceCardSize, qreal dpr) const
{
    // A blur radius r of the design reads as a Gaussian of sigma r / 2; three box
    // passes of width w have the variance of a Gaussian with sigma^2 = (w^2 - 1)
    // / 4.
    const qreal sigma = m_blurRadius / 2.0 * dpr;
    const int box
        = std::max(0, int(std::lround((std::sqrt(4.0 * sigma * sigma + 1.0) - 1.0) / 2.0)));
    const int pad = int(std::ceil(reach() * dpr));
    int width = int(std::ceil(deviceCardSize.width())) + 2 * pad;
    int height = int(std::ceil(deviceCardSize.height())) + 2 * pad;

    QImage mask(width, height, QImage::Format_Alpha8);
    mask.fill(0);
    {
        QPainter p(&mask);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        p.setBrush(Qt::black);
        p.drawRoundedRect(QRectF(QPointF(pad, pad), deviceCardSize), m_cornerRadius * dpr,
                          m_cornerRadius * dpr);
    }
    std::vector<float> alpha(size_t(width) * size_t(height));
    for (int y = 0; y < height; ++y) {
        const uchar *line = mask.constScanLine(y);
        for (int x = 0; x < width; ++x)
            alpha[size_t(y) * size_t(width) + size_t(x)] = line[x] / 255.0f;
    }
    if (box > 0) {
        for (int pass = 0; pass < 3; ++pass)
            boxBlurRows(alpha, width, height, box);
        transpose(alpha, width, height);
        for (int pass = 0; pass < 3; ++pass)
            boxBlurRows(alpha, width, height, box);
        transpose(alpha, width, height);
    }

    QImage shadow(width, height, QImage::Format_ARGB32_Premultiplied);
    const float opacity = float(m_color.alphaF());
    const int r = m_color.red(), g = m_color.green(), b = m_color.blue();
    for (int y = 0; y < height; ++y) {
        auto *line = reinterpret_cast<QRgb *>(shadow.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const float a
                = std::clamp(alpha[size_t(y) * size_t(width) + size_t(x)], 0.0f, 1.0f) * opacity;
            const int alpha8 = int(std::lround(a * 255.0f));
            line[x] = qPremultiply(qRgba(r, g, b, alpha8));
        }
    }
    shadow.setDevicePixelRatio(dpr);
    return shadow;
}

} // namespace velmora
