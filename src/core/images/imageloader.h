#pragma once

#include "images/loadedimage.h"

#include <QMutex>
#include <QObject>
#include <QSslConfiguration>
#include <QString>

#include <chrono>
#include <functional>
#include <optional>

namespace velmora {

namespace detail {
class ImageTransferHost;
}

/// Fetches creative images over HTTPS only and decodes them off the GUI thread. It never
/// reports an error: every failure yields no image, and the reason goes to the images debug
/// log. Responses are cached on disk and served from there first. Transfers run on a thread of
/// the loader's own, so many loads at once cost the caller's thread one event each.
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

    /// Caches in `cacheDirectory`; an empty one means no disk cache. The loader's thread starts
    /// with the first load.
    explicit ImageLoader(const QString &cacheDirectory, QObject *parent = nullptr);
    /// Ends the loader's thread; loads still under way end without a completion.
    ~ImageLoader() override;

    /// The library's loader, created on first use. Its thread ends when the application's event
    /// loop quits (a later load starts it again) and, at the latest, when the application
    /// object is destroyed. It caches in defaultCacheDirectory().
    static ImageLoader *shared();
    /// "velmora-images" in the application's cache location.
    static QString defaultCacheDirectory();

    using Completion = std::function<void(std::optional<LoadedImage>)>;
    /// Loads `urlString`. The completion runs later on `context`'s thread (never inside this
    /// call), and not at all once `context` is gone; a load whose context is destroyed is
    /// abandoned. Without a context the completion runs on the loader's own object thread.
    /// Callable from any thread, as long as `context` outlives the call.
    void load(const QString &urlString, QObject *context, Completion completion);

    /// Thread-safe; applies to the loads started afterwards.
    void setTimeouts(const Timeouts &timeouts);
    Timeouts timeouts() const;
    /// TLS settings (trusted CAs) for every request; the default configuration otherwise.
    /// Thread-safe; applies to the loads started afterwards.
    void setSslConfiguration(const QSslConfiguration &configuration);

private:
    // Stops the thread after the transfers on it; `final` forbids starting it again.
    void stopThread(bool final);
    static void stopSharedThread();

    const QString m_cacheDirectory;
    mutable QMutex m_mutex;
    Timeouts m_timeouts;
    std::optional<QSslConfiguration> m_sslConfiguration;
    QThread *m_thread = nullptr;
    detail::ImageTransferHost *m_host = nullptr;
    bool m_closed = false;
};

} // namespace velmora
