#pragma once

#include "images/loadedimage.h"

#include <QObject>
#include <QSslConfiguration>
#include <QString>

#include <chrono>
#include <functional>
#include <optional>

class QNetworkAccessManager;

namespace velmora {

/// Fetches creative images over HTTPS only and decodes them off the GUI thread. It never
/// reports an error: every failure yields no image, and the reason goes to the images debug
/// log. Responses are cached on disk and served from there first.
///
///     ImageLoader::shared()->load(url, view, [view](std::optional<LoadedImage> image) {
///         if (image)
///             view->setLoadedImage(*image);
///     });
class ImageLoader : public QObject
{
    Q_OBJECT

public:
    /// For both the announced and the received length of a body.
    static constexpr qint64 byteLimit = 20 * 1024 * 1024;
    /// Bodies are taken in steps of this size, so an over-long one is noticed early.
    static constexpr qsizetype receiveChunk = 64 * 1024;
    /// Redirect hops followed for one load before the last 3xx becomes the answer.
    static constexpr int maxRedirects = 16;

    struct Timeouts
    {
        /// Longest silence while waiting for the server.
        std::chrono::milliseconds request { 30000 };
        /// End-to-end limit of a load, redirects included; it bounds a slow trickle.
        std::chrono::milliseconds resource { 60000 };
    };

    /// Caches in `cacheDirectory`; an empty one means no disk cache.
    explicit ImageLoader(const QString &cacheDirectory, QObject *parent = nullptr);
    ~ImageLoader() override;

    /// The library's loader, created on first use and living on the GUI thread; it caches in
    /// defaultCacheDirectory().
    static ImageLoader *shared();
    /// "velmora-images" in the application's cache location.
    static QString defaultCacheDirectory();

    using Completion = std::function<void(std::optional<LoadedImage>)>;
    /// Loads `urlString`. The completion runs later on `context`'s thread (never inside this
    /// call), and not at all once `context` is gone; a load whose context is destroyed is
    /// abandoned. Callable from any thread.
    void load(const QString &urlString, QObject *context, Completion completion);

    /// Use from the loader's thread, before loading.
    void setTimeouts(const Timeouts &timeouts);
    Timeouts timeouts() const { return m_timeouts; }
    /// TLS settings (trusted CAs) for every request; the default configuration otherwise.
    void setSslConfiguration(const QSslConfiguration &configuration);
    QNetworkAccessManager *networkAccessManager() const { return m_manager; }

private:
    friend class ImageTransfer;

    QNetworkAccessManager *m_manager;
    Timeouts m_timeouts;
    std::optional<QSslConfiguration> m_sslConfiguration;
};

} // namespace velmora
