#include "devserveroptions.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>

#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace velmora::devserver {

namespace {

std::optional<qint64> parseInteger(const QString &text, qint64 min, qint64 max)
{
    bool ok = false;
    const qint64 value = text.trimmed().toLongLong(&ok);
    if (!ok || value < min || value > max)
        return std::nullopt;
    return value;
}

QString rangeError(const QString &option, const QString &value, qint64 min, qint64 max)
{
    return u"--"_s + option + u" must be a whole number from "_s + QString::number(min) + u" to "_s
        + QString::number(max) + u", got \""_s + value + u'"';
}

} // namespace

void addOptions(QCommandLineParser &parser)
{
    parser.setApplicationDescription(
        u"A local back end for trying in-app messages without a server: answers view and "_s
        u"reaction events from a folder of campaign files and serves their images over "_s
        u"HTTPS."_s);
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOptions({
        { u"campaigns"_s,
          u"Folder with one <screen>.json per screen name, default.json for every other "_s
          u"screen, and the images the campaigns show; {{base}} in a campaign file becomes "_s
          u"the HTTPS address the images are served from. Required."_s,
          u"DIR"_s },
        { u"port"_s, u"Port of the HTTP API on 127.0.0.1; 0 picks a free one."_s, u"N"_s, u"0"_s },
        { u"https-port"_s,
          u"Port of the HTTPS server (images, and the API again); 0 picks a free one."_s, u"N"_s,
          u"0"_s },
        { u"base-path"_s, u"Path in front of /app_events/view and /app_events/reaction."_s,
          u"PATH"_s, u"/vorpex/v1"_s },
        { u"api-key"_s, u"Answer 401 unless x-api-key is KEY. Any key when not given."_s,
          u"KEY"_s },
        { u"tenant"_s, u"Answer 403 unless tenant-id is TENANT. Any tenant when not given."_s,
          u"TENANT"_s },
        { u"state"_s,
          u"Folder for the certificate and the visitor list; by default the user's data "_s
          u"folder for this program."_s,
          u"DIR"_s },
        { u"latency"_s, u"Hold every answer back this long."_s, u"MS"_s, u"0"_s },
        { u"fail-status"_s, u"Answer failing API requests with this HTTP status."_s, u"CODE"_s },
        { u"fail-drop"_s, u"Close the connection of failing API requests without an answer."_s },
        { u"fail-fraction"_s,
          u"Share of API requests that fail, 0 to 1 (default 1 when a failure option is "_s
          u"given)."_s,
          u"F"_s },
        { u"fail-only"_s, u"Fail only \"view\" or only \"reaction\" requests."_s, u"ENDPOINT"_s },
        { u"seed"_s, u"Seed for choosing which requests fail, to repeat a run."_s, u"N"_s },
    });
}

QString normalizedBasePath(const QString &path)
{
    QString result = path.trimmed();
    while (result.endsWith(u'/'))
        result.chop(1);
    if (!result.isEmpty() && !result.startsWith(u'/'))
        result.prepend(u'/');
    return result;
}

std::optional<Options> optionsFromParser(const QCommandLineParser &parser,
                                         const QString &defaultStateDir, QString *error)
{
    const auto fail = [error](const QString &message) -> std::optional<Options> {
        if (error)
            *error = message;
        return std::nullopt;
    };
    Options options;

    if (!parser.isSet(u"campaigns"_s))
        return fail(u"--campaigns DIR is required"_s);
    const QFileInfo campaigns(parser.value(u"campaigns"_s));
    if (!campaigns.isDir())
        return fail(u"--campaigns: \""_s + campaigns.filePath() + u"\" is not a folder"_s);
    options.campaignsDir = campaigns.absoluteFilePath();

    const QString state = parser.isSet(u"state"_s) ? parser.value(u"state"_s) : defaultStateDir;
    if (state.isEmpty())
        return fail(u"--state DIR is required: this system has no data folder"_s);
    options.stateDir = QDir(state).absolutePath();

    for (const QString &name : { u"port"_s, u"https-port"_s }) {
        const auto port = parseInteger(parser.value(name), 0, 65535);
        if (!port)
            return fail(rangeError(name, parser.value(name), 0, 65535));
        (name == u"port" ? options.port : options.httpsPort) = quint16(*port);
    }
    if (options.port != 0 && options.port == options.httpsPort)
        return fail(u"--port and --https-port must differ"_s);

    options.basePath = normalizedBasePath(parser.value(u"base-path"_s));
    if (options.basePath.contains(u'?') || options.basePath.contains(u'#'))
        return fail(u"--base-path must be a plain path, got \""_s + parser.value(u"base-path"_s)
                    + u'"');

    if (parser.isSet(u"api-key"_s))
        options.apiKey = parser.value(u"api-key"_s);
    if (parser.isSet(u"tenant"_s))
        options.tenant = parser.value(u"tenant"_s);

    // An hour is far beyond any client's time-out; more is a typo.
    const auto latency = parseInteger(parser.value(u"latency"_s), 0, 3'600'000);
    if (!latency)
        return fail(rangeError(u"latency"_s, parser.value(u"latency"_s), 0, 3'600'000));
    options.latencyMs = int(*latency);

    FailureInjection &failure = options.failure;
    if (parser.isSet(u"fail-status"_s)) {
        const auto status = parseInteger(parser.value(u"fail-status"_s), 100, 599);
        if (!status)
            return fail(rangeError(u"fail-status"_s, parser.value(u"fail-status"_s), 100, 599));
        failure.status = int(*status);
    }
    failure.drop = parser.isSet(u"fail-drop"_s);
    if (failure.status && failure.drop)
        return fail(u"--fail-status and --fail-drop exclude each other"_s);

    if (parser.isSet(u"fail-fraction"_s)) {
        bool ok = false;
        const QString text = parser.value(u"fail-fraction"_s);
        const double fraction = text.trimmed().toDouble(&ok);
        if (!ok || !std::isfinite(fraction) || fraction < 0.0 || fraction > 1.0)
            return fail(u"--fail-fraction must be a number from 0 to 1, got \""_s + text + u'"');
        failure.fraction = fraction;
    }
    if (parser.isSet(u"fail-only"_s)) {
        const QString only = parser.value(u"fail-only"_s);
        if (only == u"view")
            failure.only = Endpoint::View;
        else if (only == u"reaction")
            failure.only = Endpoint::Reaction;
        else
            return fail(u"--fail-only must be \"view\" or \"reaction\", got \""_s + only + u'"');
    }
    if (!failure.isEnabled() && (parser.isSet(u"fail-fraction"_s) || parser.isSet(u"fail-only"_s)))
        return fail(u"--fail-fraction and --fail-only need --fail-status or --fail-drop"_s);

    if (parser.isSet(u"seed"_s)) {
        const auto seed
            = parseInteger(parser.value(u"seed"_s), 0, std::numeric_limits<quint32>::max());
        if (!seed)
            return fail(rangeError(u"seed"_s, parser.value(u"seed"_s), 0,
                                   std::numeric_limits<quint32>::max()));
        options.seed = quint32(*seed);
    }

    if (!parser.positionalArguments().isEmpty())
        return fail(u"unexpected argument \""_s + parser.positionalArguments().constFirst() + u'"');
    return options;
}

} // namespace velmora::devserver
