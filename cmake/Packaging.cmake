# What `cmake --install` puts on a machine and how `cpack -G DEB` wraps it.
# The tape simulator is a developer's tool: it goes to libexec, off PATH.
include(GNUInstallDirs)
include(${CMAKE_CURRENT_LIST_DIR}/DesktopPieces.cmake)

if(TARGET larkpin)
  install(TARGETS larkpin RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${PROJECT_SOURCE_DIR}/data/larkpin.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
  install(FILES ${PROJECT_SOURCE_DIR}/data/larkpin.svg
          DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)

  configure_file(${PROJECT_SOURCE_DIR}/data/org.larkpin.Larkpin.metainfo.xml.in
                 ${PROJECT_BINARY_DIR}/data/org.larkpin.Larkpin.metainfo.xml @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/data/org.larkpin.Larkpin.metainfo.xml
          DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)

  # Debian ships manual pages compressed, without a time stamp in the gzip header.
  configure_file(${PROJECT_SOURCE_DIR}/data/larkpin.1.in ${PROJECT_BINARY_DIR}/data/larkpin.1 @ONLY)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/data/larkpin.1.gz
    COMMAND gzip -9nkf ${PROJECT_BINARY_DIR}/data/larkpin.1
    DEPENDS ${PROJECT_BINARY_DIR}/data/larkpin.1 ${PROJECT_SOURCE_DIR}/data/larkpin.1.in)
  add_custom_target(larkpin_manpage ALL DEPENDS ${PROJECT_BINARY_DIR}/data/larkpin.1.gz)
  install(FILES ${PROJECT_BINARY_DIR}/data/larkpin.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
if(TARGET tarnwick-sim)
  install(TARGETS tarnwick-sim RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/larkpin)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME larkpin)
set(CPACK_PACKAGE_VENDOR "Larkpin")
set(CPACK_PACKAGE_CONTACT "Larkpin <hello@larkpin.app>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Watch a live tape of tracked wallets from the top bar")
set(CPACK_PACKAGE_DESCRIPTION
    "A ticker strip below the top bar, a tray icon and a floating panel that follow a live tape of trades.")
set(CPACK_PACKAGE_HOMEPAGE_URL "${LARKPIN_SITE_URL}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# dpkg-shlibdeps sees the linked Qt libraries only. What Qt loads at run time
# is named here: the QML modules the panel imports (and the ones QtQuick and
# its Controls pull in themselves), the X11 and Wayland platform plugins, the
# SVG image plugin for the glyphs.
set(LARKPIN_RUNTIME_DEPENDS
  qml6-module-qtqml
  qml6-module-qtqml-workerscript
  qml6-module-qtquick
  qml6-module-qtquick-window
  qml6-module-qtquick-controls
  qml6-module-qtquick-templates
  qml6-module-qtquick-layouts
  qml6-module-qtquick-shapes
  qt6-qpa-plugins
  qt6-wayland
  libqt6svg6)
list(JOIN LARKPIN_RUNTIME_DEPENDS ", " CPACK_DEBIAN_PACKAGE_DEPENDS)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "fonts-inter, fonts-jetbrains-mono")
include(CPack)
