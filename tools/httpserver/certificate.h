#pragma once

#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QString>

#include <optional>

namespace velmora::loopback {

// A self-signed certificate for 127.0.0.1 / localhost that doubles as its own CA, so a
// client only has to add it to its CA list to talk to a local HTTPS server with full
// peer verification left on.
class Certificate
{
public:
    // Runs the openssl command line tool and writes cert.pem and key.pem into dir, which
    // must exist. Returns nullopt (with a warning saying why) when openssl is missing or
    // its output cannot be loaded. Tests need the default of a short validity; a
    // long-lived local server wants more.
    static std::optional<Certificate> generate(const QString &dir, int validDays = 2);

    // Reads the cert.pem and key.pem an earlier generate() wrote into dir. Returns nullopt
    // without a warning when either is missing or unreadable; expiry is the caller's
    // business.
    static std::optional<Certificate> load(const QString &dir);

    // Generated on first use and kept in a temporary directory for the rest of the
    // process, because key generation is the slowest part of an HTTPS test. Null if
    // generation failed.
    static const Certificate *shared();

    QSslCertificate certificate() const { return m_certificate; }
    QSslKey privateKey() const { return m_key; }
    QString certificatePath() const { return m_certificatePath; }
    QString keyPath() const { return m_keyPath; }

    // What a server presents: the certificate and key, no client certificate requested.
    QSslConfiguration serverConfiguration() const;

    // Adds the certificate to the CA list of an existing configuration.
    void trustInConfiguration(QSslConfiguration &configuration) const;

    // The default client configuration plus trust in this certificate; hand it to
    // QNetworkRequest::setSslConfiguration, or to QSslConfiguration::setDefaultConfiguration
    // for code that builds its own requests.
    QSslConfiguration clientConfiguration() const;

private:
    QSslCertificate m_certificate;
    QSslKey m_key;
    QString m_certificatePath;
    QString m_keyPath;
};

} // namespace velmora::loopback
