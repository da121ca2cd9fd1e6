file(REMOVE_RECURSE ${PREFIX} ${CONSUMER_BUILD})

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "failed (${result}): ${ARGN}\n${out}\n${err}")
    endif()
    set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX})
run(${CMAKE_COMMAND} -S ${CONSUMER_SOURCE} -B ${CONSUMER_BUILD} -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${PREFIX}
    "-DCMAKE_CXX_FLAGS=${SANITIZER_FLAGS}"
    "-DCMAKE_EXE_LINKER_FLAGS=${SANITIZER_FLAGS}")
run(${CMAKE_COMMAND} --build ${CONSUMER_BUILD})
run(${CONSUMER_BUILD}/consumer)
if(NOT last_output MATCHES "consumer ok")
    message(FATAL_ERROR "unexpected consumer output: ${last_output}")
endif()

if(QML_RUNNER)
    run(${CMAKE_COMMAND} -E env QML_IMPORT_PATH=${PREFIX}/lib/qml
        ${QML_RUNNER} -input ${QML_TEST})
    if(NOT last_output MATCHES "Totals: [1-9][0-9]* passed, 0 failed")
        message(FATAL_ERROR "unexpected QML test output: ${last_output}")
    endif()
endif()
