list(APPEND velmora_qml_sources
    facade/qmlfacade.cpp facade/qmlfacade.h
    facade/qmlsupport.cpp facade/qmlsupport.h)
list(APPEND velmora_qml_files
    facade/IAMBannerText.qml)
