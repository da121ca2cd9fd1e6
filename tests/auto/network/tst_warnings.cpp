#include "common/logging.h"

#include <QElapsedTimer>
#include <QTest>

#include <atomic>
#include <chrono>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace velmora;

namespace {

const QString prefix = u"[VelmoraInAppMessaging][WARNING] "_s;

QStringList collectWarnings(const std::function<void()> &work)
{
    QStringList lines;
    const auto previous = detail::setWarningSink([&](const QString &line) { lines.append(line); });
    work();
    detail::setWarningSink(previous);
    return lines;
}

// Reads whatever the pipe holds without blocking.
QByteArray drain(int fd)
{
    QByteArray all;
    const int flags = fcntl(fd, F_GETFL);
    fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    char buffer[65536];
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;)
        all.append(buffer, n);
    fcntl(fd, F_SETFL, flags);
    return all;
}

} // namespace

class tst_Warnings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void escaped_data();
    void escaped();
    void unreadStandardOutputDoesNotBlock();
};

void tst_Warnings::escaped_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("line");
    QTest::newRow("forged line") << u"a\n[VelmoraInAppMessaging][WARNING] forged"_s
                                 << u"a\\n[VelmoraInAppMessaging][WARNING] forged"_s;
    QTest::newRow("CR LF and tab") << u"x\r\ny\tz"_s << u"x\\r\\ny\\tz"_s;
    QTest::newRow("terminal escape") << u"\x1b[2Kgone"_s << u"\\x1B[2Kgone"_s;
    QTest::newRow("NUL and DEL") << QString(u"a\0b\x7f"_s) << u"a\\x00b\\x7F"_s;
    QTest::newRow("C1 next line") << u"a\u0085b"_s << u"a\\x85b"_s;
    QTest::newRow("line separators") << u"a\u2028b\u2029"_s << u"a\\u2028b\\u2029"_s;
    QTest::newRow("printable text unchanged") << u"Größe \"12px\" \\n"_s << u"Größe \"12px\" \\n"_s;
}

void tst_Warnings::escaped()
{
    QFETCH(QString, text);
    QFETCH(QString, line);
    QCOMPARE(collectWarnings([&] { detail::printWarning(text); }), QStringList { prefix + line });
}

void tst_Warnings::unreadStandardOutputDoesNotBlock()
{
    // Standard output becomes a pipe that is full and that nobody reads. Nothing here may
    // fail or print before standard output is back, or the test itself would block.
    std::fflush(stdout);
    const int savedStdout = ::dup(STDOUT_FILENO);
    int fds[2];
    QCOMPARE(::pipe(fds), 0);
    ::dup2(fds[1], STDOUT_FILENO);
    const int flags = fcntl(fds[1], F_GETFL);
    fcntl(fds[1], F_SETFL, flags | O_NONBLOCK);
    const QByteArray filler(4096, 'f');
    while (::write(fds[1], filler.constData(), filler.size()) > 0) { }
    fcntl(fds[1], F_SETFL, flags);

    std::atomic<bool> done = false;
    qint64 elapsed = 0;
    std::thread writer([&] {
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < 100; ++i)
            detail::printWarning(u"Skipping malformed action at index "_s + QString::number(i));
        elapsed = timer.elapsed();
        done = true;
    });
    QElapsedTimer waited;
    waited.start();
    while (!done && waited.elapsed() < 5000)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const bool blocked = !done;
    while (!done) { // unblock an unbounded writer so the test can end
        drain(fds[0]);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    writer.join();

    // Once there is room again, the next warning arrives whole, on a line of its own.
    drain(fds[0]);
    detail::printWarning(u"after"_s);
    const QByteArray after = drain(fds[0]);

    std::fflush(stdout);
    ::dup2(savedStdout, STDOUT_FILENO);
    ::close(savedStdout);
    ::close(fds[0]);
    ::close(fds[1]);

    QVERIFY2(!blocked, "a warning waited for standard output to be read");
    QVERIFY2(elapsed < 1000, qPrintable(QString::number(elapsed)));
    QCOMPARE(after, (prefix + u"after\n"_s).toUtf8());
}

QTEST_GUILESS_MAIN(tst_Warnings)
#include "tst_warnings.moc"
