#include "common/logging.h"

#include <QMutex>

#include <cstdio>
#include <utility>

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
} // namespace

void printWarning(const QString &text)
{
    const QString line = u"[VelmoraInAppMessaging][WARNING] "_s + text;
    WarningSink sink;
    {
        QMutexLocker locker(&sinkMutex);
        sink = currentSink();
    }
    if (sink) {
        sink(line);
        return;
    }
    const QByteArray bytes = line.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

WarningSink setWarningSink(WarningSink sink)
{
    QMutexLocker locker(&sinkMutex);
    return std::exchange(currentSink(), std::move(sink));
}

} // namespace velmora::detail
