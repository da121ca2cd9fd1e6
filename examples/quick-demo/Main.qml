import QtQuick
import QtQuick.Controls
import Velmora.InAppMessaging

// The shop: a tab bar over a stack of screens. Each screen is a VelmoraScreen, so showing it
// reports it to the library, which puts its messages on it.
ApplicationWindow {
    id: window

    width: 400
    height: 760
    title: qsTr("Velmora shop")

    readonly property var products: [
        { name: "Linen shirt", price: "39.00", color: "#C8D6E5",
          description: "A light shirt for warm days, in washed linen." },
        { name: "Canvas tote", price: "24.00", color: "#F6E58D",
          description: "Roomy, sturdy and easy to fold away." },
        { name: "Rain jacket", price: "89.00", color: "#7ED6DF",
          description: "Waterproof, breathable, and packs into its own pocket." },
        { name: "Wool beanie", price: "19.00", color: "#E17055",
          description: "Soft merino that keeps its shape." }
    ]
    property var cart: []
    /// What a tap on a message would have opened, shown at the bottom.
    property string status
    readonly property string currentScreen: stack.currentItem ? stack.currentItem.screenName : ""
    readonly property Item currentPage: stack.currentItem

    function showTab(index) {
        tabs.currentIndex = index
    }
    function openProduct(index) {
        showTab(1)
        stack.push(productPage, { product: index })
    }
    function addToCart(index) {
        cart = cart.concat([index])
    }

    header: ToolBar {
        Row {
            anchors.fill: parent
            spacing: 4
            ToolButton {
                text: "\u2039"
                visible: stack.depth > 1
                onClicked: stack.pop()
            }
            Label {
                anchors.verticalCenter: parent.verticalCenter
                leftPadding: stack.depth > 1 ? 0 : 12
                text: window.currentPage ? window.currentPage.title : ""
                font.pixelSize: 18
                font.bold: true
            }
        }
    }

    footer: Column {
        Label {
            width: parent.width
            visible: window.status.length > 0
            padding: 6
            text: window.status
            elide: Text.ElideMiddle
        }
        TabBar {
            id: tabs
            width: parent.width
            TabButton { text: qsTr("Home") }
            TabButton { text: qsTr("Catalogue") }
            TabButton { text: qsTr("Cart") }
            onCurrentIndexChanged: stack.replace(null, [homePage, cataloguePage, cartPage][currentIndex])
        }
    }

    StackView {
        id: stack
        anchors.fill: parent
        initialItem: homePage
    }

    Component { id: homePage; HomePage {} }
    Component { id: cataloguePage; CataloguePage { onProductChosen: index => window.openProduct(index) } }
    Component { id: productPage; ProductPage { products: window.products; onAddToCart: index => window.addToCart(index) } }
    Component { id: cartPage; CartPage { products: window.products; cart: window.cart } }
}
