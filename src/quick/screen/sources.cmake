# Sources of this area: append to velmora_qml_sources (C++ of QML types), velmora_qml_files (QML)
# or target_sources(velmora_quick ...) (what the facade calls directly). Paths relative to src/quick.
list(APPEND velmora_qml_sources
    screen/iamscreenmodifier.cpp screen/iamscreenmodifier.h)
list(APPEND velmora_qml_files
    screen/IAMPopupBannerSlot.qml
    screen/IAMPopupOverlay.qml
    screen/VelmoraScreen.qml)
