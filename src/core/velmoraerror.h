#pragma once

#include "velmora_export.h"

#include <QMetaType>
#include <QNetworkReply>
#include <QString>

#include <memory>
#include <optional>

namespace velmora {

class VelmoraError;

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
    };

    static UnderlyingError network(QNetworkReply::NetworkError code, const QString &description);
    static UnderlyingError decoding(const QString &description);
    static UnderlyingError cancellation();
    static UnderlyingError wrapping(const VelmoraError &error);

    Domain domain() const { return m_domain; }
    /// The transport's code; NoError unless domain() is Network.
    QNetworkReply::NetworkError networkCode() const { return m_code; }
    QString description() const;
    /// The wrapped error when domain() is Library, else nullptr.
    const VelmoraError *wrappedError() const { return m_wrapped.get(); }

private:
    UnderlyingError() = default;
    Domain m_domain = Domain::Network;
    QNetworkReply::NetworkError m_code = QNetworkReply::NoError;
    QString m_description;
    std::shared_ptr<const VelmoraError> m_wrapped;
};

/// The one error type the library reports to its host.
///
/// \code
/// void MyDelegate::messageError(const std::optional<InAppMessage> &, const VelmoraError &error)
/// {
///     if (error.kind() == VelmoraError::Kind::Precondition)
///         qWarning() << "fix the integration:" << error.message();
/// }
/// \endcode
class VELMORA_EXPORT VelmoraError
{
    Q_GADGET
    Q_PROPERTY(Kind kind READ kind CONSTANT)
    Q_PROPERTY(QString message READ message CONSTANT)
    Q_PROPERTY(QString description READ description CONSTANT)

public:
    enum class Kind {
        Precondition, ///< the library could not build or send a request, or was misused
        ClientError, ///< HTTP status 400 to 499
        ServerError, ///< any other non-2xx status, or a success without a body
        NetworkError, ///< the transport itself failed (connection, TLS, time-out, cancellation)
    };
    Q_ENUM(Kind)

    static VelmoraError precondition(const QString &message);
    static VelmoraError clientError(std::optional<int> statusCode);
    static VelmoraError serverError(std::optional<int> statusCode);
    static VelmoraError networkError(const UnderlyingError &error);

    VelmoraError(); ///< an empty precondition; exists for the meta-type system
    Kind kind() const { return m_kind; }
    /// The precondition's text; empty for the other kinds.
    QString message() const { return m_message; }
    /// The HTTP status of a client or server error, when there was one.
    std::optional<int> statusCode() const { return m_statusCode; }
    /// The transport's failure of a network error, else nullptr.
    const UnderlyingError *underlyingError() const { return m_underlying.get(); }

    /// One readable line: the kind and its payload, as in "serverError: 503" or
    /// "precondition: SDK is not configured. ...".
    QString description() const;

private:
    Kind m_kind = Kind::Precondition;
    QString m_message;
    std::optional<int> m_statusCode;
    std::shared_ptr<const UnderlyingError> m_underlying;
};

} // namespace velmora

Q_DECLARE_METATYPE(velmora::VelmoraError)
