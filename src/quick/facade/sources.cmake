# Sources of this area: append to velmora_qml_sources (C++ of QML types), velmora_qml_files (QML)
# or target_sources(velmora_quick ...) (what the facade calls directly). Paths relative to src/quick.
list(APPEND velmora_qml_sources
    facade/qmlcustomparameter.cpp facade/qmlcustomparameter.h
    facade/qmlfacade.cpp facade/qmlfacade.h
    facade/qmlsupport.cpp facade/qmlsupport.h)
list(APPEND velmora_qml_files
    facade/CustomParameter.js
    facade/IAMBannerText.qml)
