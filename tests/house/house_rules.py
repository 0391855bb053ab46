# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""The rules that can be checked by reading the sources: which module may include and link which,
and what every file must contain. Each rule takes the top folder of the sources and yields one line
for each fault, such as "src/core/Vault.cpp:7: ...".

The modules are separate because the engine must be usable, and testable, without a window, and
because only the window contains texts for the user."""

import re

# REUSE-IgnoreStart
LICENCE = ("SPDX-FileCopyrightText: 2026 The Tessel developers",
           "SPDX-License-Identifier: GPL-3.0-or-later")
# REUSE-IgnoreEnd

SOURCE_FOLDERS = ("src", "tests", "benchmarks", "scripts", "cmake", ".ci")
COMMENT_MARKS = {".cpp": "//", ".h": "//", ".py": "#", ".sh": "#", ".cmake": "#"}

INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)')
# Headers of the C++ library have no dots in their names. Of the system's, the engine uses these.
CXX_HEADER = re.compile(r"[a-z_0-9]+")
SYSTEM_HEADER = re.compile(r"(sys|linux)/[a-z_]+\.h|(dirent|unistd|fcntl|errno|signal|poll)\.h")
CRYPTO_HEADER = re.compile(r"(sodium|openssl)(/[a-z_0-9]+)?\.h")
LINK = re.compile(r"target_link_libraries\(\s*(\w+)([^)]*)\)")
TRANSLATED_TEXT = re.compile(r"\b(tr|translate|QT_TR_NOOP|QT_TRANSLATE_NOOP)\s*\(")
NETWORK_HEADER = re.compile(
    r"Qt(Network|WebSockets|WebEngine).*"
    r"|Q(Network|Host|Dns|Ssl|Tcp|Udp|Sctp|LocalSo|LocalSe|AbstractSocket|WebSocket)\w*(\.h)?"
    r"|(sys/(socket|un)|netdb|ifaddrs|resolv)\.h|(net|netinet|arpa)/.*", re.IGNORECASE)
NETWORK_CALL = re.compile(r"\b(socket|socketpair|getaddrinfo|gethostbyname|setSocketDescriptor)"
                          r"\s*\(")
# The one source that may ask for Qt's version, and the word with which it does.
VERSIONS = "src/core/QtVersions.h"
VERSION = re.compile(r"\bQT_VERSION(_CHECK)?\b")
# In two pieces, so that this line is not found itself.
LEFT_UNDONE = re.compile(r"\b(TO" r"DO|FIX" r"ME)\b")


class Module:
    """A folder of src/: the modules, Qt modules and cryptographic libraries whose headers it may
    include, and the targets it may link."""

    def __init__(self, modules, qt, crypto, targets):
        self.modules = modules
        self.qt = qt
        self.crypto = crypto
        self.targets = targets


MODULES = {
    "core": Module({"core"}, {"QtCore"}, {"sodium", "openssl"},
                   {"Qt6::Core", "PkgConfig::sodium", "OpenSSL::Crypto", "tessel_flags"}),
    "platform": Module({"platform"}, {"QtCore"}, set(), {"Qt6::Core", "tessel_flags"}),
    # The About dialog shows the version of libsodium.
    "ui": Module({"core", "platform", "ui"}, {"QtCore", "QtGui", "QtWidgets"}, {"sodium"},
                 {"Qt6::Core", "Qt6::Gui", "Qt6::Widgets", "PkgConfig::sodium", "tessel_core",
                  "tessel_platform", "tessel_ui", "tessel_flags"}),
}

# The engine's sources from the bottom to the top. Each may include its own layer and those below.
CORE_LAYERS = (
    # Bytes, files, folders, the temporary workspace.
    {"Base64", "ByteCounts", "CompactionFolder", "ContainerCopy", "ContainerLayout",
     "ContainerLock", "DiskSync", "FileDigest", "FileSyncManager", "FolderAccess", "PrivateFile",
     "QtVersions", "RegularFile", "RunsFolder", "SameFile", "SecretBytes", "TempWorkspaceManager",
     "WorkspaceLeftovers", "WorkspaceNote"},
    # Values and primitives.
    {"AuthManager", "ContainerDocument", "CryptoManager", "EntryEncodings", "IndexDate",
     "IndexJson", "IndexScanner", "LengthLine", "PackedIndex", "RedoRecord", "SealedBlock",
     "SecureFileIndex", "VaultPath"},
    {"HeaderCodec", "KeyHierarchy"},
    {"HeaderWriter"},
    {"ContainerManager"},
    {"ContainerReplacement", "SetAsideContainer"},
    {"VaultSession", "VaultSessionRecovery"},
    {"VaultManager", "VaultManagerCompaction", "VaultManagerEditing", "VaultManagerFolders",
     "VaultManagerStorage"},
)
LINK_KEYWORDS = {"PUBLIC", "PRIVATE", "INTERFACE"}


def comment_mark(path):
    """How a source file begins a comment, or None for other files (data, pictures)."""
    if path.name == "CMakeLists.txt":
        return "#"
    if path.suffix in COMMENT_MARKS:
        return COMMENT_MARKS[path.suffix]
    with path.open("rb") as file:
        return "#" if file.read(2) == b"#!" else None


def sources(top, folders=SOURCE_FOLDERS):
    """Every source file of the folders, as (path from the top, its lines)."""
    for folder in folders:
        for path in sorted((top / folder).rglob("*")):
            if path.is_file() and comment_mark(path) is not None:
                yield path.relative_to(top), path.read_text(encoding="utf-8").splitlines()


def modules(top):
    """Every C++ source of src/ as (path, module, lines); the module is None if it has no rule."""
    for path, lines in sources(top, ("src",)):
        if path.suffix in (".cpp", ".h"):
            yield path, MODULES.get(path.parts[1]), lines


def qt_module(header, qt_include):
    """The Qt module that a header belongs to, or None if it is not one of Qt's."""
    if "/" in header:
        folder = header.split("/")[0]
        return folder if folder.startswith("Qt") else None
    for folder in sorted(qt_include.glob("Qt*")):
        if (folder / header).is_file():
            return folder.name
    return "an unknown Qt module" if re.match(r"Q[A-Z]", header) else None


