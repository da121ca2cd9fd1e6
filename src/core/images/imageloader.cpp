#include "images/imageloader.h"

#include "common/logging.h"
#include "common/threading.h"
#include "images/animatedimagedecoder.h"
#include "images/blockmemory.h"
#include "network/httpsredirectguarddelegate.h"

#include <QCoreApplication>
#include <QFutureWatcher>
#include <QMutexLocker>
#include <QNetworkAccessManager>
#include <QNetworkDiskCache>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cstring>

using namespace Qt::StringLiterals;

namespace velmora {

namespace {

bool isFollowableRedirect(int status)
{
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

} // namespace

namespace detail {

// What lives on the loader's thread besides the transfers: the network manager and its disk
// cache, made there on first use. Deleting it ends every transfer under way.
class ImageTransferHost : public QObject
{
public:
    explicit ImageTransferHost(QString cacheDirectory)
        : m_cacheDirectory(std::move(cacheDirectory))
    { }
    ~ImageTransferHost() override;

    QNetworkAccessManager *manager()
    {
        if (!m_manager) {
            m_manager = new QNetworkAccessManager(this);
            m_manager->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
            if (!m_cacheDirectory.isEmpty()) {
                auto *cache = new QNetworkDiskCache(m_manager);
                cache->setCacheDirectory(m_cacheDirectory);
                m_manager->setCache(cache);
            }
        }
        return m_manager;
    }

private:
    const QString m_cacheDirectory;
    QNetworkAccessManager *m_manager = nullptr;
};

// One load, from the first request to the hand-off to the decoder. Made on the caller's thread,
// where it is connected to the caller's context, then moved to the loader's thread, where it
// runs and deletes itself when done. Completions travel as a queued signal, which Qt drops
// when the context is destroyed, wherever that happens. QNetworkReply::abort() (deadline,
// abandoned view) emits finished() before it returns, so every handler checks m_done first.
class ImageTransfer : public QObject
{
    Q_OBJECT

public:
    ImageTransfer(QString urlString, ImageLoader::Timeouts timeouts,
                  std::optional<QSslConfiguration> sslConfiguration)
        : m_urlString(std::move(urlString))
        , m_timeouts(timeouts)
        , m_sslConfiguration(std::move(sslConfiguration))
        , m_deadline(new QTimer(this))
    {
        m_deadline->setSingleShot(true);
        connect(m_deadline, &QTimer::timeout, this, [this] {
            if (m_done || !m_reply)
                return;
            m_timedOut = true;
            m_reply->abort();
        });
    }

    // On the loader's thread.
    void start(ImageTransferHost *host, const QUrl &url)
    {
        setParent(host);
        m_manager = host->manager();
        m_deadline->start(m_timeouts.resource);
        send(url);
    }

    // A view that goes away takes its download with it.
    void abandon()
    {
        m_abandoned = true;
        if (!m_done && m_reply)
            m_reply->abort();
    }

Q_SIGNALS:
    void finished(std::optional<LoadedImage> image);

private:
    void send(const QUrl &url)
    {
        m_url = url;
        m_validated = false;
        QNetworkRequest request(url);
        request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                             QNetworkRequest::PreferCache);
        // Hops are followed here, where the location is still the text the server sent: the
        // guard's exact "https" test must not see QUrl's lower-cased scheme.
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                             QNetworkRequest::ManualRedirectPolicy);
        request.setTransferTimeout(int(m_timeouts.request.count()));
        // The bounded hand-over below was measured over HTTP/1.1; images gain little from
        // HTTP/2 multiplexing.
        request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
        if (m_sslConfiguration)
            request.setSslConfiguration(*m_sslConfiguration);

        QNetworkReply *reply = m_manager->get(request);
        reply->setParent(this);
        // Qt's network thread otherwise buffers as much of the body as the server sends before
        // this thread gets round to it; a few chunks ahead keep an over-long body from piling
        // up past the limit while the early abort is on its way.
        reply->setReadBufferSize(4 * ImageLoader::receiveChunk);
        m_reply = reply;
        connect(reply, &QNetworkReply::metaDataChanged, this, &detail::ImageTransfer::onMetaData);
        connect(reply, &QNetworkReply::readyRead, this, &detail::ImageTransfer::onReadyRead);
        connect(reply, &QNetworkReply::finished, this, &detail::ImageTransfer::onFinished);
    }

    void onMetaData()
    {
        if (m_done || m_validated || !m_reply)
            return;
        const QVariant statusAttribute
            = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        const int status = statusAttribute.isValid() ? statusAttribute.toInt() : -1;
        if (isFollowableRedirect(status) && followRedirect())
            return;
        m_validated = true;

        // Exactly 200: a 204 has no image, and a 206 only part of one.
        if (status != 200) {
            qCDebug(lcVelmoraImages).noquote() << u"ImageLoader HTTP error for "_s + m_urlString
                    + u": status "_s + QString::number(status);
            fail();
            return;
        }
        const QVariant length = m_reply->header(QNetworkRequest::ContentLengthHeader);
        const qint64 expected = length.isValid() ? length.toLongLong() : -1;
        if (expected > ImageLoader::byteLimit) {
            qCDebug(lcVelmoraImages).noquote()
                << u"ImageLoader: rejected oversized response (expectedContentLength="_s
                    + QString::number(expected) + u") for "_s + m_urlString;
            fail();
            return;
        }
        if (expected >= 1 && !reserveBody(expected))
            return;
    }

