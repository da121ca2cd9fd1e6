import QtQuick
import QtQuick.Controls
import Velmora.InAppMessaging

VelmoraScreen {
    id: page

    readonly property string title: qsTr("Catalogue")
    signal productChosen(int index)

    screenName: "catalogue"

    Column {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 12
        IAMEmbeddedBanner {
            objectName: "slot"
            width: parent.width
            componentId: "catalogue_top"
            showsLoadingPlaceholder: true
        }
        Repeater {
            model: ApplicationWindow.window ? ApplicationWindow.window.products : []
            ItemDelegate {
                objectName: "product" + index
                width: parent.width
                text: modelData.name + "  \u2014  " + modelData.price
                onClicked: page.productChosen(index)
            }
        }
    }
}
