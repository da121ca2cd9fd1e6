import QtQuick
import QtQuick.Controls
import Velmora.InAppMessaging

VelmoraScreen {
    id: page

    property var products: []
    property int product: 0
    readonly property var item: products[product]
    readonly property string title: item ? item.name : ""
    signal addToCart(int index)

    screenName: "product"

    Column {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 12
        Rectangle {
            width: parent.width
            height: 200
            radius: 8
            color: page.item ? page.item.color : "white"
        }
        Label {
            text: page.item ? page.item.name : ""
            font.pixelSize: 22
            font.bold: true
        }
        Label { text: page.item ? page.item.price : "" }
        Label {
            width: parent.width
            wrapMode: Text.Wrap
            text: page.item ? page.item.description : ""
        }
        Button {
            text: qsTr("Add to cart")
            onClicked: page.addToCart(page.product)
        }
    }
}
