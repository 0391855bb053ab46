// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <memory>

namespace Tessel::Core {

/// SHA-256 (FIPS 180-4) of a file's bytes, fed in pieces.
///
/// It goes through libcrypto, which uses the processor's SHA instructions: an import would
/// otherwise spend most of its time here.
class FileDigest {
public:
    FileDigest();
    ~FileDigest();
    Q_DISABLE_COPY_MOVE(FileDigest)

    /// @return false when libcrypto fails; result() is then empty.
    [[nodiscard]] bool addData(QByteArrayView bytes);
    /// The 32-byte digest of everything added so far, once; empty after a failure.
    [[nodiscard]] QByteArray result();

private:
    struct Context;
    std::unique_ptr<Context> m_context;
};

} // namespace Tessel::Core
