target_sources(velmora_core PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/messageservice.cpp ${CMAKE_CURRENT_LIST_DIR}/messageservice.h
    ${CMAKE_CURRENT_LIST_DIR}/reactionbackgroundtask.cpp ${CMAKE_CURRENT_LIST_DIR}/reactionbackgroundtask.h
    ${CMAKE_CURRENT_LIST_DIR}/reactionretrypolicy.cpp ${CMAKE_CURRENT_LIST_DIR}/reactionretrypolicy.h
    ${CMAKE_CURRENT_LIST_DIR}/widgetref.h)
