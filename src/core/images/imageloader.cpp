#include "images/imageloader.h"

#include "common/logging.h"
#include "common/threading.h"
#include "images/animatedimagedecoder.h"
#include "network/httpsredirectguarddelegate.h"

#include <QCoreApplication>
#include <QFutureWatcher>
#include <QNetworkAccessManager>
#include <QNetworkDiskCache>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace velmora {

namespace {

void deliverLater(QObject *context, ImageLoader::Completion completion,
                  std::optional<LoadedImage> result = std::nullopt)
{
    detail::deliverLater(context, std::move(completion), std::move(result));
}

bool isFollowableRedirect(int status)
{
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

} // namespace

// One load, from the first request to the hand-off to the decoder. It lives on the loader's
// thread and deletes itself when done. QNetworkReply::abort() (deadline, abandoned view) emits
// finished() before it returns, so every handler checks m_done first.
class ImageTransfer : public QObject
{
public:
    ImageTransfer(ImageLoader *loader, QString urlString, QObject *context,
                  ImageLoader::Completion completion)
        : QObject(loader)
        , m_loader(loader)
        , m_urlString(std::move(urlString))
        , m_context(context)
        , m_completion(std::move(completion))
        , m_deadline(new QTimer(this))
    {
        m_deadline->setSingleShot(true);
        connect(m_deadline, &QTimer::timeout, this, [this] {
            if (m_done || !m_reply)
                return;
            m_timedOut = true;
            m_reply->abort();
        });
        // A view that goes away takes its download with it.
        connect(context, &QObject::destroyed, this, [this] {
            if (m_done || !m_reply)
                return;
            m_abandoned = true;
            m_reply->abort();
        });
    }

    void start(const QUrl &url)
    {
        m_deadline->start(m_loader->m_timeouts.resource);
        send(url);
    }

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
        request.setTransferTimeout(int(m_loader->m_timeouts.request.count()));
        // The chunked hand-over below (setReadBufferSize) is what keeps GUI-thread steps short,
        // and it was measured over HTTP/1.1; images gain little from HTTP/2 multiplexing.
        request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
        if (m_loader->m_sslConfiguration)
            request.setSslConfiguration(*m_loader->m_sslConfiguration);

        QNetworkReply *reply = m_loader->m_manager->get(request);
        reply->setParent(this);
        // Qt otherwise hands over whatever its network thread has buffered in one go: for a
        // fast server, megabytes read and written to the disk cache in a single GUI-thread
        // event. A few chunks per event keep that under a millisecond; one chunk per event
        // would tie the download rate to how often the GUI thread gets round to it.
        reply->setReadBufferSize(4 * ImageLoader::receiveChunk);
        m_reply = reply;
        connect(reply, &QNetworkReply::metaDataChanged, this, &ImageTransfer::onMetaData);
        connect(reply, &QNetworkReply::readyRead, this, &ImageTransfer::onReadyRead);
        connect(reply, &QNetworkReply::finished, this, &ImageTransfer::onFinished);
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
        if (expected >= 1)
            m_data.reserve(expected);
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
            const qsizetype old = m_data.size();
            if (old + step > m_data.capacity()) {
                // Doubling keeps a body of unknown length from being copied over and over.
                m_data.reserve(
                    std::min<qsizetype>(std::max(m_data.capacity() * 2, old + step),
                                        ImageLoader::byteLimit + ImageLoader::receiveChunk));
            }
            m_data.resize(old + step);
            const qint64 got = m_reply->read(m_data.data() + old, step);
            m_data.resize(old + qsizetype(std::max<qint64>(got, 0)));
            if (m_data.size() > ImageLoader::byteLimit) {
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
        if (!m_context) {
            deleteLater();
            return;
        }
        // A watcher owned here rather than QFuture::then(context): in Qt 6.4 a continuation
        // checks its context from the decoding thread, racing with the context's destruction.
        auto *watcher = new QFutureWatcher<std::optional<LoadedImage>>(this);
        connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
            if (m_context)
                deliverLater(m_context, m_completion, watcher->result());
            deleteLater();
        });
        watcher->setFuture(AnimatedImageDecoder::decodeAsync(std::exchange(m_data, {})));
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
        if (m_context)
            deliverLater(m_context, m_completion);
        deleteLater();
    }

    ImageLoader *m_loader;
    QString m_urlString;
    QUrl m_url;
    QPointer<QObject> m_context;
    ImageLoader::Completion m_completion;
    QPointer<QNetworkReply> m_reply;
    QTimer *m_deadline;
    QByteArray m_data;
    int m_redirects = 0;
    bool m_validated = false;
    bool m_done = false;
    bool m_timedOut = false;
    bool m_abandoned = false;
};

ImageLoader::ImageLoader(const QString &cacheDirectory, QObject *parent)
    : QObject(parent)
    , m_manager(new QNetworkAccessManager(this))
{
    m_manager->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
    m_manager->setTransferTimeout(int(m_timeouts.request.count()));
    if (!cacheDirectory.isEmpty()) {
        auto *cache = new QNetworkDiskCache(m_manager);
        cache->setCacheDirectory(cacheDirectory);
        m_manager->setCache(cache);
    }
}

ImageLoader::~ImageLoader() = default;

ImageLoader *ImageLoader::shared()
{
    // Never destroyed: views may load until the very end of the process.
    static ImageLoader *const instance = [] {
        auto *loader = new ImageLoader(defaultCacheDirectory());
        if (QCoreApplication *app = QCoreApplication::instance())
            loader->moveToThread(app->thread());
        return loader;
    }();
    return instance;
}

QString ImageLoader::defaultCacheDirectory()
{
    const QString base = QStandardPaths::writableLocation(QStandardPaths::CacheLocation);
    return base.isEmpty() ? QString() : base + u"/velmora-images"_s;
}

void ImageLoader::setTimeouts(const Timeouts &timeouts)
{
    m_timeouts = timeouts;
    m_manager->setTransferTimeout(int(timeouts.request.count()));
}

void ImageLoader::setSslConfiguration(const QSslConfiguration &configuration)
{
    m_sslConfiguration = configuration;
}

void ImageLoader::load(const QString &urlString, QObject *context, Completion completion)
{
    if (QThread::currentThread() != thread()) {
        detail::postTo(this,
                       [this, urlString, guard = QPointer<QObject>(context),
                        hadContext = context != nullptr,
                        completion = std::move(completion)]() mutable {
                           if (hadContext && !guard)
                               return;
                           load(urlString, guard, std::move(completion));
                       });
        return;
    }

    QObject *target = context ? context : this;
    const QUrl url(urlString, QUrl::StrictMode);
    if (HTTPSRedirectGuardDelegate::rawScheme(urlString) != u"https" || !url.isValid()
        || url.host().isEmpty()) {
        qCDebug(lcVelmoraImages).noquote()
            << u"ImageLoader: rejected non-HTTPS or invalid URL: "_s + urlString;
        deliverLater(target, std::move(completion));
        return;
    }
    auto *transfer = new ImageTransfer(this, urlString, target, std::move(completion));
    transfer->start(url);
}

} // namespace velmora
