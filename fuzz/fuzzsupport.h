#pragma once

#include "common/logging.h"

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace velmora::fuzz {

// Warnings and Qt's own messages would flood the output at thousands of inputs a second.
inline bool quiet()
{
    detail::setWarningSink([](const QString &) {});
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    return true;
}

inline QByteArray bytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), qsizetype(size));
}

// A broken property is a finding like a crash: abort so libFuzzer keeps the input.
inline void require(bool condition, const char *what)
{
    if (!condition) {
        std::fprintf(stderr, "property violated: %s\n", what);
        std::abort();
    }
}

} // namespace velmora::fuzz
