import QtQuick
import Velmora.InAppMessaging

// The close button of banners and modals: a 44 x 44 hit area around the 24 px disc.
Item {
    id: root

    signal clicked

    implicitWidth: 44
    implicitHeight: 44
    activeFocusOnTab: true

    Accessible.role: Accessible.Button
    Accessible.name: qsTr("Close")
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

    IAMCloseGlyph {
        anchors.fill: parent
        // A press does not take focus, so focus here came from the keyboard.
        ringColor: root.activeFocus ? palette.highlight : "transparent"
    }

    // Like a touch-up inside: sliding off before letting go cancels.
    MouseArea {
        anchors.fill: parent
        cursorShape: Qt.PointingHandCursor
        onClicked: root.clicked()
    }
}
