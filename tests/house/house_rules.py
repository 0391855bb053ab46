# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

"""The rules of the house that can be read off the sources: who may include and link whom, and
what every file carries. Each rule takes the top folder of the sources and yields one line for
each fault, such as "src/core/Vault.cpp:7: ...".

The rooms are told apart because the engine must stay usable, and testable, without a window, and
because only the window speaks to the user."""

import re

# REUSE-IgnoreStart
LICENCE = ("SPDX-FileCopyrightText: 2026 The Tessel developers",
           "SPDX-License-Identifier: GPL-3.0-or-later")
# REUSE-IgnoreEnd

SOURCE_FOLDERS = ("src", "tests", "benchmarks", "scripts", "cmake", ".ci")
COMMENT_MARKS = {".cpp": "//", ".h": "//", ".py": "#", ".sh": "#", ".cmake": "#"}

INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)')
# The C++ library has no dots in its names; beside it the engine uses these of the system.
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
# In two pieces, or this line would be found itself.
LEFT_UNDONE = re.compile(r"\b(TO" r"DO|FIX" r"ME)\b")


class Room:
    """A folder of src/: the rooms, Qt modules and cryptographic libraries whose headers it may
    include, and the targets it may link."""

    def __init__(self, rooms, qt, crypto, targets):
        self.rooms = rooms
        self.qt = qt
        self.crypto = crypto
        self.targets = targets


ROOMS = {
    "core": Room({"core"}, {"QtCore"}, {"sodium", "openssl"},
                 {"Qt6::Core", "PkgConfig::sodium", "OpenSSL::Crypto", "tessel_flags"}),
    "platform": Room({"platform"}, {"QtCore"}, set(), {"Qt6::Core", "tessel_flags"}),
    # The window tells which version of libsodium is at work.
    "ui": Room({"core", "platform", "ui"}, {"QtCore", "QtGui", "QtWidgets"}, {"sodium"},
               {"Qt6::Core", "Qt6::Gui", "Qt6::Widgets", "PkgConfig::sodium", "tessel_core",
                "tessel_platform", "tessel_ui", "tessel_flags"}),
}
LINK_KEYWORDS = {"PUBLIC", "PRIVATE", "INTERFACE"}


def comment_mark(path):
    """How a source begins a comment, or None for a file that is no source (data, a picture)."""
    if path.name == "CMakeLists.txt":
        return "#"
    if path.suffix in COMMENT_MARKS:
        return COMMENT_MARKS[path.suffix]
    with path.open("rb") as file:
        return "#" if file.read(2) == b"#!" else None


def sources(top, folders=SOURCE_FOLDERS):
    """Every source of the folders, as (path from the top, its lines)."""
    for folder in folders:
        for path in sorted((top / folder).rglob("*")):
            if path.is_file() and comment_mark(path) is not None:
                yield path.relative_to(top), path.read_text(encoding="utf-8").splitlines()


def rooms(top):
    """Every C++ source of src/ as (path, room, lines); the room is None outside of all rooms."""
    for path, lines in sources(top, ("src",)):
        if path.suffix in (".cpp", ".h"):
            yield path, ROOMS.get(path.parts[1]), lines


def qt_module(header, qt_include):
    """The Qt module that a header belongs to, or None when it is none of Qt's."""
    if "/" in header:
        folder = header.split("/")[0]
        return folder if folder.startswith("Qt") else None
    for module in sorted(qt_include.glob("Qt*")):
        if (module / header).is_file():
            return module.name
    return "an unknown Qt module" if re.match(r"Q[A-Z]", header) else None


def fault_of_quoted(top, room, header):
    if header.endswith(".moc"):
        return None
    if ".." in header.split("/") or not (top / "src" / header).is_file():
        return f'"{header}" is not written from src/'
    owner = header.split("/")[0]
    return None if owner in room.rooms else f'"{header}" belongs to src/{owner}'


def fault_of_angled(room, header, qt_include):
    module = qt_module(header, qt_include)
    if module is not None:
        return None if module in room.qt else f"<{header}> belongs to {module}"
    crypto = CRYPTO_HEADER.fullmatch(header)
    if crypto:
        return None if crypto[1] in room.crypto else f"<{header}> belongs to the engine"
    if CXX_HEADER.fullmatch(header) or SYSTEM_HEADER.fullmatch(header):
        return None
    return f"<{header}> belongs to no library that this room may use"


def include_faults(top, qt_include):
    for path, room, lines in rooms(top):
        if room is None:
            yield f"{path}: no rule says whom this room may know"
            continue
        for number, line in enumerate(lines, 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            quoted, angled = match.groups()
            fault = (fault_of_quoted(top, room, quoted) if quoted
                     else fault_of_angled(room, angled, qt_include))
            if fault:
                yield f"{path}:{number}: {fault}"


def link_faults(top):
    for path, lines in sources(top, ("src",)):
        room = ROOMS.get(path.parts[1])
        if path.name != "CMakeLists.txt" or room is None:
            continue
        text = "\n".join(line.split("#")[0] for line in lines)
        for target, libraries in LINK.findall(text):
            for library in libraries.split():
                if library not in LINK_KEYWORDS and library not in room.targets:
                    yield f"{path}: {target} must not link {library}"


def wording_faults(top):
    """Only the window speaks to the user."""
    for path, _, lines in rooms(top):
        if path.parts[1] == "ui":
            continue
        for number, line in enumerate(lines, 1):
            if TRANSLATED_TEXT.search(line.split("//")[0]):
                yield f"{path}:{number}: words a text for the user"


def network_faults(top):
    """What is in a vault leaves it through the hands of its person alone."""
    for path, lines in sources(top, ("src",)):
        for number, line in enumerate(lines, 1):
            include = INCLUDE.match(line)
            header = include and (include[1] or include[2])
            if header and NETWORK_HEADER.fullmatch(header):
                yield f"{path}:{number}: <{header}> leads to the network"
            elif NETWORK_CALL.search(line.split("//")[0]):
                yield f"{path}:{number}: opens a socket"


def background_faults(top):
    """The background pictures are in the bundle for others to use; the window shows none."""
    for path, lines in sources(top, ("src",)):
        for number, line in enumerate(lines, 1):
            if "Fundo0" in line:
                yield f"{path}:{number}: shows a background picture"


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
