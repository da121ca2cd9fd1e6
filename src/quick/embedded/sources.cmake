# Sources of this area: append to velmora_qml_sources (C++ of QML types), velmora_qml_files (QML)
# or target_sources(velmora_quick ...) (what the facade calls directly). Paths relative to src/quick.
list(APPEND velmora_qml_sources
    embedded/iamembeddedbannerscope.cpp embedded/iamembeddedbannerscope.h)
list(APPEND velmora_qml_files
    embedded/IAMEmbeddedBanner.qml
    embedded/IAMShimmerView.qml)
