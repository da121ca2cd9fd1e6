# Presentation state: what is shown where, independent of the front-end drawing it.
target_sources(velmora_core PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/actionclassification.cpp ${CMAKE_CURRENT_LIST_DIR}/actionclassification.h
    ${CMAKE_CURRENT_LIST_DIR}/embeddedbannerstore.cpp ${CMAKE_CURRENT_LIST_DIR}/embeddedbannerstore.h
    ${CMAKE_CURRENT_LIST_DIR}/messagedisplaycoordinator.cpp ${CMAKE_CURRENT_LIST_DIR}/messagedisplaycoordinator.h
    ${CMAKE_CURRENT_LIST_DIR}/popupbannerpresentertype.h
    ${CMAKE_CURRENT_LIST_DIR}/popupbannerstore.cpp ${CMAKE_CURRENT_LIST_DIR}/popupbannerstore.h
    ${CMAKE_CURRENT_LIST_DIR}/popupmodalpresentertype.h
)
