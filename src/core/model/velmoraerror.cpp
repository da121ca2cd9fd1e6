#include <VelmoraInAppMessaging/underlyingerror.h>
#include <VelmoraInAppMessaging/velmoraerror.h>

#include <QMetaEnum>

using namespace Qt::StringLiterals;

namespace velmora {

UnderlyingError UnderlyingError::network(QNetworkReply::NetworkError code,
                                         const QString &description)
{
    UnderlyingError error;
    error.m_domain = Domain::Network;
    error.m_code = code;
    error.m_description = description;
    return error;
}

UnderlyingError UnderlyingError::decoding(const QString &description)
{
    UnderlyingError error;
    error.m_domain = Domain::Decoding;
    error.m_description = description;
    return error;
}

UnderlyingError UnderlyingError::cancellation()
{
    UnderlyingError error;
    error.m_domain = Domain::Cancellation;
    error.m_description = u"cancelled"_s;
    return error;
}

UnderlyingError UnderlyingError::wrapping(const VelmoraError &wrapped)
{
    UnderlyingError error;
    error.m_domain = Domain::Library;
    error.m_wrapped = std::make_shared<const VelmoraError>(wrapped);
    return error;
}

UnderlyingError UnderlyingError::imageLoad(const ImageLoadError &imageLoad)
{
    UnderlyingError error;
    error.m_domain = Domain::ImageLoad;
    error.m_imageLoad = std::make_shared<const ImageLoadError>(imageLoad);
    return error;
}

QString UnderlyingError::description() const
{
    switch (m_domain) {
    case Domain::Network: {
        const char *key
            = QMetaEnum::fromType<QNetworkReply::NetworkError>().valueToKey(int(m_code));
        const QString code
            = key ? QString::fromLatin1(key) : u"NetworkError "_s + QString::number(int(m_code));
        return m_description.isEmpty() ? code : code + u": "_s + m_description;
    }
    case Domain::Decoding:
        return u"decoding error: "_s + m_description;
    case Domain::Cancellation:
        return m_description;
    case Domain::Library:
        return m_wrapped ? m_wrapped->description() : QString();
    case Domain::ImageLoad:
        return u"ImageLoadError(urlString: \""_s
            + (m_imageLoad ? m_imageLoad->urlString : QString()) + u"\")"_s;
    }
    return m_description;
}

VelmoraError::VelmoraError() = default;

VelmoraError VelmoraError::precondition(const QString &message)
{
    VelmoraError error;
    error.m_kind = Kind::Precondition;
    error.m_message = message;
    return error;
}

VelmoraError VelmoraError::clientError(std::optional<int> statusCode)
{
    VelmoraError error;
    error.m_kind = Kind::ClientError;
    error.m_statusCode = statusCode;
    return error;
}

VelmoraError VelmoraError::serverError(std::optional<int> statusCode)
{
    VelmoraError error;
    error.m_kind = Kind::ServerError;
    error.m_statusCode = statusCode;
    return error;
}

VelmoraError VelmoraError::networkError(const UnderlyingError &underlying)
{
    VelmoraError error;
    error.m_kind = Kind::NetworkError;
    error.m_underlying = std::make_shared<const UnderlyingError>(underlying);
    return error;
}

QString VelmoraError::description() const
{
    const auto status
        = [this] { return m_statusCode ? QString::number(*m_statusCode) : u"no status"_s; };
    switch (m_kind) {
    case Kind::Precondition:
        return u"precondition: "_s + m_message;
    case Kind::ClientError:
        return u"clientError: "_s + status();
    case Kind::ServerError:
        return u"serverError: "_s + status();
    case Kind::NetworkError:
        return u"networkError: "_s + (m_underlying ? m_underlying->description() : QString());
    }
    return {};
}

} // namespace velmora
