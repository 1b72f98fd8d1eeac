# What `cmake --install` puts on a machine and how `cpack -G DEB` wraps it.
# The tape simulator is a developer's tool: it goes to libexec, off PATH.
include(GNUInstallDirs)

# Debian's hardening flags (fortified libc calls, stack protector, read-only
# relocations bound at start) on everything the app and the simulator are
# built from, as dpkg-buildflags gives them, without its optimisation, debug
# and path-mapping flags: the build type chooses those. Off under the
# sanitizers, and where fortification needs an optimising build.
option(LARKPIN_HARDENING "Build the app and the simulator with Debian's hardening flags" ON)
find_program(DPKG_BUILDFLAGS dpkg-buildflags)
if(LARKPIN_HARDENING AND DPKG_BUILDFLAGS AND NOT LARKPIN_SANITIZE AND
   CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo|MinSizeRel)$")
  foreach(kind CPPFLAGS CXXFLAGS LDFLAGS)
    execute_process(COMMAND ${CMAKE_COMMAND} -E env DEB_BUILD_MAINT_OPTIONS=hardening=+all
                            ${DPKG_BUILDFLAGS} --get ${kind}
                    OUTPUT_VARIABLE value OUTPUT_STRIP_TRAILING_WHITESPACE)
    separate_arguments(value UNIX_COMMAND "${value}")
    list(FILTER value EXCLUDE REGEX "^(-O[0-9s]?|-g[0-9]?|-ffile-prefix-map=.*|-fdebug-prefix-map=.*)$")
    set(larkpin_${kind} ${value})
  endforeach()
  get_property(larkpin_hardened_dirs DIRECTORY ${PROJECT_SOURCE_DIR}/src PROPERTY SUBDIRECTORIES)
  list(APPEND larkpin_hardened_dirs ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tools/tarnwick-sim)
  foreach(dir ${larkpin_hardened_dirs})
    get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(t ${targets})
      get_target_property(type ${t} TYPE)
      if(type MATCHES "^(STATIC_LIBRARY|OBJECT_LIBRARY|EXECUTABLE)$")
        target_compile_options(${t} PRIVATE ${larkpin_CPPFLAGS} ${larkpin_CXXFLAGS})
      endif()
      if(type STREQUAL "EXECUTABLE")
        target_link_options(${t} PRIVATE ${larkpin_LDFLAGS})
      endif()
    endforeach()
  endforeach()
  message(STATUS "Hardening: ${larkpin_CPPFLAGS} ${larkpin_CXXFLAGS} ${larkpin_LDFLAGS}")
endif()

# The top-bar pieces take the same flags (their Qt 5 plugin is a project of its own).
include(${CMAKE_CURRENT_LIST_DIR}/DesktopPieces.cmake)

# The package's version: the project's, then the Debian revision.
set(LARKPIN_DEB_REVISION 1)
set(LARKPIN_DEB_VERSION "${PROJECT_VERSION}-${LARKPIN_DEB_REVISION}")

