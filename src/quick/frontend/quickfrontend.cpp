#include "frontend/quickfrontend.h"

#include <QGuiApplication>

namespace velmora::quick {

bool isQuickHost()
{
    // Asked by name: this front-end must not link Qt Widgets to learn that it is not wanted.
    return qobject_cast<QGuiApplication *>(QCoreApplication::instance())
        && !QCoreApplication::instance()->inherits("QApplication");
}

} // namespace velmora::quick
