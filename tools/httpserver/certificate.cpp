#include "httpserver/certificate.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtDebug>

using namespace Qt::StringLiterals;

namespace velmora::loopback {

namespace {

std::optional<QByteArray> readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return file.readAll();
}

} // namespace

std::optional<Certificate> Certificate::generate(const QString &dir, int validDays)
{
    const QDir directory(dir);
    const QString certificatePath = directory.absoluteFilePath(u"cert.pem"_s);
    const QString keyPath = directory.absoluteFilePath(u"key.pem"_s);

    QProcess openssl;
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    // 2 days by default rather than 1 so a run that starts just before midnight UTC on a
    // machine whose clock is slightly off still gets a valid certificate.
    openssl.start(u"openssl"_s,
                  { u"req"_s, u"-x509"_s, u"-newkey"_s, u"rsa:2048"_s, u"-nodes"_s, u"-days"_s,
                    QString::number(validDays), u"-subj"_s, u"/CN=127.0.0.1"_s, u"-addext"_s,
                    u"subjectAltName=IP:127.0.0.1,DNS:localhost"_s, u"-addext"_s,
                    u"basicConstraints=critical,CA:TRUE"_s, u"-keyout"_s, keyPath, u"-out"_s,
                    certificatePath });
    if (!openssl.waitForStarted()) {
        qWarning("Certificate: cannot start openssl: %ls", qUtf16Printable(openssl.errorString()));
        return std::nullopt;
    }
    if (!openssl.waitForFinished(60000) || openssl.exitStatus() != QProcess::NormalExit
        || openssl.exitCode() != 0) {
        qWarning("Certificate: openssl failed: %s", openssl.readAll().constData());
        return std::nullopt;
    }

    auto result = load(dir);
    if (!result)
        qWarning("Certificate: Qt cannot load what openssl wrote in %ls", qUtf16Printable(dir));
    return result;
}

std::optional<Certificate> Certificate::load(const QString &dir)
{
    const QDir directory(dir);
    const QString certificatePath = directory.absoluteFilePath(u"cert.pem"_s);
    const QString keyPath = directory.absoluteFilePath(u"key.pem"_s);
    const auto certificatePem = readFile(certificatePath);
    const auto keyPem = readFile(keyPath);
    if (!certificatePem || !keyPem)
        return std::nullopt;

    Certificate result;
    result.m_certificate = QSslCertificate(*certificatePem, QSsl::Pem);
    result.m_key = QSslKey(*keyPem, QSsl::Rsa, QSsl::Pem, QSsl::PrivateKey);
    result.m_certificatePath = certificatePath;
    result.m_keyPath = keyPath;
    if (result.m_certificate.isNull() || result.m_key.isNull())
        return std::nullopt;
    return result;
}

const Certificate *Certificate::shared()
{
    // Function statics: built on first use, once, even if tests run on several threads,
    // and the directory outlives every server that might still be using the files.
    static QTemporaryDir directory;
    static const std::optional<Certificate> certificate
        = directory.isValid() ? generate(directory.path()) : std::nullopt;
    return certificate ? &*certificate : nullptr;
}

QSslConfiguration Certificate::serverConfiguration() const
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setLocalCertificate(m_certificate);
    configuration.setPrivateKey(m_key);
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    return configuration;
}

void Certificate::trustInConfiguration(QSslConfiguration &configuration) const
{
    configuration.addCaCertificate(m_certificate);
}

QSslConfiguration Certificate::clientConfiguration() const
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    trustInConfiguration(configuration);
    return configuration;
}

} // namespace velmora::loopback
