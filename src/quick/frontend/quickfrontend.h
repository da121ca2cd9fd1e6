#pragma once

namespace velmora::quick {

/// True in a host whose application object can show Qt Quick windows but is not a Widgets
/// application: there the QML front-end draws what needs a window of its own.
bool isQuickHost();

} // namespace velmora::quick
