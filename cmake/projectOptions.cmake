# Warnings, sanitizers and hardening for every target of the project, switched by the presets.

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

# Hardening, as distributions build programs that hold private data: a canary in every function
# with a local array or address taken, and fortified libc calls. On Linux also a position-
# independent executable (macOS's default), stack probes against stack clashes, and relocations
# made read-only once all are resolved at start (an ELF feature that Mach-O does not have).
# Fortified calls need the optimiser, and the sanitizers bring checks of their own.
set(QUORVEL_HARDENING_FLAGS -fstack-protector-strong)
if(NOT APPLE)
    list(APPEND QUORVEL_HARDENING_FLAGS -fPIE -fstack-clash-protection)
    set(QUORVEL_HARDENING_LINK_FLAGS -pie -Wl,-z,relro,-z,now)
endif()
if(QUORVEL_SANITIZER STREQUAL "")
    # Undefined first: some compilers define it already, and a redefinition is a warning.
    set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
    list(APPEND QUORVEL_HARDENING_FLAGS
         $<${optimised}:-U_FORTIFY_SOURCE> $<${optimised}:-D_FORTIFY_SOURCE=2>)
endif()

function(quorvel_target_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
    if(QUORVEL_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()

function(quorvel_target_options target)
    quorvel_target_warnings(${target})
    target_compile_options(${target} PRIVATE ${QUORVEL_HARDENING_FLAGS})
    target_link_options(${target} PRIVATE ${QUORVEL_HARDENING_LINK_FLAGS})
    if(QUORVEL_SANITIZER_FLAGS)
        target_compile_options(${target} PRIVATE ${QUORVEL_SANITIZER_FLAGS})
        target_link_options(${target} PRIVATE ${QUORVEL_SANITIZER_FLAGS})
    endif()
endfunction()
