#pragma once

#include <VelmoraInAppMessaging/velmora_export.h>

#include <QMetaType>
#include <QString>

#include <memory>
#include <optional>

namespace velmora {

class UnderlyingError;

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
    /// What failed below a network error, else nullptr; include
    /// <VelmoraInAppMessaging/underlyingerror.h> to read it.
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
