import QtQuick
import Velmora.InAppMessaging

// A slot in the host's layout for the embedded banner of `componentId`. It shows the banner
// only on its own screen (the explicit `screenName`, else the enclosing VelmoraScreen's), grows
// to the banner's height once the banner's image has loaded or it has text, and otherwise
// takes no room, or a shimmer while loading when `showsLoadingPlaceholder` is set.
//
//     IAMEmbeddedBanner { componentId: "home_hero"; showsLoadingPlaceholder: true; width: parent.width }
Item {
    id: root

    property string componentId
    /// A screen name, or undefined to inherit the enclosing VelmoraScreen's.
    property var screenName
    property bool showsLoadingPlaceholder: false
    /// The screen it shows banners for: explicit or inherited, undefined when there is none.
    readonly property var resolvedScreenName: scope.screenName

    readonly property QtObject store: IAMSupport.embeddedBannerStore
    readonly property var banner: store.embeddedBanners[componentId]
    readonly property bool onScreen: scope.screenName !== undefined && banner !== undefined
        && store.currentScreenName === scope.screenName
    readonly property bool revealed: content.item !== null && content.item.revealed
    readonly property bool placeholderShown: showsLoadingPlaceholder && scope.screenName !== undefined
        && (banner === undefined ? store.isLoading : content.item !== null && content.item.pending)

    implicitHeight: revealed ? content.item.implicitHeight : placeholderShown ? shimmer.height : 0

    IAMEmbeddedBannerScope {
        id: scope
        item: root
        componentId: root.componentId
        explicitScreenName: root.screenName
    }

    IAMShimmerView {
        id: shimmer
        objectName: "iamEmbeddedShimmer"
        visible: root.placeholderShown
        width: root.width
        height: Math.min(Math.round(root.width * 0.5), 200)
    }

    Loader {
        id: content
        width: root.width
        active: root.onScreen
        sourceComponent: Rectangle {
            id: card

            readonly property var creative: root.banner.message.creative
            readonly property string imageUrl: creative.image.url
            readonly property bool linked: creative.image.linkUrl !== ""
            readonly property string titleText: creative.hasTitle ? creative.title.text : ""
            readonly property string bodyText: creative.hasBody ? creative.body.text : ""
            // The button does not count: a banner of a button alone shows nothing.
            readonly property bool hasText: titleText !== "" || bodyText !== ""
            readonly property bool imageLoaded: image.status === IAMAnimatedImage.Ready
            readonly property bool loadFinished: imageUrl === "" || imageLoaded
                || image.status === IAMAnimatedImage.Error
            readonly property bool pending: !loadFinished
            readonly property bool revealed: loadFinished && (imageLoaded || hasText)
            readonly property var backgroundColorValue: IAMSupport.colors.hexColor(creative.backgroundColor)

            objectName: "iamEmbeddedContent"
            implicitHeight: column.implicitHeight
            color: backgroundColorValue !== undefined ? backgroundColorValue : "white"
            opacity: revealed ? 1 : 0
            activeFocusOnTab: revealed

            Accessible.role: Accessible.Button
            Accessible.name: titleText !== "" ? titleText : bodyText !== "" ? bodyText : qsTr("Banner")
            Accessible.description: titleText !== "" ? bodyText : ""
            Accessible.onPressAction: click()

            function click() {
                root.store.handleClick(root.componentId)
            }
            function reportOpenIfRevealed() {
                if (revealed)
                    root.store.sendOpenReactionIfNeeded(root.componentId, imageUrl)
            }
            onRevealedChanged: reportOpenIfRevealed()
            onImageUrlChanged: Qt.callLater(reportOpenIfRevealed)
            Component.onCompleted: reportOpenIfRevealed()
            Keys.onSpacePressed: click()
            Keys.onReturnPressed: click()
            Keys.onEnterPressed: click()

            Column {
                id: column
                width: parent.width
                spacing: 8

                IAMAnimatedImage {
                    id: image
                    objectName: "iamEmbeddedImage"
                    source: card.imageUrl
                    fillMode: IAMAnimatedImage.Fill
                    visible: card.revealed && card.imageLoaded && sourceSize.width > 0
                    width: parent.width
                    height: visible ? Math.min(Math.round(width * sourceSize.height / sourceSize.width), 400) : 0
                    Accessible.role: card.linked ? Accessible.Link : Accessible.Graphic
                    Accessible.name: card.linked ? qsTr("Open link") : ""
                    Accessible.ignored: !card.linked
                }
                IAMBannerText {
                    objectName: "iamEmbeddedTitle"
                    visible: card.revealed && text !== ""
                    width: parent.width
                    text: card.titleText
                    fontSize: 14
                    weight: Font.Bold
                    textColorHex: card.creative.title.textColor
                    defaultTextColor: IAMSupport.colors.defaultTitleTextColor
                    backgroundColorHex: card.creative.title.backgroundColor
                    backgroundPadding: 8
                }
                IAMBannerText {
                    objectName: "iamEmbeddedBody"
                    visible: card.revealed && text !== ""
                    width: parent.width
                    text: card.bodyText
                    fontSize: 14
                    weight: Font.Medium
                    textColorHex: card.creative.body.textColor
                    defaultTextColor: IAMSupport.colors.defaultBodyTextColor
                    backgroundColorHex: card.creative.body.backgroundColor
                    backgroundPadding: 8
                }
            }

            MouseArea {
                anchors.fill: parent
                enabled: card.revealed
                cursorShape: Qt.PointingHandCursor
                onClicked: card.click()
            }
        }
    }
}
