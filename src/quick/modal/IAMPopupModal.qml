import QtQuick
import Velmora.InAppMessaging

// A popup modal's window content: the dim over the host window and the centred card with its
// image, title, body, button and close button, as the Widgets modal draws them. `modal` is the
// window's C++ side: the creative, the shared measurements and card layout, the fade, and what
// each action reports.
FocusScope {
    id: root

    required property QtObject modal

    readonly property var creative: modal.creative
    readonly property var style: modal.style
    readonly property bool hasTitle: creative.hasTitle && creative.title.text.length > 0
    readonly property bool hasBody: creative.hasBody && creative.body.text.length > 0
    readonly property bool hasButton: creative.hasButton && creative.button.text.length > 0
    readonly property bool imageLinked: creative.image.linkUrl.length > 0

    readonly property real cardWidth: modal.cardWidth(width)
    // 16:9 until the picture's size is known; a failed picture keeps it.
    readonly property real imageHeight: modal.imageHeight(
        cardWidth, image.status === IAMAnimatedImage.Ready ? image.sourceSize : Qt.size(0, 0), height)
    readonly property real stackHeight: stack.implicitHeight + 2 * style.contentInsets
    readonly property rect cardFrame: modal.cardFrame(Qt.size(width, height), imageHeight + stackHeight)

    // Focus starts on the close button without a ring, which would only puzzle a pointer user;
    // the rings show from the first move of the keyboard's focus on.
    property bool keyboardNavigated: false
    readonly property Item focusedItem: Window.activeFocusItem
    onFocusedItemChanged: {
        if (focusedItem && focusedItem !== closeButton)
            keyboardNavigated = true
    }

    focus: true
    Keys.onEscapePressed: modal.closeButtonActivated()

    Rectangle {
        objectName: "dim"
        anchors.fill: parent
        color: Qt.rgba(0, 0, 0, root.style.dimAlpha * root.modal.presentation)
    }

    // The card fades as one with everything on it, shadow included.
    Item {
        id: cardLayer
        objectName: "card"
        x: root.cardFrame.x
        y: root.cardFrame.y
        width: root.cardFrame.width
        height: root.cardFrame.height
        opacity: root.modal.presentation

        Accessible.role: Accessible.Dialog
        Accessible.name: root.modal.accessibleName
        Accessible.description: root.hasBody ? root.creative.body.text : ""

        IAMCardShadow {
            x: -extent
            y: -extent
            width: parent.width + 2 * extent
            height: parent.height + 2 * extent
            cardRect: Qt.rect(extent, extent, cardLayer.width, cardLayer.height)
            color: Qt.rgba(0, 0, 0, root.style.shadowOpacity)
            offset: root.style.shadowOffset
            blurRadius: root.style.shadowRadius
            cornerRadius: root.style.cornerRadius
        }

        Rectangle {
            anchors.fill: parent
            radius: root.style.cornerRadius
            color: {
                const c = IAMSupport.colors.hexColor(root.creative.backgroundColor)
                return c !== undefined ? c : "white"
            }
        }

        IAMAnimatedImage {
            id: image
            objectName: "coverImage"
            width: parent.width
            height: root.imageHeight
            source: root.creative.image.url
            fillMode: IAMAnimatedImage.Fill
            topCornerRadius: root.style.cornerRadius
            activeFocusOnTab: root.imageLinked

            Accessible.role: Accessible.Link
            Accessible.name: qsTr("Open link")
            Accessible.focusable: root.imageLinked
            Accessible.ignored: !root.imageLinked
            Accessible.onPressAction: root.modal.coverImageActivated()

            Keys.onPressed: event => {
                switch (event.key) {
                case Qt.Key_Space:
                case Qt.Key_Enter:
                case Qt.Key_Return:
                case Qt.Key_Select:
                    if (!event.isAutoRepeat)
                        root.modal.coverImageActivated()
                    event.accepted = true
                    break
                }
            }

            // The placeholder follows the card's rounded top corners. It is translucent, so its
            // rounded top and square rest must not overlap.
            Item {
                anchors.fill: parent
                z: -1
                visible: image.status !== IAMAnimatedImage.Ready

                Item {
                    width: parent.width
                    height: Math.min(root.style.cornerRadius, parent.height)
                    clip: true

                    Rectangle {
                        width: parent.width
                        height: 2 * root.style.cornerRadius
                        radius: root.style.cornerRadius
                        color: IAMSupport.colors.coverImagePlaceholderColor
                    }
                }
                Rectangle {
                    y: root.style.cornerRadius
                    width: parent.width
                    height: Math.max(0, parent.height - y)
                    color: IAMSupport.colors.coverImagePlaceholderColor
                }
            }

            Rectangle {
                anchors.fill: parent
                visible: image.activeFocus
                color: "transparent"
                border.width: 2
                border.color: Qt.darker(palette.highlight, 1.3)
            }

            MouseArea {
                anchors.fill: parent
                enabled: root.imageLinked
                cursorShape: Qt.PointingHandCursor
                onClicked: root.modal.coverImageActivated()
            }
        }

        // Text taller than the window scrolls under the image, so the close button on the card
        // stays where the user can reach it.
        Flickable {
            id: scroller
            objectName: "contentScroll"
            y: root.imageHeight
            width: parent.width
            height: Math.max(0, parent.height - root.imageHeight)
            contentWidth: width
            contentHeight: root.stackHeight
            interactive: contentHeight > height
            boundsBehavior: Flickable.StopAtBounds
            clip: true

            Column {
                id: stack
                x: root.style.contentInsets
                y: root.style.contentInsets
                width: Math.max(0, root.cardWidth - 2 * root.style.contentInsets)
                spacing: root.style.stackSpacing

                IAMBannerText {
                    objectName: "title"
                    visible: root.hasTitle
                    width: parent.width
                    height: implicitHeight
                    text: root.hasTitle ? root.creative.title.text : ""
                    fontSize: root.style.titlePixelSize
                    weight: Font.Bold
                    textColorHex: root.hasTitle ? root.creative.title.textColor : ""
                    backgroundColorHex: root.hasTitle ? root.creative.title.backgroundColor : ""
                    defaultTextColor: IAMSupport.colors.defaultTitleTextColor
                    backgroundPadding: root.style.textBackgroundPadding
                }

                IAMBannerText {
                    objectName: "body"
                    visible: root.hasBody
                    width: parent.width
                    height: implicitHeight
                    text: root.hasBody ? root.creative.body.text : ""
                    fontSize: root.style.bodyPixelSize
                    weight: Font.Normal
                    textColorHex: root.hasBody ? root.creative.body.textColor : ""
                    backgroundColorHex: root.hasBody ? root.creative.body.backgroundColor : ""
                    defaultTextColor: IAMSupport.colors.defaultBodyTextColor
                    backgroundPadding: root.style.textBackgroundPadding
                }

                IAMBannerButton {
                    objectName: "button"
                    visible: root.hasButton
                    width: parent.width
                    height: root.style.buttonHeight
                    radius: root.style.cornerRadius
                    text: root.hasButton ? root.creative.button.text : ""
                    textColor: {
                        const c = root.hasButton ? IAMSupport.colors.hexColor(root.creative.button.textColor) : undefined
                        return c !== undefined ? c : "white"
                    }
                    fillColor: {
                        const c = root.hasButton ? IAMSupport.colors.hexColor(root.creative.button.backgroundColor) : undefined
                        return c !== undefined ? c : palette.highlight
                    }
                    onClicked: root.modal.positiveButtonActivated()
                }
            }
        }

        // A slim bar inside the card's inset, clear of its rounded corner.
        Rectangle {
            objectName: "scrollIndicator"
            visible: scroller.interactive
            readonly property real track: scroller.height - 8 - 12
            x: parent.width - 2 - width
            y: scroller.y + 8 + track * scroller.visibleArea.yPosition
            width: 4
            height: Math.max(24, track * scroller.visibleArea.heightRatio)
            radius: 2
            color: Qt.rgba(0, 0, 0, 64 / 255)
        }

        IAMCloseButton {
            id: closeButton
            objectName: "closeButton"
            palette.highlight: root.keyboardNavigated ? root.palette.highlight : "transparent"
            x: parent.width - width
            width: root.style.closeButtonArea
            height: root.style.closeButtonArea
            focus: true
            onClicked: root.modal.closeButtonActivated()
        }
    }
}