    // Room for `bytes` of body, keeping what arrived so far; fails the load when memory ran out.
    bool reserveBody(qsizetype bytes)
    {
        auto body = detail::MemoryBlock::reserve(size_t(bytes));
        if (!body) {
            qCDebug(lcVelmoraImages).noquote() << u"ImageLoader: no memory for "_s
                    + QString::number(bytes) + u" bytes of response from "_s + m_urlString;
            fail();
            return false;
        }
        if (m_bodySize > 0)
            std::memcpy(body->data(), m_body->data(), size_t(m_bodySize));
        m_body = std::move(body);
        return true;
    }

    bool followRedirect()
    {
        const QString target = QString::fromUtf8(m_reply->rawHeader("Location"));
        if (m_redirects >= ImageLoader::maxRedirects
            || !HTTPSRedirectGuardDelegate::shouldAllowRedirect(target, m_url))
            return false;
        const QUrl next = m_url.resolved(QUrl(target.trimmed()));
        if (!next.isValid() || next.scheme() != u"https")
            return false;
        ++m_redirects;
        dropReply();
        send(next);
        return true;
    }

    void onReadyRead()
    {
        if (m_done || !m_reply)
            return;
        if (!m_validated) {
            onMetaData();
            if (m_done || !m_validated)
                return;
        }
        while (m_reply->bytesAvailable() > 0) {
            const qsizetype step
                = qsizetype(std::min<qint64>(m_reply->bytesAvailable(), ImageLoader::receiveChunk));
            const qsizetype old = m_bodySize;
            const qsizetype capacity = m_body ? qsizetype(m_body->size()) : 0;
            // Doubling keeps a body of unknown length from being copied over and over.
            if (old + step > capacity
                && !reserveBody(
                    std::min<qsizetype>(std::max(capacity * 2, old + step),
                                        ImageLoader::byteLimit + ImageLoader::receiveChunk)))
                return;
            const qint64 got = m_reply->read(m_body->data() + old, step);
            m_bodySize = old + qsizetype(std::max<qint64>(got, 0));
            if (m_bodySize > ImageLoader::byteLimit) {
                qCDebug(lcVelmoraImages).noquote() << u"ImageLoader: response exceeds "_s
                        + QString::number(ImageLoader::byteLimit) + u" bytes, aborting"_s;
                fail();
                return;
            }
            if (got <= 0)
                break;
        }
    }

    void onFinished()
    {
        if (m_done || !m_reply)
            return;
        QNetworkReply *reply = m_reply;
        const bool interrupted = m_timedOut || m_abandoned;
        if (!m_validated && !interrupted
            && reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid()) {
            onMetaData();
            if (m_done || reply != m_reply)
                return;
        }
        if (m_validated && reply->error() == QNetworkReply::NoError) {
            onReadyRead();
            if (m_done)
                return;
        }
        if (reply->error() != QNetworkReply::NoError || !m_validated) {
            // Qt's own idle limit also ends as a cancellation; only the view's going away is one.
            const bool timedOut = m_timedOut
                || (reply->error() == QNetworkReply::OperationCanceledError && !m_abandoned);
            const QString description
                = timedOut ? u"The request timed out."_s : reply->errorString();
            qCDebug(lcVelmoraImages).noquote()
                << u"ImageLoader error for "_s + m_urlString + u": "_s + description;
            finish();
            return;
        }

        m_done = true;
        m_deadline->stop();
        dropReply();
        // A watcher owned here rather than QFuture::then(context): in Qt 6.4 a continuation
        // checks its context from the decoding thread, racing with the context's destruction.
        auto *watcher = new QFutureWatcher<std::optional<LoadedImage>>(this);
        connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
            if (!m_abandoned)
                Q_EMIT finished(watcher->result());
            deleteLater();
        });
        const QByteArray body
            = m_body ? QByteArray::fromRawData(m_body->data(), m_bodySize) : QByteArray();
        watcher->setFuture(AnimatedImageDecoder::decodeAsync(body, std::exchange(m_body, {})));
    }

    void fail()
    {
        m_done = true;
        dropReply();
        finish();
    }

    // Deleting a reply cancels its transfer. Unlike abort() it is safe inside the reply's own
    // signals, where Qt may still be about to report the status as an error of its own.
    void dropReply()
    {
        if (!m_reply)
            return;
        disconnect(m_reply, nullptr, this, nullptr);
        m_reply->deleteLater();
        m_reply = nullptr;
    }

    void finish()
    {
        m_done = true;
        m_deadline->stop();
        if (!m_abandoned)
            Q_EMIT finished(std::nullopt);
        deleteLater();
    }

    const QString m_urlString;
    const ImageLoader::Timeouts m_timeouts;
    const std::optional<QSslConfiguration> m_sslConfiguration;
    QNetworkAccessManager *m_manager = nullptr;
    QUrl m_url;
    QPointer<QNetworkReply> m_reply;
    QTimer *m_deadline;
    std::shared_ptr<detail::MemoryBlock> m_body;
    qsizetype m_bodySize = 0;
    int m_redirects = 0;
    bool m_validated = false;
    bool m_done = false;
    bool m_timedOut = false;
    bool m_abandoned = false;
};

