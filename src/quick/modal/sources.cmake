# Sources of this area: append to velmora_qml_sources (C++ of QML types), velmora_qml_files (QML)
# or target_sources(velmora_quick ...) (what the facade calls directly). Paths relative to src/quick.
target_sources(velmora_quick PRIVATE
    modal/quickpopupmodalpresenter.cpp modal/quickpopupmodalpresenter.h
    modal/quickpopupmodalview.cpp modal/quickpopupmodalview.h)
list(APPEND velmora_qml_files
    modal/IAMPopupModal.qml)
