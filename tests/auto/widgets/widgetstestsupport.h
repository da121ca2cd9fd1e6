// What the Widgets suites share: hand-driven animations, real image bytes from a loopback HTTPS
// server, and pixels of what a widget paints.
#pragma once

#include "httpserver/httpserver.h"
#include "images/imageloader.h"

#include <QAnimationDriver>
#include <QBuffer>
#include <QColor>
#include <QCoreApplication>
#include <QImage>
#include <QWidget>

namespace velmora::test {

// Drives every Qt animation by hand, so that fades take no real time.
class ManualAnimationDriver : public QAnimationDriver
{
public:
    ManualAnimationDriver()
    {
        connect(this, &QAnimationDriver::started, this, [this] { m_elapsed = 0; });
    }
    qint64 elapsed() const override { return m_elapsed; }
    void advanceBy(qint64 msecs)
    {
        // Animations begin to run from the event loop.
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        m_elapsed += msecs;
        advance();
        QCoreApplication::processEvents();
    }

private:
    qint64 m_elapsed = 0;
};

inline QByteArray png(QSize size, QColor color)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(color);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

// An HTTPS image server whose authority the shared image loader trusts, serving a wide red
// picture at /wide.png and a tall blue one at /tall.png.
inline bool listenForImages(loopback::HttpServer &server)
{
    using loopback::Response;
    if (!loopback::Certificate::shared() || !server.listen(loopback::HttpServer::Mode::Https))
        return false;
    server.setResponse(QStringLiteral("/wide.png"),
                       Response::withStatus(200, png({ 200, 100 }, Qt::red)));
    server.setResponse(QStringLiteral("/tall.png"),
                       Response::withStatus(200, png({ 100, 400 }, Qt::blue)));
    ImageLoader::shared()->setSslConfiguration(
        loopback::Certificate::shared()->clientConfiguration());
    return true;
}

// What the widget paints into an image of the given density, on transparency.
inline QImage renderAt(QWidget *widget, qreal ratio)
{
    QImage image(widget->size() * ratio, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(ratio);
    image.fill(Qt::transparent);
    widget->render(&image, QPoint(), QRegion(), QWidget::DrawChildren);
    return image;
}

inline bool sameColor(QColor actual, QColor expected, int tolerance = 2)
{
    return std::abs(actual.red() - expected.red()) <= tolerance
        && std::abs(actual.green() - expected.green()) <= tolerance
        && std::abs(actual.blue() - expected.blue()) <= tolerance
        && std::abs(actual.alpha() - expected.alpha()) <= tolerance;
}

} // namespace velmora::test

#define COMPARE_COLOR(actual, expected)                                                            \
    QVERIFY2(                                                                                      \
        velmora::test::sameColor(actual, expected),                                                \
        qPrintable(QStringLiteral("%1 != %2")                                                      \
                       .arg((actual).name(QColor::HexArgb), (expected).name(QColor::HexArgb))))