if(TARGET larkpin)
  install(TARGETS larkpin RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  # The desktop entry is named by the AppStream id, so software centres,
  # notification servers (the desktop-entry hint) and the metainfo agree.
  install(FILES ${PROJECT_SOURCE_DIR}/data/org.larkpin.Larkpin.desktop
          DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
  install(FILES ${PROJECT_SOURCE_DIR}/data/larkpin.svg
          DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
  install(FILES ${PROJECT_SOURCE_DIR}/data/larkpin-symbolic.svg
          DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/symbolic/apps)
  # PNGs for trays, docks and notification servers that do not draw SVG,
  # drawn once from the mark (data/ICONS.md tells how).
  foreach(size 16 22 24 32 48 64 128 256 512)
    install(FILES ${PROJECT_SOURCE_DIR}/data/larkpin-${size}.png
            DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps RENAME larkpin.png)
  endforeach()

  configure_file(${PROJECT_SOURCE_DIR}/data/org.larkpin.Larkpin.metainfo.xml.in
                 ${PROJECT_BINARY_DIR}/data/org.larkpin.Larkpin.metainfo.xml @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/data/org.larkpin.Larkpin.metainfo.xml
          DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)

  # Debian ships manual pages and changelogs compressed, without a time
  # stamp in the gzip header.
  configure_file(${PROJECT_SOURCE_DIR}/data/larkpin.1.in ${PROJECT_BINARY_DIR}/data/larkpin.1 @ONLY)
  configure_file(${PROJECT_SOURCE_DIR}/data/changelog.Debian.in ${PROJECT_BINARY_DIR}/data/changelog.Debian @ONLY)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/data/larkpin.1.gz
    COMMAND gzip -9nkf ${PROJECT_BINARY_DIR}/data/larkpin.1
    DEPENDS ${PROJECT_BINARY_DIR}/data/larkpin.1 ${PROJECT_SOURCE_DIR}/data/larkpin.1.in)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/data/changelog.Debian.gz
    COMMAND gzip -9nkf ${PROJECT_BINARY_DIR}/data/changelog.Debian
    DEPENDS ${PROJECT_BINARY_DIR}/data/changelog.Debian ${PROJECT_SOURCE_DIR}/data/changelog.Debian.in)
  add_custom_target(larkpin_manpage ALL DEPENDS ${PROJECT_BINARY_DIR}/data/larkpin.1.gz
                                               ${PROJECT_BINARY_DIR}/data/changelog.Debian.gz)
  install(FILES ${PROJECT_BINARY_DIR}/data/larkpin.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${PROJECT_BINARY_DIR}/data/changelog.Debian.gz ${PROJECT_SOURCE_DIR}/data/copyright
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/larkpin)
  install(FILES ${PROJECT_SOURCE_DIR}/data/lintian-overrides
          DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME larkpin)
endif()
if(TARGET tarnwick-sim)
  install(TARGETS tarnwick-sim RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/larkpin)
endif()
# A stripped install (cpack strips) also loses the sections nothing reads at
# run time, as Debian's own stripping does.
find_program(LARKPIN_STRIP NAMES strip)
if(LARKPIN_STRIP)
  install(CODE "
    if(CMAKE_INSTALL_DO_STRIP)
      foreach(f ${CMAKE_INSTALL_BINDIR}/larkpin ${CMAKE_INSTALL_LIBEXECDIR}/larkpin/tarnwick-sim)
        set(p \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/\${f}\")
        if(EXISTS \"\${p}\")
          execute_process(COMMAND \"${LARKPIN_STRIP}\" --remove-section=.comment --remove-section=.note \"\${p}\")
        endif()
      endforeach()
    endif()")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME larkpin)
set(CPACK_PACKAGE_VENDOR "Larkpin")
set(CPACK_PACKAGE_CONTACT "Larkpin <hello@larkpin.app>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Watch a live tape of tracked wallets from the top bar")
# Debian's long description: lines of at most 80 characters, an empty line
# becomes " ." in the control file.
set(CPACK_PACKAGE_DESCRIPTION [=[Larkpin follows a live tape of trades by tracked wallets and turns the
big ones into signals: whale buys and sells, several wallets piling into a
new pool, moves in tokenised stocks.

A narrow ticker strip sits below the top bar and flips through the latest
signals; a big trade takes it over for a few seconds and, where the strip
cannot be seen, raises a desktop notification that opens the signal or its
chart. A tray icon and a keyboard-driven floating panel show the stream, the
evidence behind a signal (wallet record, token figures) and the state of the
connection. Tokens and wallets can be muted or watched.

The local tape simulator used by the demo is installed under
/usr/libexec/larkpin.]=])
set(CPACK_PACKAGE_HOMEPAGE_URL "${LARKPIN_SITE_URL}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE ${LARKPIN_DEB_REVISION})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# dpkg-shlibdeps sees the linked Qt libraries only. What Qt loads at run time
# is named here: the QML modules the panel imports (and the ones QtQuick and
# its Controls pull in themselves) and the X11 platform plugin. The SVG image
# plugin comes with libqt6svg6, which dpkg-shlibdeps names already (naming it
# here too would list it twice).
# The SQLite driver of Qt SQL keeps the history.
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
  libqt6sql6-sqlite)
list(JOIN LARKPIN_RUNTIME_DEPENDS ", " CPACK_DEBIAN_PACKAGE_DEPENDS)
# Wayland sessions run the app through XWayland when the Wayland plugin is
# missing; links open through xdg-open.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "qt6-wayland, xdg-utils, fonts-inter, fonts-jetbrains-mono")
include(CPack)
