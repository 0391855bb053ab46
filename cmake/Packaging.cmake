# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later

# What `cmake --install` installs, and the Debian package made from it.
set(tessel_id example.tessel.Tessel)
# The package has a lower-case name, and its documents are installed under that name.
set(CMAKE_INSTALL_DOCDIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/tessel)
set(packaging ${PROJECT_SOURCE_DIR}/packaging)

install(TARGETS tessel RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${packaging}/${tessel_id}.desktop ${packaging}/${tessel_id}.Container.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${packaging}/${tessel_id}.metainfo.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES ${packaging}/${tessel_id}.mime.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/mime/packages RENAME ${tessel_id}.xml)
foreach(size 16 24 32 48 64 128 256)
    install(FILES ${packaging}/icons/tessel-${size}.png
            DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps
            RENAME tessel.png)
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/resources/icons/Tessel.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps RENAME tessel.svg)

# Manual pages and the change log are installed compressed, without a time stamp.
find_program(gzip_program gzip REQUIRED)
function(tessel_install_compressed source target folder)
    set(compressed ${CMAKE_BINARY_DIR}/compressed/${folder}/${target}.gz)
    get_filename_component(compressed_folder ${compressed} DIRECTORY)
    add_custom_command(OUTPUT ${compressed}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${compressed_folder}
        COMMAND sh -c "'${gzip_program}' -9 -n -c '${source}' > '${compressed}'"
        DEPENDS ${source} VERBATIM)
    string(MAKE_C_IDENTIFIER "compress_${folder}_${target}" compress_target)
    add_custom_target(${compress_target} ALL DEPENDS ${compressed})
    install(FILES ${compressed} DESTINATION ${folder})
endfunction()
tessel_install_compressed(${packaging}/man/tessel.1 tessel.1 ${CMAKE_INSTALL_MANDIR}/man1)
tessel_install_compressed(${packaging}/man/tessel.pt_BR.1 tessel.1
                          ${CMAKE_INSTALL_MANDIR}/pt_BR/man1)
tessel_install_compressed(${packaging}/changelog changelog ${CMAKE_INSTALL_DOCDIR})
install(FILES ${packaging}/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tessel)
set(CPACK_PACKAGE_VENDOR "The Tessel developers")
set(CPACK_PACKAGE_CONTACT "The Tessel developers <maintainers@tessel.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "encrypted vault on a USB drive")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Tessel keeps files encrypted inside one container file on a USB drive. A
person unlocks the vault with a password, imports, organises, opens and
exports files, and locks it again: what is on the drive stays encrypted,
no matter who reads it. The interface is in Brazilian Portuguese.")
set(CPACK_PACKAGE_HOMEPAGE_URL ${TESSEL_HOMEPAGE})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The Portuguese texts of Qt's own dialogs.
set(CPACK_DEBIAN_PACKAGE_DEPENDS qt6-translations-l10n)
# Opens a file in the program that the person uses for it.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS xdg-utils)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
include(CPack)
