#include "devserver.h"
#include "devserveroptions.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>
#include <QStandardPaths>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

int signalPipe[2] = { -1, -1 };

void onTerminationSignal(int)
{
    const int savedErrno = errno;
    const char byte = 1;
    // Only async-signal-safe work here; the event loop does the rest.
    [[maybe_unused]] const auto written = ::write(signalPipe[1], &byte, 1);
    errno = savedErrno;
}

// Scripts start the server in the background and stop it with a signal; quitting the
// event loop lets the sockets close and the visitor list settle instead of dying mid-write.
// Caught from the first line of main, so that a signal sent while the server is still
// starting is not lost; the byte waits in the pipe until the event loop reads it.
bool catchTerminationSignals()
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0)
        return false;
    struct sigaction action = {};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    return ::sigaction(SIGINT, &action, nullptr) == 0
        && ::sigaction(SIGTERM, &action, nullptr) == 0;
}

void quitOnTerminationSignals(QCoreApplication &app)
{
    auto *notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [notifier] {
        notifier->setEnabled(false);
        char byte;
        [[maybe_unused]] const auto read = ::read(signalPipe[0], &byte, 1);
        QCoreApplication::quit();
    });
}

void printLine(FILE *stream, const QString &line)
{
    const QByteArray bytes = line.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    // Flushed per line: the output usually goes to a pipe that a script is reading.
    std::fflush(stream);
}

} // namespace

int main(int argc, char *argv[])
{
    using namespace velmora::devserver;

    const bool catchingSignals = catchTerminationSignals();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"velmora-devserver"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(VELMORA_DEVSERVER_VERSION));

    QCommandLineParser parser;
    addOptions(parser);
    if (!parser.parse(QCoreApplication::arguments())) {
        printLine(stderr, u"velmora-devserver: "_s + parser.errorText());
        return 2;
    }
    if (parser.isSet(u"help"_s) || parser.isSet(u"help-all"_s)) {
        printLine(stdout, parser.helpText().trimmed());
        return 0;
    }
    if (parser.isSet(u"version"_s)) {
        printLine(stdout, u"velmora-devserver "_s + QCoreApplication::applicationVersion());
        return 0;
    }

    QString error;
    const auto options = optionsFromParser(
        parser, QStandardPaths::writableLocation(QStandardPaths::AppDataLocation), &error);
    if (!options) {
        printLine(stderr, u"velmora-devserver: "_s + error);
        printLine(stderr, u"Try \"velmora-devserver --help\"."_s);
        return 2;
    }

    if (catchingSignals)
        quitOnTerminationSignals(app);
    else
        printLine(stderr, u"velmora-devserver: cannot catch SIGINT and SIGTERM"_s);

    DevServer server(*options);
    if (!server.start(&error)) {
        printLine(stderr, u"velmora-devserver: "_s + error);
        return 1;
    }
    QObject::connect(&server, &DevServer::logLine, &app,
                     [](const QString &line) { printLine(stdout, line); });
    printLine(stdout, u"velmora-devserver "_s + QCoreApplication::applicationVersion());
    const QStringList banner = server.startupBanner();
    for (const QString &line : banner)
        printLine(stdout, line);

    const int status = QCoreApplication::exec();
    printLine(stdout, u"stopped"_s);
    return status;
}
