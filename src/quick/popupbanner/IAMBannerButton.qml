import QtQuick
import Velmora.InAppMessaging

// A banner's call to action: a filled rounded rectangle of the creative's colour with its
// label in bold, shaded rather than replaced when pressed or hovered.
Rectangle {
    id: root

    property string text
    property color textColor: "white"
    property color fillColor: palette.highlight
    property real pixelSize: 14

    signal clicked

    activeFocusOnTab: true
    color: mouse.pressed ? Qt.darker(fillColor, 1.15) : mouse.containsMouse ? Qt.lighter(fillColor, 1.05) : fillColor
    border.width: activeFocus ? 2 : 0
    border.color: Qt.darker(palette.highlight, 1.3)

    Accessible.role: Accessible.Button
    Accessible.name: text
    Accessible.focusable: true
    Accessible.onPressAction: root.clicked()

    Keys.onPressed: event => {
        switch (event.key) {
        case Qt.Key_Space:
        case Qt.Key_Enter:
        case Qt.Key_Return:
        case Qt.Key_Select:
            if (!event.isAutoRepeat)
                root.clicked()
            event.accepted = true
            break
        }
    }

    Text {
        anchors.fill: parent
        anchors.leftMargin: 8
        anchors.rightMargin: 8
        text: root.text
        textFormat: Text.PlainText
        color: root.textColor
        font.pixelSize: root.pixelSize
        font.bold: true
        elide: Text.ElideRight
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
    }

    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        cursorShape: Qt.PointingHandCursor
        onClicked: root.clicked()
    }
}
