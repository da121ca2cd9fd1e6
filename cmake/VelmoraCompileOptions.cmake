# Warning flags and strict Qt defines for the project's own targets only;
# third-party and Qt headers are left alone.
function(velmora_target_defaults target)
    target_compile_options(${target} PRIVATE -Wall -Wextra)
    if(VELMORA_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    target_compile_definitions(${target} PRIVATE
        QT_NO_CAST_FROM_ASCII
        QT_NO_CAST_TO_ASCII
        QT_NO_URL_CAST_FROM_STRING
        QT_NO_CAST_FROM_BYTEARRAY
        QT_NO_KEYWORDS
        QT_NO_FOREACH
        QT_USE_QSTRINGBUILDER)
endfunction()

if(VELMORA_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
endif()
