# The ticker as a piece of the desktop's own bar: a GNOME Shell extension
# (GJS, nothing to build) and a Plasma 5 applet (QML) with its small Qt 5 QML
# plugin that reads the app's session-bus ticker. The plugin is a project of
# its own (the app is Qt 6) and is built only where Qt 5 is found, or as
# LARKPIN_PLASMA_PLUGIN says.
include(GNUInstallDirs)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/desktop/gnome-shell/larkpin@larkpin.org
        DESTINATION ${CMAKE_INSTALL_DATADIR}/gnome-shell/extensions)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/desktop/plasma/org.larkpin.ticker
        DESTINATION ${CMAKE_INSTALL_DATADIR}/plasma/plasmoids)

set(LARKPIN_PLASMA_PLUGIN AUTO CACHE STRING "Build the Plasma applet's Qt 5 plugin: AUTO (when Qt 5 is found), ON, OFF")
if(NOT LARKPIN_PLASMA_PLUGIN STREQUAL "OFF")
  find_package(Qt5Core 5.15 QUIET CONFIG)
  find_package(Qt5Qml 5.15 QUIET CONFIG)
  find_package(Qt5DBus 5.15 QUIET CONFIG)
  if(Qt5Core_FOUND AND Qt5Qml_FOUND AND Qt5DBus_FOUND)
    get_target_property(_larkpin_qmake5 Qt5::qmake IMPORTED_LOCATION)
    execute_process(COMMAND ${_larkpin_qmake5} -query QT_INSTALL_QML OUTPUT_VARIABLE _larkpin_qml5
                    OUTPUT_STRIP_TRAILING_WHITESPACE)
    execute_process(COMMAND ${_larkpin_qmake5} -query QT_INSTALL_PREFIX OUTPUT_VARIABLE _larkpin_prefix5
                    OUTPUT_STRIP_TRAILING_WHITESPACE)
    file(RELATIVE_PATH LARKPIN_QT5_QML_DIR ${_larkpin_prefix5} ${_larkpin_qml5})
    # Debian's hardening, as the app's own targets have it (empty where off).
    string(JOIN " " _larkpin_plugin_cxxflags ${larkpin_CPPFLAGS} ${larkpin_CXXFLAGS})
    string(JOIN " " _larkpin_plugin_ldflags ${larkpin_LDFLAGS})
    include(ExternalProject)
    set(LARKPIN_PLASMA_PLUGIN_DIR ${PROJECT_BINARY_DIR}/plasma-plugin)
    ExternalProject_Add(larkpin_plasma_plugin
      SOURCE_DIR ${PROJECT_SOURCE_DIR}/desktop/plasma/plugin
      BINARY_DIR ${LARKPIN_PLASMA_PLUGIN_DIR}
      CMAKE_ARGS -DCMAKE_BUILD_TYPE=${CMAKE_BUILD_TYPE} -DLARKPIN_QT5_QML_DIR=${LARKPIN_QT5_QML_DIR}
                 -DCMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER}
                 "-DCMAKE_CXX_FLAGS=${_larkpin_plugin_cxxflags}"
                 "-DCMAKE_MODULE_LINKER_FLAGS=${_larkpin_plugin_ldflags}"
      BUILD_ALWAYS ON
      INSTALL_COMMAND "")
    install(DIRECTORY ${LARKPIN_PLASMA_PLUGIN_DIR}/qml/org/larkpin/ticker
            DESTINATION ${LARKPIN_QT5_QML_DIR}/org/larkpin)
    # Installed as a folder, so cpack's stripping does not reach it.
    find_program(LARKPIN_PLUGIN_STRIP NAMES strip)
    if(LARKPIN_PLUGIN_STRIP)
      install(CODE "
        if(CMAKE_INSTALL_DO_STRIP)
          set(p \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${LARKPIN_QT5_QML_DIR}/org/larkpin/ticker/liblarkpintickerplugin.so\")
          if(EXISTS \"\${p}\")
            execute_process(COMMAND \"${LARKPIN_PLUGIN_STRIP}\" --strip-unneeded
                                    --remove-section=.comment --remove-section=.note \"\${p}\")
          endif()
        endif()")
    endif()
    message(STATUS "Plasma applet plugin: Qt ${Qt5Core_VERSION}, into ${LARKPIN_QT5_QML_DIR}")
  elseif(LARKPIN_PLASMA_PLUGIN STREQUAL "ON")
    message(FATAL_ERROR "LARKPIN_PLASMA_PLUGIN=ON needs Qt 5 (Core, Qml, DBus): LARKPIN_BAR_PIECES=1 scripts/deps")
  else()
    message(STATUS "Plasma applet plugin: not built (no Qt 5; LARKPIN_BAR_PIECES=1 scripts/deps installs it)")
  endif()
endif()
