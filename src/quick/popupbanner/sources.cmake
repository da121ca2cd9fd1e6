# Sources of this area: append to velmora_qml_sources (C++ of QML types), velmora_qml_files (QML)
# or target_sources(velmora_quick ...) (what the facade calls directly). Paths relative to src/quick.
list(APPEND velmora_qml_sources
    popupbanner/iambannerplacement.cpp popupbanner/iambannerplacement.h
    popupbanner/iamcardshadow.cpp popupbanner/iamcardshadow.h
    popupbanner/iamcloseglyph.cpp popupbanner/iamcloseglyph.h)
list(APPEND velmora_qml_files
    popupbanner/IAMBannerButton.qml
    popupbanner/IAMCloseButton.qml
    popupbanner/IAMPopupBanner.qml)
