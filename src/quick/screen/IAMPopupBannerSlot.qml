import QtQuick
import Velmora.InAppMessaging

// One position of the overlay: the view of the store's banner there, one view per scenario,
// so that another banner at the same place comes in with a transition of its own.
Item {
    id: slot

    property string position
    property string screenName
    property bool active
    readonly property IAMPopupBanner view: d.view

    QtObject {
        id: d
        property IAMPopupBanner view: null
    }

    function sync(animated) {
        const entry = IAMSupport.popupBannerStore.popupBanners[position]
        // Nested screens would each show the banners; only the screen they were fetched for does.
        const wanted = active && entry !== undefined && entry.screenName === screenName ? entry : null
        if (d.view && (!wanted || d.view.scenarioId !== wanted.scenarioId)) {
            d.view.leave(animated)
            d.view = null
        }
        if (wanted && !d.view)
            d.view = bannerComponent.createObject(slot, { banner: wanted, animated: animated })
    }

    Component {
        id: bannerComponent
        IAMPopupBanner {
            target: slot
        }
    }

    Connections {
        target: IAMSupport.popupBannerStore
        function onPopupBannerChanged(changed, animated) {
            if (changed === slot.position)
                slot.sync(animated)
        }
    }

    onActiveChanged: sync(false)
    onScreenNameChanged: sync(false)
    Component.onCompleted: sync(false)
}
