#pragma once

#include "devserveroptions.h"

#include <QHash>
#include <QJsonObject>
#include <QObject>
#include <QRandomGenerator>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <memory>
#include <optional>

namespace velmora::loopback {
class HttpServer;
struct RecordedRequest;
struct Response;
} // namespace velmora::loopback

namespace velmora::devserver {

/// The back end as integrators run it on their own machine: the two event endpoints under
/// the base path, answered from campaign files, plus the campaign images over HTTPS. The
/// API is served on both ports, images only on the HTTPS one, because the library loads
/// images over HTTPS only.
class DevServer : public QObject
{
    Q_OBJECT

public:
    explicit DevServer(Options options, QObject *parent = nullptr);
    ~DevServer() override;

    /// Loads the certificate from the state folder, or makes one when there is none or it
    /// is about to expire, reads the visitor list and starts listening. On failure the
    /// message says what went wrong and nothing listens.
    bool start(QString *errorMessage);

    const Options &options() const { return m_options; }
    quint16 port() const;
    quint16 httpsPort() const;
    /// What hosts pass to setup() as the API host: http://127.0.0.1:PORT plus the base path.
    QString apiHost() const;
    QString httpsApiHost() const;
    /// What "{{base}}" in a campaign file becomes: https://127.0.0.1:HTTPS-PORT.
    QString imageBase() const;
    /// The self-signed certificate, which is its own CA: the file hosts must trust.
    QString caFile() const;
    QString visitorsFile() const;

    /// The lines printed once at start, "name: value" each. "api-host: " comes last, so a
    /// script that waits for it knows every other line is already out.
    QStringList startupBanner() const;

    /// Screen names that have a campaign file of their own, sorted.
    QStringList campaignScreens() const;

Q_SIGNALS:
    /// One line per request, in the order the requests arrived.
    void logLine(const QString &line);

private:
    struct Visitor
    {
        QString firstSeen;
        QString customerId;
    };
    struct Exchange;

    loopback::Response handle(const loopback::RecordedRequest &request, bool secure);
    loopback::Response handleApi(Exchange &exchange, Endpoint endpoint);
    loopback::Response handleView(Exchange &exchange, const QJsonObject &body);
    loopback::Response handleReaction(Exchange &exchange, const QJsonObject &body);
    loopback::Response handleFile(Exchange &exchange);
    bool shouldFail(Endpoint endpoint);
    void applyIdentity(Exchange &exchange, const QJsonObject &meta);
    QString issueVisitorId();
    void loadVisitors();
    void saveVisitors() const;
    void log(const Exchange &exchange, const loopback::Response &response);

    Options m_options;
    QString m_caFile;
    std::unique_ptr<loopback::HttpServer> m_http;
    std::unique_ptr<loopback::HttpServer> m_https;
    QRandomGenerator m_random;
    QHash<QString, Visitor> m_visitors;
};

} // namespace velmora::devserver
