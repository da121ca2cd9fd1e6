import QtQuick
import Velmora.InAppMessaging

// The popup banners of a screen over its content: three rows of three slots. Plain items take
// no input, so only the cards themselves do.
Item {
    id: overlay

    property string screenName
    /// Banners are shown only while the screen is on show.
    property bool active

    Repeater {
        model: [
            { row: "top", positions: ["top_left", "top", "top_right"] },
            { row: "center", positions: ["center_left", "center", "center_right"] },
            { row: "bottom", positions: ["bottom_left", "bottom", "bottom_right"] }
        ]
        delegate: Item {
            id: row
            required property var modelData
            objectName: modelData.row + "Row"
            width: overlay.width
            height: overlay.height

            Repeater {
                model: row.modelData.positions
                delegate: IAMPopupBannerSlot {
                    required property string modelData
                    position: modelData
                    width: overlay.width
                    height: overlay.height
                    screenName: overlay.screenName
                    active: overlay.active
                }
            }
        }
    }
}
