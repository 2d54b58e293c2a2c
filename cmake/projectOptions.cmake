# Warnings and sanitizers for every target of the project, switched by the presets.

if(QUORVEL_SANITIZER STREQUAL "address")
    set(QUORVEL_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=all
                                -fno-omit-frame-pointer)
elseif(QUORVEL_SANITIZER STREQUAL "thread")
    set(QUORVEL_SANITIZER_FLAGS -fsanitize=thread -fno-omit-frame-pointer)
elseif(NOT QUORVEL_SANITIZER STREQUAL "")
    message(FATAL_ERROR "QUORVEL_SANITIZER must be empty, address or thread")
endif()

if(QUORVEL_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang" OR NOT QUORVEL_SANITIZER STREQUAL "address")
        message(FATAL_ERROR "QUORVEL_FUZZ needs clang and QUORVEL_SANITIZER=address (preset fuzz)")
    endif()
    # Coverage for the fuzzer in everything it reaches; only fuzz targets link its runtime.
    list(APPEND QUORVEL_SANITIZER_FLAGS -fsanitize=fuzzer-no-link)
endif()

function(quorvel_target_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
    if(QUORVEL_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()

function(quorvel_target_options target)
    quorvel_target_warnings(${target})
    if(QUORVEL_SANITIZER_FLAGS)
        target_compile_options(${target} PRIVATE ${QUORVEL_SANITIZER_FLAGS})
        target_link_options(${target} PRIVATE ${QUORVEL_SANITIZER_FLAGS})
    endif()
endfunction()
