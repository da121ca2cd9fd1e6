import QtQuick
import QtQuick.Controls
import Velmora.InAppMessaging

VelmoraScreen {
    id: page

    property var products: []
    property var cart: []
    readonly property string title: qsTr("Cart")

    function fillOrderForm(name, email, address) {
        nameField.text = name
        emailField.text = email
        addressField.text = address
    }

    screenName: "cart"

    Flickable {
        anchors.fill: parent
        contentHeight: column.height + 32
        Column {
            id: column
            x: 16
            y: 16
            width: parent.width - 32
            spacing: 10
            Label {
                text: page.cart.length === 0 ? qsTr("Your cart is empty.")
                    : page.cart.length === 1 ? qsTr("1 item") : qsTr("%1 items").arg(page.cart.length)
                font.bold: true
            }
            Repeater {
                model: page.cart
                Label { text: page.products[modelData].name + "  \u2014  " + page.products[modelData].price }
            }
            TextField { id: nameField; width: parent.width; placeholderText: qsTr("Name") }
            TextField { id: emailField; width: parent.width; placeholderText: qsTr("Email") }
            TextField { id: addressField; width: parent.width; placeholderText: qsTr("Address") }
            Button {
                text: qsTr("Place order")
                enabled: page.cart.length > 0 && nameField.text.length > 0
            }
            IAMEmbeddedBanner {
                objectName: "slot"
                width: parent.width
                componentId: "cart_footer"
                showsLoadingPlaceholder: true
            }
        }
    }
}
