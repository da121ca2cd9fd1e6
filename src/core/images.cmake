# Image loading and decoding, and the frame timing the animated image views share.
target_sources(velmora_core PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/animatedimagedecoder.cpp ${CMAKE_CURRENT_LIST_DIR}/animatedimagedecoder.h
    ${CMAKE_CURRENT_LIST_DIR}/animatedimagesource.cpp ${CMAKE_CURRENT_LIST_DIR}/animatedimagesource.h
    ${CMAKE_CURRENT_LIST_DIR}/animationclock.cpp ${CMAKE_CURRENT_LIST_DIR}/animationclock.h
    ${CMAKE_CURRENT_LIST_DIR}/frameselection.cpp ${CMAKE_CURRENT_LIST_DIR}/frameselection.h
    ${CMAKE_CURRENT_LIST_DIR}/imageloader.cpp ${CMAKE_CURRENT_LIST_DIR}/imageloader.h
    ${CMAKE_CURRENT_LIST_DIR}/loadedimage.cpp ${CMAKE_CURRENT_LIST_DIR}/loadedimage.h
)
