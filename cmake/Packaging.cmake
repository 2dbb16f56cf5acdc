# Installed as a Debian system expects a program: manual pages, AppStream metadata, the
# package's copyright and changelog, and a .deb (cpack -G DEB) whose dependencies
# dpkg-shlibdeps computes from the binaries themselves.
include(GNUInstallDirs)

find_program(GZIP_PROGRAM gzip REQUIRED)
set(velmora_compressed_docs "")
# -n: no name or time stamp in the archive, so the package is reproducible.
function(velmora_gzip source output)
  add_custom_command(OUTPUT ${output}
    COMMAND ${GZIP_PROGRAM} -9n -c ${source} > ${output}
    DEPENDS ${source} VERBATIM)
  set(velmora_compressed_docs ${velmora_compressed_docs} ${output} PARENT_SCOPE)
endfunction()

set(docs ${CMAKE_BINARY_DIR}/docs)
file(MAKE_DIRECTORY ${docs})
velmora_gzip(${PROJECT_SOURCE_DIR}/data/man/velmora.1 ${docs}/velmora.1.gz)
velmora_gzip(${PROJECT_SOURCE_DIR}/data/man/velmora-cli.1 ${docs}/velmora-cli.1.gz)
velmora_gzip(${PROJECT_SOURCE_DIR}/data/debian/changelog ${docs}/changelog.gz)
add_custom_target(velmora_docs ALL DEPENDS ${velmora_compressed_docs})

install(FILES ${docs}/velmora.1.gz ${docs}/velmora-cli.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_SOURCE_DIR}/data/app.velmora.Velmora.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES ${PROJECT_SOURCE_DIR}/data/debian/copyright ${docs}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/velmora)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velmora)
set(CPACK_PACKAGE_VENDOR Velmora)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Velmora <packages@velmora.app>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "loudness measurement and mastering for audio and video files")
# CPack puts the summary on the Description line and indents these lines itself.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "Velmora measures loudness after ITU-R BS.1770-4 and EBU R128 (integrated
loudness, loudness range, true peak), checks files against 21 delivery norms
and writes corrected WAV and AIFF masters with text and PDF reports.

The package holds the desktop application, velmora, and the command-line
program, velmora-cli.")
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://velmora.app/")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# What no binary links to but the programs need: Qt's platform plug-ins (the command line
# draws its PDF reports off screen) and the fonts the window and reports are drawn with.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, fonts-dejavu-core")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "pipewire-jack | jackd2")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
