# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

# Everything that the product links. The message for a missing library names its Debian package.
function(tessel_missing what package)
    message(FATAL_ERROR
        "${what} was not found. On Debian: apt-get install ${package} "
        "(scripts/run and scripts/test do it for you).")
endfunction()

find_package(Qt6 6.4 QUIET COMPONENTS Core Gui Widgets)
if(NOT Qt6_FOUND)
    tessel_missing("Qt 6.4 or newer (Core, Gui, Widgets)" qt6-base-dev)
endif()
if(TESSEL_BUILD_TESTS OR TESSEL_BUILD_BENCHMARKS OR TESSEL_BUILD_FUZZERS)
    find_package(Qt6 6.4 QUIET COMPONENTS Test)
    if(NOT Qt6Test_FOUND)
        tessel_missing("Qt Test" qt6-base-dev)
    endif()
    # It also defines each target's folders, for QFINDTESTDATA. No test uses that, and no two targets
    # could share precompiled headers.
    set_property(TARGET Qt6::Test PROPERTY INTERFACE_COMPILE_DEFINITIONS QT_TESTLIB_LIB)
endif()

find_package(PkgConfig QUIET)
if(NOT PkgConfig_FOUND)
    tessel_missing("pkg-config" pkg-config)
endif()
pkg_check_modules(sodium QUIET IMPORTED_TARGET libsodium>=1.0.18)
if(NOT sodium_FOUND)
    tessel_missing("libsodium 1.0.18 or newer" libsodium-dev)
endif()

# libcrypto computes the file digests; nothing else of OpenSSL is used.
find_package(OpenSSL 3.0 QUIET COMPONENTS Crypto)
if(NOT OPENSSL_FOUND)
    tessel_missing("OpenSSL 3 libcrypto" libssl-dev)
endif()

if(TESSEL_BUILD_BENCHMARKS)
    find_package(benchmark QUIET)
    if(NOT benchmark_FOUND)
        tessel_missing("Google Benchmark" libbenchmark-dev)
    endif()
endif()
