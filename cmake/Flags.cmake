# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

# All compiler and linker flags: each of our targets links tessel_flags.
add_library(tessel_flags INTERFACE)
target_include_directories(tessel_flags INTERFACE ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(tessel_flags INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_KEYWORDS QT_NO_FOREACH)
target_compile_options(tessel_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow
    -Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wformat=2
    $<$<BOOL:${TESSEL_WERROR}>:-Werror>)

if(TESSEL_BUILD_FUZZERS)
    # Lets libFuzzer see which branches an input reaches.
    target_compile_options(tessel_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(TESSEL_SANITIZE)
    target_compile_options(tessel_flags INTERFACE
        -fsanitize=${TESSEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(tessel_flags INTERFACE -fsanitize=${TESSEL_SANITIZE})
else()
    # Hardening has no measurable cost here.
    target_compile_options(tessel_flags INTERFACE
        -fstack-protector-strong -fstack-clash-protection
        $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
        $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
    target_link_options(tessel_flags INTERFACE -Wl,-z,relro,-z,now -Wl,-z,noexecstack)
endif()

# tessel_optimise_debug(TARGET) optimises the program's own code in debug builds. The tests' code is
# not: optimising it takes longer than it saves.
function(tessel_optimise_debug target)
    if(TESSEL_OPTIMISE_DEBUG)
        target_compile_options(${target} PRIVATE $<$<CONFIG:Debug>:-O1>)
    endif()
endfunction()

# tessel_precompile(TARGET HEADER...) compiles headers that most sources of TARGET include once. The
# installed program is built without, which shows a source that forgets to include what it uses.
function(tessel_precompile target)
    if(NOT TESSEL_PRECOMPILE)
        return()
    endif()
    target_precompile_headers(${target} PRIVATE ${ARGN})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # Without it ccache cannot tell what a source includes.
        target_compile_options(${target} PRIVATE -fpch-preprocess)
    endif()
endfunction()
