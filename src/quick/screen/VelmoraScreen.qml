import QtQuick
import Velmora.InAppMessaging

// Marks a screen of a QML host: a screen view each time it becomes visible, its popup banners
// over the content, and its name for the embedded banners inside it.
//     VelmoraScreen {
//         screenName: "home"
//         customParameter: function () { return [CustomParameter.string("plan", "gold")] }
//         HomePage { anchors.fill: parent }
//     }
Item {
    id: root

    property string screenName
    /// A function returning CustomParameter entries; called at each fetch, not before.
    property var customParameter
    /// What embedded banners inside inherit; the innermost screen wins.
    readonly property string iamScreenName: screenName
    /// True while the screen is on show, from its screen view until it disappears.
    readonly property alias shown: modifier.shown

    default property alias content: contentArea.data

    Item {
        id: contentArea
        anchors.fill: parent
    }

    IAMScreenModifier {
        id: modifier
        anchors.fill: parent
        screenName: root.screenName
        customParameter: root.customParameter
    }

    IAMPopupOverlay {
        anchors.fill: parent
        screenName: root.screenName
        active: modifier.shown
    }
}
