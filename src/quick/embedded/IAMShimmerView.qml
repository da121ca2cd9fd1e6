import QtQuick
import Velmora.InAppMessaging

// A loading placeholder: a grey block with a soft white band sweeping across it, left to right,
// for as long as it is visible in a window.
Rectangle {
    id: root

    /// Where the band is: 0 just left of the block, 1 just past its right edge.
    property real phase: 0
    readonly property bool sweeping: sweep.running

    color: "#E5E5EA"
    clip: true
    Accessible.ignored: true

    Rectangle {
        width: root.width * 0.6
        height: root.height
        x: (root.width + width) * root.phase - width
        gradient: Gradient {
            orientation: Gradient.Horizontal
            GradientStop { position: 0; color: Qt.rgba(1, 1, 1, 0) }
            GradientStop { position: 0.5; color: Qt.rgba(1, 1, 1, 0.4) }
            GradientStop { position: 1; color: Qt.rgba(1, 1, 1, 0) }
        }
    }

    NumberAnimation on phase {
        id: sweep
        from: 0
        to: 1
        duration: 1500
        loops: Animation.Infinite
        running: root.visible && root.width > 0 && root.Window.window !== null
    }
}
