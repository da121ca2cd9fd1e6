import QtQuick
import Velmora.InAppMessaging

// One popup banner of a screen: the card the Widgets banner draws, placed by the same rules in
// its screen's overlay, reporting to the popup banner store. A banner with text shows at once,
// with a placeholder where its image loads; one without waits for its image and is never shown
// when the image fails.
Item {
    id: root
    objectName: "popupBanner"

    /// The store's entry for the banner: scenarioId, screenName, position, message.
    property var banner
    /// The overlay the banner is placed in.
    property Item target
    /// Whether it comes in with its row's transition.
    property bool animated: true

    readonly property string scenarioId: banner ? banner.scenarioId : ""
    readonly property string position: banner ? banner.position : ""
    readonly property var message: banner ? banner.message : undefined
    readonly property var creative: message ? message.creative : undefined
    readonly property bool hasTitle: !!creative && creative.hasTitle && creative.title.text.length > 0
    readonly property bool hasBody: !!creative && creative.hasBody && creative.body.text.length > 0
    readonly property bool hasButton: !!creative && creative.hasButton && creative.button.text.length > 0
    readonly property bool hasTextContent: hasTitle || hasBody || hasButton
    readonly property string imageUrl: creative ? creative.image.url : ""
    readonly property string imageLinkUrl: creative ? creative.image.linkUrl : ""
    /// The load has ended, with or without an image.
    readonly property bool imageSettled: imageUrl.length === 0 || image.status === IAMAnimatedImage.Ready
                                         || image.status === IAMAnimatedImage.Error
    readonly property bool imageLoaded: imageUrl.length > 0 && image.status === IAMAnimatedImage.Ready
    readonly property bool shown: d.appeared
    readonly property string row: position.indexOf("top") === 0 ? "top"
                                : position.indexOf("center") === 0 ? "center" : "bottom"
    readonly property Item card: card

    /// Goes away with its row's transition (or at once), then destroys itself.
    function leave(animated) {
        if (d.leaving)
            return
        d.leaving = true
        if (animated && d.progress > 0) {
            transition.to = 0
            transition.restart()
        } else {
            root.destroy()
        }
    }

    QtObject {
        id: d
        readonly property var style: placement.style
        readonly property var store: IAMSupport.popupBannerStore
        property real progress: 0
        property bool appeared: false
        property bool leaving: false
        property bool openReported: false
        property bool failureReported: false
        readonly property real imageHeight: !root.imageSectionVisible ? 0
            : Math.round(placement.cardWidth * (root.imageLoaded ? placement.imageRatio(image.sourceSize)
                                                                 : style.placeholderImageRatio))
        readonly property bool buttonOnly: root.hasButton && !root.hasTitle && !root.hasBody
        readonly property real textHeight: !root.hasTextContent ? 0
            : (buttonOnly ? style.textTopButtonOnly : style.textTop) + textSection.height + style.textBottom

        function appear() {
            if (appeared || leaving)
                return
            appeared = true
            if (root.animated) {
                transition.to = 1
                transition.restart()
            } else {
                progress = 1
            }
        }

        function settle() {
            if (!root.imageSettled || leaving || !root.banner)
                return
            if (!root.imageLoaded && !root.hasTextContent) {
                // Nothing to show: the store reports the error and takes the banner away.
                if (!failureReported) {
                    failureReported = true
                    store.handleImageLoadFailure(root.position, root.scenarioId)
                }
                return
            }
            appear()
            if (!openReported) {
                openReported = true
                store.sendOpenReactionIfNeeded(root.position, root.scenarioId)
            }
        }
    }

    readonly property bool imageSectionVisible: imageUrl.length > 0 && !(imageSettled && !imageLoaded)

    IAMBannerPlacement {
        id: placement
        target: root.target
        message: root.message
        contentHeight: d.imageHeight + d.textHeight
    }

    x: placement.rootRect.x
    y: placement.rootRect.y
    width: placement.rootRect.width
    height: placement.rootRect.height
    opacity: d.progress
    enabled: d.appeared && !d.leaving

    // Top: from above the overlay; bottom: from below it; centre: grows from its middle.
    transform: [
        Scale {
            origin.x: root.width / 2
            origin.y: root.height / 2
            xScale: root.row === "center" ? d.progress : 1
            yScale: root.row === "center" ? d.progress : 1
        },
        Translate {
            y: root.row === "top" ? -(1 - d.progress) * (root.y + root.height)
             : root.row === "bottom" && root.target ? (1 - d.progress) * (root.target.height - root.y)
             : 0
        }
    ]

    NumberAnimation {
        id: transition
        target: d
        property: "progress"
        duration: d.style.fadeDuration
        easing.type: Easing.BezierSpline
        easing.bezierCurve: [0.42, 0, 0.58, 1, 1, 1]
        onFinished: {
            if (d.leaving)
                root.destroy()
        }
    }

    IAMCardShadow {
        x: card.x - extent
        y: card.y - extent
        width: card.width + 2 * extent
        height: card.height + 2 * extent
        cardRect: Qt.rect(extent, extent, card.width, card.height)
        color: Qt.rgba(0, 0, 0, d.style.shadowOpacity)
        offset: d.style.shadowOffset
        blurRadius: d.style.shadowRadius
    }

    Rectangle {
        id: card
        objectName: "card"
        x: placement.cardRect.x
        y: placement.cardRect.y
        width: placement.cardRect.width
        height: placement.cardRect.height
        clip: true
        color: {
            const c = root.creative ? IAMSupport.colors.hexColor(root.creative.backgroundColor) : undefined
            return c !== undefined ? c : "white"
        }

        Accessible.role: Accessible.Grouping
        Accessible.name: root.hasTitle ? root.creative.title.text : qsTr("Banner")
        Accessible.description: root.hasBody ? root.creative.body.text : ""

        // A tap anywhere on the card follows the image's link.
        MouseArea {
            anchors.fill: parent
            cursorShape: root.imageLinkUrl.length > 0 ? Qt.PointingHandCursor : Qt.ArrowCursor
            onClicked: d.store.handleClick(root.position, root.scenarioId, root.imageLinkUrl)
        }

        IAMAnimatedImage {
            id: image
            objectName: "coverImage"
            width: parent.width
            height: d.imageHeight
            visible: root.imageSectionVisible
            source: root.imageUrl
            fillMode: IAMAnimatedImage.Fill

            Accessible.role: Accessible.Link
            Accessible.name: qsTr("Open link")
            Accessible.ignored: root.imageLinkUrl.length === 0
            Accessible.onPressAction: d.store.handleClick(root.position, root.scenarioId, root.imageLinkUrl)

            Rectangle {
                anchors.fill: parent
                visible: !root.imageLoaded
                color: IAMSupport.colors.coverImagePlaceholderColor
            }
        }

        Item {
            id: textSection
            objectName: "textSection"
            visible: root.hasTextContent
            x: d.style.textSides
            y: d.imageHeight + (d.buttonOnly ? d.style.textTopButtonOnly : d.style.textTop)
            width: Math.max(0, parent.width - 2 * d.style.textSides)
            height: button.visible ? button.y + button.height
                  : body.visible ? body.y + body.height
                  : title.visible ? title.height : 0

            IAMBannerText {
                id: title
                objectName: "title"
                visible: root.hasTitle
                width: parent.width
                height: implicitHeight
                text: root.hasTitle ? root.creative.title.text : ""
                fontSize: d.style.titlePixelSize
                weight: Font.Bold
                textColorHex: root.hasTitle ? root.creative.title.textColor : ""
                backgroundColorHex: root.hasTitle ? root.creative.title.backgroundColor : ""
                defaultTextColor: IAMSupport.colors.defaultTitleTextColor
                backgroundPadding: d.style.textBackgroundPadding
                lineLimit: d.style.maximumLines
            }

            IAMBannerText {
                id: body
                objectName: "body"
                visible: root.hasBody
                y: title.visible ? title.height + d.style.stackSpacing : 0
                width: parent.width
                height: implicitHeight
                text: root.hasBody ? root.creative.body.text : ""
                fontSize: d.style.bodyPixelSize
                weight: Font.Medium
                textColorHex: root.hasBody ? root.creative.body.textColor : ""
                backgroundColorHex: root.hasBody ? root.creative.body.backgroundColor : ""
                defaultTextColor: IAMSupport.colors.defaultBodyTextColor
                backgroundPadding: d.style.textBackgroundPadding
                lineLimit: d.style.maximumLines
            }

            IAMBannerButton {
                id: button
                objectName: "button"
                visible: root.hasButton
                y: body.visible ? body.y + body.height + d.style.spacingBeforeButton
                 : title.visible ? title.height + d.style.spacingBeforeButton : 0
                width: parent.width
                height: d.style.buttonHeight
                radius: d.style.buttonCornerRadius
                text: root.hasButton ? root.creative.button.text : ""
                textColor: {
                    const c = root.hasButton ? IAMSupport.colors.hexColor(root.creative.button.textColor) : undefined
                    return c !== undefined ? c : "white"
                }
                fillColor: {
                    const c = root.hasButton ? IAMSupport.colors.hexColor(root.creative.button.backgroundColor) : undefined
                    return c !== undefined ? c : palette.highlight
                }
                onClicked: d.store.handleClick(root.position, root.scenarioId, root.creative.button.linkUrl)
            }
        }

        IAMCloseButton {
            objectName: "closeButton"
            x: parent.width - width
            y: 0
            width: d.style.closeButtonArea
            height: d.style.closeButtonArea
            onClicked: d.store.handleClose(root.position, root.scenarioId)
        }
    }

    onImageSettledChanged: d.settle()
    Component.onCompleted: {
        if (hasTextContent)
            d.appear()
        d.settle()
    }
    Component.onDestruction: IAMSupport.reportBannerDisappeared(position)
}