def fault_of_quoted(top, module, header):
    if header.endswith(".moc"):
        return None
    if ".." in header.split("/") or not (top / "src" / header).is_file():
        return f'"{header}" is not written from src/'
    owner = header.split("/")[0]
    return None if owner in module.modules else f'"{header}" belongs to src/{owner}'


def fault_of_angled(module, header, qt_include):
    owner = qt_module(header, qt_include)
    if owner is not None:
        return None if owner in module.qt else f"<{header}> belongs to {owner}"
    crypto = CRYPTO_HEADER.fullmatch(header)
    if crypto:
        return None if crypto[1] in module.crypto else f"<{header}> belongs to the engine"
    if CXX_HEADER.fullmatch(header) or SYSTEM_HEADER.fullmatch(header):
        return None
    return f"<{header}> belongs to no library that this module may use"


def include_faults(top, qt_include):
    for path, module, lines in modules(top):
        if module is None:
            yield f"{path}: no rule says what this module may use"
            continue
        for number, line in enumerate(lines, 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            quoted, angled = match.groups()
            fault = (fault_of_quoted(top, module, quoted) if quoted
                     else fault_of_angled(module, angled, qt_include))
            if fault:
                yield f"{path}:{number}: {fault}"


def core_layer(name):
    """The number of the layer that a source of the engine belongs to, or None."""
    return next((i for i, layer in enumerate(CORE_LAYERS) if name in layer), None)


def layer_faults(top):
    """No include of the engine leads up."""
    for path, _, lines in modules(top):
        if path.parts[1] != "core":
            continue
        layer = core_layer(path.stem)
        if layer is None:
            yield f"{path}: belongs to no layer"
            continue
        for number, line in enumerate(lines, 1):
            match = INCLUDE.match(line)
            header = match and match[1] and match[1].split("/")[-1]
            if header and (core_layer(header.split(".")[0]) or 0) > layer:
                yield f'{path}:{number}: "{match[1]}" is above {path.stem}'


def link_faults(top):
    for path, lines in sources(top, ("src",)):
        module = MODULES.get(path.parts[1])
        if path.name != "CMakeLists.txt" or module is None:
            continue
        text = "\n".join(line.split("#")[0] for line in lines)
        for target, libraries in LINK.findall(text):
            for library in libraries.split():
                if library not in LINK_KEYWORDS and library not in module.targets:
                    yield f"{path}: {target} must not link {library}"


def wording_faults(top):
    """Only the window contains texts for the user."""
    for path, _, lines in modules(top):
        if path.parts[1] == "ui":
            continue
        for number, line in enumerate(lines, 1):
            if TRANSLATED_TEXT.search(line.split("//")[0]):
                yield f"{path}:{number}: words a text for the user"


def network_faults(top):
    """The program does not use the network."""
    for path, lines in sources(top, ("src",)):
        for number, line in enumerate(lines, 1):
            include = INCLUDE.match(line)
            header = include and (include[1] or include[2])
            if header and NETWORK_HEADER.fullmatch(header):
                yield f"{path}:{number}: <{header}> leads to the network"
            elif NETWORK_CALL.search(line.split("//")[0]):
                yield f"{path}:{number}: opens a socket"


def background_faults(top):
    """The background pictures are resources that the window does not show."""
    for path, lines in sources(top, ("src",)):
        for number, line in enumerate(lines, 1):
            if "Fundo0" in line:
                yield f"{path}:{number}: shows a background picture"


def version_faults(top):
    """What differs between the versions of Qt is in one place."""
    for path, lines in sources(top, ("src", "tests", "benchmarks")):
        if path.suffix not in (".cpp", ".h") or str(path) == VERSIONS:
            continue
        for number, line in enumerate(lines, 1):
            if VERSION.search(line):
                yield f"{path}:{number}: asks for Qt's version, which {VERSIONS} does"


def licence_faults(top):
    for path, lines in sources(top):
        mark = comment_mark(top / path)
        begin = 1 if lines and lines[0].startswith("#!") else 0
        if lines[begin:begin + 2] != [f"{mark} {text}" for text in LICENCE]:
            yield f"{path}: does not begin with the two SPDX lines"


def left_undone_faults(top):
    for path, lines in sources(top):
        for number, line in enumerate(lines, 1):
            if LEFT_UNDONE.search(line):
                yield f"{path}:{number}: {line.strip()}"
