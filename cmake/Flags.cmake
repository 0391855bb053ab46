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

# tessel_precompile(TARGET HEADER...) compiles headers that most sources of TARGET include once.
function(tessel_precompile target)
    if(TESSEL_PRECOMPILE)
        target_precompile_headers(${target} PRIVATE ${ARGN})
        tessel_use_precompiled(${target})
    endif()
endfunction()

# tessel_reuse_precompiled(TARGET FROM) uses what was precompiled for FROM, a target of the tests. The
# macros must be the same, so those of Qt Test are defined also where it is not linked.
function(tessel_reuse_precompiled target from)
    if(TESSEL_PRECOMPILE)
        target_precompile_headers(${target} REUSE_FROM ${from})
        target_compile_definitions(${target} PRIVATE
            $<TARGET_PROPERTY:Qt6::Test,INTERFACE_COMPILE_DEFINITIONS>)
        tessel_use_precompiled(${target})
    endif()
endfunction()

function(tessel_use_precompiled target)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # Without the first ccache cannot tell what a source includes. The second makes programs take
        # what was precompiled for a library, whatever Qt asks of them.
        target_compile_options(${target} PRIVATE -fpch-preprocess -fPIC)
    endif()
endfunction()

# tessel_unite(TARGET [HEADER...]) compiles several sources of TARGET at a time, which takes a quarter
# of the time where nothing has been built before. Otherwise it precompiles the headers.
function(tessel_unite target)
    if(TESSEL_UNITE)
        set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 12)
    elseif(ARGN)
        tessel_precompile(${target} ${ARGN})
    endif()
endfunction()
