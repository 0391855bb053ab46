// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CheapDerivation.h"

#include <cstddef>

#include <dlfcn.h>
#include <sodium.h>

namespace {

bool isCheap = false;

} // namespace

// Comes before libsodium's, which does the work.
extern "C" int crypto_pwhash(unsigned char* key, unsigned long long keyBytes, const char* password,
                             unsigned long long passwordBytes, const unsigned char* salt,
                             unsigned long long passes, std::size_t memory, int algorithm) {
    static const auto next =
        reinterpret_cast<decltype(&crypto_pwhash)>(::dlsym(RTLD_NEXT, "crypto_pwhash"));
    return isCheap ? next(key, keyBytes, password, passwordBytes, salt, crypto_pwhash_OPSLIMIT_MIN,
                          crypto_pwhash_MEMLIMIT_MIN, algorithm)
                   : next(key, keyBytes, password, passwordBytes, salt, passes, memory, algorithm);
}

void Tessel::Tests::deriveCheaply() {
    isCheap = true;
}
