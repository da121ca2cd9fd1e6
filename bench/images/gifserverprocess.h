#pragma once

#include "benchgif.h"
#include "httpserver/httpserver.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QSocketNotifier>
#include <QTemporaryDir>

#include <cstdio>
#include <optional>
#include <unistd.h>

namespace velmora::bench {

// The 100-frame GIF served over HTTPS at every path from a process of its own: the benchmark's
// executable started again with --serve, so that none of the server's work lands on a thread
// the benchmark measures. main() first gives serveIfAsked() its arguments.
class GifServerProcess
{
public:
    // In the server process, serves until the benchmark closes its standard input and returns
    // the exit status; in the benchmark, nullopt.
    static std::optional<int> serveIfAsked(int argc, char *argv[])
    {
        using namespace Qt::StringLiterals;
        if (argc < 3 || qstrcmp(argv[1], "--serve") != 0)
            return std::nullopt;
        const QString dir = QString::fromLocal8Bit(argv[2]);
        const std::optional<loopback::Certificate> certificate = loopback::Certificate::load(dir);
        QFile file(dir + u"/banner.gif"_s);
        if (!certificate || !file.open(QIODevice::ReadOnly))
            return 1;
        loopback::HttpServer server;
        server.setCertificate(*certificate);
        if (!server.listen(loopback::HttpServer::Mode::Https))
            return 1;
        loopback::Response response = loopback::Response::withStatus(200, file.readAll());
        if (argc > 3)
            response.header("Cache-Control", argv[3]);
        server.setDefaultResponse(response);
        std::printf("%d\n", server.port());
        std::fflush(stdout);
        QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
        QObject::connect(&input, &QSocketNotifier::activated, [] {
            char byte;
            if (::read(STDIN_FILENO, &byte, 1) <= 0)
                QCoreApplication::quit();
        });
        return QCoreApplication::exec();
    }

    ~GifServerProcess()
    {
        m_process.closeWriteChannel();
        if (m_process.state() != QProcess::NotRunning && !m_process.waitForFinished(10000))
            m_process.kill();
    }

    // Starts the server; `cacheControl`, when given, goes with every answer. Says why on
    // standard output when it cannot.
    bool start(const QByteArray &cacheControl = {})
    {
        using namespace Qt::StringLiterals;
        m_certificate = loopback::Certificate::generate(m_dir.path());
        QFile gifFile(m_dir.filePath(u"banner.gif"_s));
        const QByteArray gif = hundredFrameGif();
        if (!m_certificate || !gifFile.open(QIODevice::WriteOnly)
            || gifFile.write(gif) != gif.size()) {
            std::printf("cannot prepare the server's certificate and image (openssl missing?)\n");
            return false;
        }
        gifFile.close();
        m_imageBytes = gif.size();
        QStringList arguments { u"--serve"_s, m_dir.path() };
        if (!cacheControl.isEmpty())
            arguments << QString::fromLatin1(cacheControl);
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QCoreApplication::applicationFilePath(), arguments);
        if (!m_process.waitForStarted(10000) || !m_process.waitForReadyRead(30000)) {
            std::printf("the server process did not start\n");
            return false;
        }
        m_port = m_process.readLine().trimmed().toInt();
        return m_port > 0;
    }

    QString url(const QString &path) const
    {
        using namespace Qt::StringLiterals;
        return u"https://127.0.0.1:%1%2"_s.arg(m_port).arg(path);
    }
    qsizetype imageBytes() const { return m_imageBytes; }
    QSslConfiguration clientConfiguration() const { return m_certificate->clientConfiguration(); }

private:
    QTemporaryDir m_dir;
    std::optional<loopback::Certificate> m_certificate;
    QProcess m_process;
    int m_port = 0;
    qsizetype m_imageBytes = 0;
};

} // namespace velmora::bench
