import QtQuick
import QtQuick.Controls
import Velmora.InAppMessaging

VelmoraScreen {
    readonly property string title: qsTr("Home")

    screenName: "home"
    customParameter: function () {
        return [CustomParameter.string("plan", "gold"), CustomParameter.integer("visits", 3)]
    }

    Flickable {
        anchors.fill: parent
        contentHeight: column.height + 32
        Column {
            id: column
            x: 16
            y: 16
            width: parent.width - 32
            spacing: 16
            Label {
                text: qsTr("Good morning")
                font.pixelSize: 24
                font.bold: true
            }
            IAMEmbeddedBanner {
                objectName: "slot"
                width: parent.width
                componentId: "home_top"
                showsLoadingPlaceholder: true
            }
            Label {
                width: parent.width
                wrapMode: Text.Wrap
                text: qsTr("New arrivals every week, free returns within 30 days.")
            }
            Repeater {
                model: 3
                Rectangle {
                    width: parent.width
                    height: 72
                    radius: 8
                    color: ["#DFE6E9", "#FFEAA7", "#D6F5E3"][index]
                    Label {
                        anchors.centerIn: parent
                        text: [qsTr("Shirts"), qsTr("Bags"), qsTr("Jackets")][index]
                    }
                }
            }
        }
    }
}
