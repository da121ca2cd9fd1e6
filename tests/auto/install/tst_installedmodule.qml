import QtQuick
import QtTest
import Velmora.InAppMessaging

// What a QML host that only has the installed module on its import path can reach.
TestCase {
    name: "InstalledModule"

    IAMBannerText {
        id: text
        text: "Spring sale"
        backgroundColorHex: "FF0000"
    }

    function test_typesAndFacade() {
        compare(text.padding, 8)
        compare(text.color, "#ff0000")
        VelmoraInAppMessaging.strictLogin = true
        verify(VelmoraInAppMessaging.strictLogin)
        VelmoraInAppMessaging.strictLogin = false
    }
}
