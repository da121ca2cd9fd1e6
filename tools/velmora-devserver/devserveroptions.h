#pragma once

#include <QString>
#include <QStringList>

#include <optional>

QT_BEGIN_NAMESPACE
class QCommandLineParser;
QT_END_NAMESPACE

namespace velmora::devserver {

enum class Endpoint { View, Reaction };

/// Which API requests fail on purpose, and how.
struct FailureInjection
{
    /// Answer with this status instead of handling the request.
    std::optional<int> status;
    /// Close the connection without answering.
    bool drop = false;
    /// Share of the eligible requests that fail, drawn per request.
    double fraction = 1.0;
    /// Only this endpoint fails; both when unset.
    std::optional<Endpoint> only;

    bool isEnabled() const { return status.has_value() || drop; }
    bool covers(Endpoint endpoint) const { return isEnabled() && (!only || *only == endpoint); }
};

struct Options
{
    /// The folder of campaign files and images.
    QString campaignsDir;
    /// Where the certificate and the visitor list are kept.
    QString stateDir;
    /// 0 lets the system choose.
    quint16 port = 0;
    quint16 httpsPort = 0;
    /// Starts with '/', never ends with one (empty serves the API at the root).
    QString basePath = QStringLiteral("/vorpex/v1");
    /// Unset accepts any value.
    std::optional<QString> apiKey;
    std::optional<QString> tenant;
    int latencyMs = 0;
    FailureInjection failure;
    /// Seeds the generator that picks which requests fail; random when unset.
    std::optional<quint32> seed;
};

/// Declares the options on a parser; help and version included.
void addOptions(QCommandLineParser &parser);

/// Reads and checks what a parser has parsed. `defaultStateDir` stands in when --state is
/// not given. On failure `error` gets a one-line message naming the option at fault.
std::optional<Options> optionsFromParser(const QCommandLineParser &parser,
                                         const QString &defaultStateDir, QString *error);

/// Starts the base path with a slash and drops trailing ones ("vorpex/v1/" -> "/vorpex/v1").
QString normalizedBasePath(const QString &path);

} // namespace velmora::devserver
