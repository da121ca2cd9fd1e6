#pragma once

#include <VelmoraInAppMessaging/velmora_export.h>
#include <VelmoraInAppMessaging/velmoraerror.h>

#include <QNetworkReply>
#include <QString>

#include <memory>

namespace velmora {

/// The image of a message could not be loaded (refused, failed, too large or undecodable);
/// what a view reports when it cannot show a message without its image.
struct ImageLoadError
{
    QString urlString;
};

/// A failure below the library's own error type, kept whole: what the transport reported, a
/// response that could not be decoded, a cancelled task, or another VelmoraError.
class VELMORA_EXPORT UnderlyingError
{
public:
    enum class Domain {
        Network, ///< the transport failed; networkCode() says how
        Decoding, ///< a response body was not a valid document
        Cancellation, ///< the task was cancelled before the transport was involved
        Library, ///< wraps another VelmoraError
        ImageLoad, ///< a message's image could not be loaded; imageLoadError() says which
    };

    static UnderlyingError network(QNetworkReply::NetworkError code, const QString &description);
    static UnderlyingError decoding(const QString &description);
    static UnderlyingError cancellation();
    static UnderlyingError wrapping(const VelmoraError &error);
    static UnderlyingError imageLoad(const ImageLoadError &error);

    Domain domain() const { return m_domain; }
    /// The transport's code; NoError unless domain() is Network.
    QNetworkReply::NetworkError networkCode() const { return m_code; }
    QString description() const;
    /// The wrapped error when domain() is Library, else nullptr.
    const VelmoraError *wrappedError() const { return m_wrapped.get(); }
    /// The failed image when domain() is ImageLoad, else nullptr.
    const ImageLoadError *imageLoadError() const { return m_imageLoad.get(); }

private:
    UnderlyingError() = default;
    Domain m_domain = Domain::Network;
    QNetworkReply::NetworkError m_code = QNetworkReply::NoError;
    QString m_description;
    std::shared_ptr<const VelmoraError> m_wrapped;
    std::shared_ptr<const ImageLoadError> m_imageLoad;
};

} // namespace velmora
