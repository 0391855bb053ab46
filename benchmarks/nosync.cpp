// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Preloaded into a benchmark, it takes away what makes the drive write, so that the cost of the
// syncs can be told from that of the work. The product never sees it.

#include <fcntl.h>
#include <unistd.h>

extern "C" {

int fsync(int) {
    return 0;
}

int fdatasync(int) {
    return 0;
}

int sync_file_range(int, off64_t, off64_t, unsigned) {
    return 0;
}

} // extern "C"
