# Installation (GNUInstallDirs) and the Debian package (CPack). The application id names the desktop
# entry, the icon, the AppStream file and the D-Bus names; it is the one in src/core.
include(GNUInstallDirs)

set(PULSEBAR_APP_ID "org.pulsebar.Pulsebar")
set(PULSEBAR_HOMEPAGE "https://pulsebar.org" CACHE STRING "Project home page, named in the AppStream metadata")
set(PULSEBAR_SCREENSHOT_URL "${PULSEBAR_HOMEPAGE}/docs/pictures/panel-overview.png" CACHE STRING
    "Screenshot named in the AppStream metadata (an image of the dump gallery published with the project)")

set(data ${CMAKE_SOURCE_DIR}/data)
set(generated ${CMAKE_BINARY_DIR}/data)

configure_file(${data}/${PULSEBAR_APP_ID}.metainfo.xml.in ${generated}/${PULSEBAR_APP_ID}.metainfo.xml @ONLY)
configure_file(${data}/pulsebar.1 ${generated}/pulsebar.1 @ONLY)
# Debian policy wants man pages and the changelog compressed, without a time stamp in the gzip header.
add_custom_command(OUTPUT ${generated}/pulsebar.1.gz
                   COMMAND gzip -9nc ${generated}/pulsebar.1 > ${generated}/pulsebar.1.gz
                   DEPENDS ${generated}/pulsebar.1 VERBATIM)
configure_file(${data}/changelog.in ${generated}/changelog @ONLY)
add_custom_command(OUTPUT ${generated}/changelog.gz
                   COMMAND gzip -9nc ${generated}/changelog > ${generated}/changelog.gz
                   DEPENDS ${generated}/changelog VERBATIM)
add_custom_target(pulsebar_install_data ALL DEPENDS ${generated}/pulsebar.1.gz ${generated}/changelog.gz)

install(TARGETS pulsebar RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${data}/${PULSEBAR_APP_ID}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${generated}/${PULSEBAR_APP_ID}.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES ${data}/icons/${PULSEBAR_APP_ID}.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
foreach(size 16 22 24 32 48 64 128 256)
  install(FILES ${data}/icons/${size}/${PULSEBAR_APP_ID}.png
          DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps)
endforeach()
install(FILES ${generated}/pulsebar.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${data}/completions/pulsebar.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME pulsebar)
install(FILES ${data}/completions/_pulsebar DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install(FILES ${CMAKE_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/pulsebar RENAME copyright)
install(FILES ${generated}/changelog.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/pulsebar RENAME changelog.gz)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pulsebar)
set(CPACK_PACKAGE_VENDOR "The Pulsebar developers")
set(CPACK_PACKAGE_CONTACT "The Pulsebar developers <developers@pulsebar.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "system monitor for the system tray, MCP server for AI agents")
set(CPACK_PACKAGE_DESCRIPTION
    "Pulsebar shows CPU, GPU, memory, disk, network, temperature and battery
figures as live items in the system tray of a Linux desktop, each opening a
panel with details and 30 days of graphs. It keeps that history in SQLite,
sums the state of the machine up in one plain-English insight line, notifies
on threshold rules and system events, and runs headless as an MCP server for
AI agents.")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE ${PULSEBAR_HOMEPAGE})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Loaded at run time or run as programs, so dpkg-shlibdeps cannot see them.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "dbus")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "hwdata, iputils-ping, gnome-shell-extension-appindicator | plasma-workspace | xfce4-panel")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "libimobiledevice6, usbmuxd, evolution-data-server")
include(CPack)
