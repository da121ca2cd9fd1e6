import QtQuick
import Velmora.InAppMessaging

// A title or body of a banner: the application font at a pixel size and weight, the creative's
// colours with fallbacks, padded only when the creative gives a valid background colour.
Rectangle {
    id: root

    property string text
    property real fontSize: 14
    property int weight: Font.Normal
    property string textColorHex
    property color defaultTextColor: "black"
    property string backgroundColorHex
    property real backgroundPadding: 8
    /// 0 for unlimited.
    property int lineLimit: 0

    readonly property var backgroundColorValue: IAMSupport.colors.hexColor(backgroundColorHex)
    readonly property real padding: backgroundColorValue !== undefined ? backgroundPadding : 0

    color: backgroundColorValue !== undefined ? backgroundColorValue : "transparent"
    implicitWidth: label.implicitWidth + 2 * padding
    implicitHeight: label.implicitHeight + 2 * padding

    Text {
        id: label
        anchors.fill: parent
        anchors.margins: root.padding
        text: root.text
        textFormat: Text.PlainText
        font.pixelSize: root.fontSize
        font.weight: root.weight
        color: {
            const c = IAMSupport.colors.hexColor(root.textColorHex)
            return c !== undefined ? c : root.defaultTextColor
        }
        wrapMode: Text.Wrap
        maximumLineCount: root.lineLimit > 0 ? root.lineLimit : 2147483647
        elide: root.lineLimit > 0 ? Text.ElideRight : Text.ElideNone
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
    }
}