ImageTransferHost::~ImageTransferHost()
{
    // The replies belong to the transfers, and must go before the manager and its cache.
    qDeleteAll(findChildren<ImageTransfer *>(Qt::FindDirectChildrenOnly));
}

} // namespace detail

ImageLoader::ImageLoader(const QString &cacheDirectory, QObject *parent)
    : QObject(parent)
    , m_cacheDirectory(cacheDirectory)
{ }

ImageLoader::~ImageLoader()
{
    stopThread(true);
}

ImageLoader *ImageLoader::shared()
{
    // Never destroyed: views may ask for it until the very end of the process.
    static ImageLoader *const instance = [] {
        auto *loader = new ImageLoader(defaultCacheDirectory());
        if (QCoreApplication *app = QCoreApplication::instance()) {
            loader->moveToThread(app->thread());
            // Nothing is left to show images once the event loop has quit; a test or a host
            // that never runs one still destroys its application object.
            connect(app, &QCoreApplication::aboutToQuit, loader,
                    [loader] { loader->stopThread(false); });
            qAddPostRoutine(stopSharedThread);
        }
        return loader;
    }();
    return instance;
}

void ImageLoader::stopSharedThread()
{
    shared()->stopThread(true);
}

QString ImageLoader::defaultCacheDirectory()
{
    const QString base = QStandardPaths::writableLocation(QStandardPaths::CacheLocation);
    return base.isEmpty() ? QString() : base + u"/velmora-images"_s;
}

void ImageLoader::setTimeouts(const Timeouts &timeouts)
{
    const QMutexLocker lock(&m_mutex);
    m_timeouts = timeouts;
}

ImageLoader::Timeouts ImageLoader::timeouts() const
{
    const QMutexLocker lock(&m_mutex);
    return m_timeouts;
}

void ImageLoader::setSslConfiguration(const QSslConfiguration &configuration)
{
    const QMutexLocker lock(&m_mutex);
    m_sslConfiguration = configuration;
}

void ImageLoader::load(const QString &urlString, QObject *context, Completion completion)
{
    QObject *target = context ? context : this;
    QMutexLocker lock(&m_mutex);
    auto *transfer = new detail::ImageTransfer(urlString, m_timeouts, m_sslConfiguration);
    connect(
        transfer, &detail::ImageTransfer::finished, target,
        [completion = std::move(completion)](std::optional<LoadedImage> image) {
            completion(std::move(image));
        },
        Qt::QueuedConnection);

    const QUrl url(urlString, QUrl::StrictMode);
    if (HTTPSRedirectGuardDelegate::rawScheme(urlString) != u"https" || !url.isValid()
        || url.host().isEmpty() || m_closed) {
        if (!m_closed) {
            qCDebug(lcVelmoraImages).noquote()
                << u"ImageLoader: rejected non-HTTPS or invalid URL: "_s + urlString;
        }
        Q_EMIT transfer->finished(std::nullopt);
        delete transfer;
        return;
    }

    if (!m_thread) {
        m_thread = new QThread;
        m_thread->setObjectName(u"velmora-image-loader"_s);
        m_host = new detail::ImageTransferHost(m_cacheDirectory);
        m_host->moveToThread(m_thread);
        m_thread->start();
    }
    connect(target, &QObject::destroyed, transfer, &detail::ImageTransfer::abandon);
    transfer->moveToThread(m_thread);
    // Posted while the lock is held, so that it reaches the thread before a stopThread()
    // that follows; a transfer therefore never outlives its host unstarted.
    detail::postTo(m_host, [host = m_host, transfer, url] { transfer->start(host, url); });
}

void ImageLoader::stopThread(bool final)
{
    QMutexLocker lock(&m_mutex);
    m_closed = m_closed || final;
    QThread *thread = std::exchange(m_thread, nullptr);
    detail::ImageTransferHost *host = std::exchange(m_host, nullptr);
    lock.unlock();
    if (!thread)
        return;
    // After the transfers posted before it have started: deleting the host ends them all.
    QMetaObject::invokeMethod(
        host, [host] { delete host; }, Qt::BlockingQueuedConnection);
    thread->quit();
    thread->wait();
    delete thread;
}

} // namespace velmora

#include "imageloader.moc"
