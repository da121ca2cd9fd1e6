#include "common/logging.h"

#include <QDeadlineTimer>
#include <QMutex>

#include <chrono>
#include <cstdio>
#include <utility>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <climits>
#include <poll.h>
#include <unistd.h>
#endif

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcVelmoraNetwork, "velmora.network", QtWarningMsg)
Q_LOGGING_CATEGORY(lcVelmoraService, "velmora.service", QtWarningMsg)
Q_LOGGING_CATEGORY(lcVelmoraPresentation, "velmora.presentation", QtWarningMsg)
Q_LOGGING_CATEGORY(lcVelmoraImages, "velmora.images", QtWarningMsg)

namespace velmora::detail {

namespace {
QMutex sinkMutex;
WarningSink &currentSink()
{
    static WarningSink sink;
    return sink;
}

QString hex(char16_t unit, int digits)
{
    return QString::number(unit, 16).toUpper().rightJustified(digits, u'0');
}

// Standard output may be a pipe nobody reads, and warnings are printed while a response is
// decoded: a full pipe must hold a fetch for a moment at most, not until someone reads. So a
// line waits up to 100 ms for room and is dropped after that; once one was dropped, the next
// ones do not wait at all until one gets through again. Writes go through stdio in pieces no
// larger than the pipe's atomic size, so each fits once the pipe has room and the order with
// the host's own output is kept.
class BoundedStdout
{
public:
    void writeLine(const QByteArray &line)
    {
        QMutexLocker locker(&m_mutex);
#ifdef Q_OS_UNIX
        // A line cut short by a full pipe is ended first, so the next one starts on its own.
        const QByteArray bytes = (m_partialLine ? QByteArray("\n") : QByteArray()) + line;
        QDeadlineTimer deadline(m_stalled ? std::chrono::milliseconds(0)
                                          : std::chrono::milliseconds(100));
        qsizetype written = 0;
        while (written < bytes.size()) {
            if (!waitForRoom(deadline)) {
                m_stalled = true;
                m_partialLine = m_partialLine || written > 0;
                return;
            }
            const qsizetype n = std::min<qsizetype>(PIPE_BUF, bytes.size() - written);
            std::fwrite(bytes.constData() + written, 1, size_t(n), stdout);
            std::fflush(stdout);
            written += n;
        }
        m_stalled = false;
        m_partialLine = false;
#else
        std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
        std::fflush(stdout);
#endif
    }

private:
#ifdef Q_OS_UNIX
    static bool waitForRoom(const QDeadlineTimer &deadline)
    {
        for (;;) {
            pollfd fd { fileno(stdout), POLLOUT, 0 };
            const int ready = ::poll(&fd, 1, int(deadline.remainingTime()));
            if (ready < 0 && errno == EINTR)
                continue;
            return ready > 0 && (fd.revents & POLLOUT);
        }
    }
#endif

    QMutex m_mutex;
    bool m_stalled = false;
    bool m_partialLine = false;
};

BoundedStdout &boundedStdout()
{
    static BoundedStdout out;
    return out;
}
} // namespace

QString escapeControlCharacters(QStringView text)
{
    QString escaped;
    escaped.reserve(text.size());
    for (const QChar c : text) {
        const char16_t unit = c.unicode();
        if (unit == u'\n')
            escaped += u"\\n"_s;
        else if (unit == u'\r')
            escaped += u"\\r"_s;
        else if (unit == u'\t')
            escaped += u"\\t"_s;
        else if (unit < 0x20 || (unit >= 0x7f && unit <= 0x9f))
            escaped += u"\\x"_s + hex(unit, 2);
        else if (unit == 0x2028 || unit == 0x2029)
            escaped += u"\\u"_s + hex(unit, 4);
        else
            escaped += c;
    }
    return escaped;
}

void printWarning(const QString &text)
{
    // Warnings quote what the server sent; escaped, no text can end the line early or forge
    // another warning after it.
    const QString line = u"[VelmoraInAppMessaging][WARNING] "_s + escapeControlCharacters(text);
    WarningSink sink;
    {
        QMutexLocker locker(&sinkMutex);
        sink = currentSink();
    }
    if (sink) {
        sink(line);
        return;
    }
    boundedStdout().writeLine(line.toUtf8() + '\n');
}

WarningSink setWarningSink(WarningSink sink)
{
    QMutexLocker locker(&sinkMutex);
    return std::exchange(currentSink(), std::move(sink));
}

} // namespace velmora::detail
