#pragma once

#include "common/expected.h"
#include "model/inappmessageaction.h"

#include <QByteArray>
#include <QList>
#include <QString>

namespace velmora {

/// The answer to a view event.
struct APIResponse
{
    /// In the document's order, malformed actions removed.
    QList<InAppMessageAction> actions;
    /// The document's "status"; empty when absent or null.
    QString status;
};

/// Why a whole response document was rejected.
struct DecodingError
{
    QString description;
};

/// Decodes a view-event response. One malformed action costs only itself (with a warning);
/// an unknown type is kept as unsupported; only a broken envelope fails the whole document.
Expected<APIResponse, DecodingError> decodeAPIResponse(const QByteArray &body);

namespace detail {
/// The instant of an "updated_at" text; the current time, with a warning, when it is not an
/// internet date-time with or without fractional seconds.
QDateTime parseUpdatedDate(const QString &updatedAt);
/// decodeAPIResponse through QJsonDocument alone: what it does for documents only Qt accepts,
/// and the reference its faster path is tested against.
Expected<APIResponse, DecodingError> decodeWithQJsonDocument(const QByteArray &body);
} // namespace detail

} // namespace velmora
