# Warnings and sanitizers for every target of the project, switched by the presets.

if(QUORVEL_SANITIZER STREQUAL "address")
    set(QUORVEL_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=all
                                -fno-omit-frame-pointer)
elseif(QUORVEL_SANITIZER STREQUAL "thread")
    set(QUORVEL_SANITIZER_FLAGS -fsanitize=thread -fno-omit-frame-pointer)
elseif(NOT QUORVEL_SANITIZER STREQUAL "")
    message(FATAL_ERROR "QUORVEL_SANITIZER must be empty, address or thread")
endif()

function(quorvel_target_options target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
    if(QUORVEL_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(QUORVEL_SANITIZER_FLAGS)
        target_compile_options(${target} PRIVATE ${QUORVEL_SANITIZER_FLAGS})
        target_link_options(${target} PRIVATE ${QUORVEL_SANITIZER_FLAGS})
    endif()
endfunction()
