# SPDX-License-Identifier: MIT
# Installing the program where desktops look for it, and the Debian package made from that.
include(GNUInstallDirs)

set(QUILLMERE_APP_ID live.quillmere.QuillmereLive)
set(packaging_dir ${PROJECT_SOURCE_DIR}/packaging)

install(TARGETS QuillmereLiveApp
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  BUNDLE DESTINATION .)
# On Windows and macOS no system package brings Qt: its libraries, plugins and the QML modules
# the screens import go beside the installed program (into the bundle on macOS), by the script
# Qt writes for it (https://doc.qt.io/qt-6/qt-generate-deploy-qml-app-script.html). Qt 6.3 added
# the command and 6.5 renamed its output argument; on Linux the package's dependencies bring Qt.
if(APPLE OR WIN32)
  if(NOT COMMAND qt_generate_deploy_qml_app_script)
    message(FATAL_ERROR "Qt ${Qt6_VERSION} has no qt_generate_deploy_qml_app_script (Qt 6.3 and "
                        "later have): the installed program would have no Qt beside it.")
  endif()
  if(Qt6_VERSION VERSION_GREATER_EQUAL 6.5)
    qt_generate_deploy_qml_app_script(TARGET QuillmereLiveApp OUTPUT_SCRIPT deploy_script)
  else()
    qt_generate_deploy_qml_app_script(TARGET QuillmereLiveApp FILENAME_VARIABLE deploy_script)
  endif()
  install(SCRIPT ${deploy_script})
endif()
if(UNIX AND NOT APPLE)
  install(FILES ${packaging_dir}/${QUILLMERE_APP_ID}.desktop
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/applications)
  install(FILES ${packaging_dir}/${QUILLMERE_APP_ID}.svg
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/icons/hicolor/scalable/apps)
  install(FILES ${packaging_dir}/${QUILLMERE_APP_ID}.metainfo.xml
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/metainfo)
  # What Debian wants of every package: its licence as "copyright", a manual page, and the
  # changelog, both compressed. Compressed with gzip -n, which leaves the file's name and time
  # out of the header, so the same sources give the same bytes (CMake's own gzip stamps the time).
  find_program(GZIP_EXECUTABLE gzip REQUIRED)
  set(package_docdir ${CMAKE_INSTALL_DATAROOTDIR}/doc/quillmere-live)
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${package_docdir} RENAME copyright)
  foreach(page changelog quillmere-live.1)
    execute_process(COMMAND ${GZIP_EXECUTABLE} -9 -n -c
      INPUT_FILE ${packaging_dir}/${page}
      OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/${page}.gz
      COMMAND_ERROR_IS_FATAL ANY)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${packaging_dir}/${page})
  endforeach()
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz DESTINATION ${package_docdir})
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quillmere-live.1.gz
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

set(CPACK_PACKAGE_NAME quillmere-live)
set(CPACK_PACKAGE_VENDOR "Quillmere")
set(CPACK_PACKAGE_CONTACT "Quillmere Live <live@quillmere.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "tray utility that sends a live photo shoot to the client")
set(CPACK_PACKAGE_DESCRIPTION
  "Quillmere Live watches the folder a camera drops photos into and sends\n\
each new photo to a live session on the photo-selection service: first a\n\
small preview, so the client can start choosing at once, then the\n\
full-resolution original.")
set(CPACK_PACKAGE_INSTALL_DIRECTORY quillmere-live)
set(CPACK_STRIP_FILES ON)
# Each system's own kind of installer: a disk image to drag the bundle from on macOS, an NSIS
# installer with a Start menu entry on Windows, a Debian package elsewhere.
if(APPLE)
  set(CPACK_GENERATOR DragNDrop)
  set(CPACK_DMG_VOLUME_NAME "Quillmere Live")
  set(CPACK_PACKAGE_FILE_NAME "Quillmere-Live-${PROJECT_VERSION}")
elseif(WIN32)
  set(CPACK_GENERATOR NSIS)
  set(CPACK_PACKAGE_INSTALL_DIRECTORY "Quillmere Live")
  set(CPACK_NSIS_DISPLAY_NAME "Quillmere Live")
  set(CPACK_NSIS_PACKAGE_NAME "Quillmere Live")
  set(CPACK_PACKAGE_EXECUTABLES quillmere-live "Quillmere Live")
  set(CPACK_NSIS_MUI_ICON ${packaging_dir}/windows/quillmere-live.ico)
  set(CPACK_NSIS_MUI_UNIICON ${packaging_dir}/windows/quillmere-live.ico)
  set(CPACK_NSIS_INSTALLED_ICON_NAME bin/quillmere-live.exe)
  set(CPACK_NSIS_ENABLE_UNINSTALL_BEFORE_INSTALL ON)
  set(CPACK_NSIS_URL_INFO_ABOUT "https://quillmere.example/live")
else()
  set(CPACK_GENERATOR DEB)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://quillmere.example/live")
# The dependencies are the packages of the shared libraries the program links, found by
# dpkg-shlibdeps, never a list kept by hand; the QML modules and Qt plugins it loads at run time
# link nothing, so they are named.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
  "qml6-module-qtquick, qml6-module-qtquick-controls, qml6-module-qtquick-layouts, \
qml6-module-qtquick-window, qml6-module-qtquick-templates, qml6-module-qtqml-workerscript, \
qt6-qpa-plugins, libqt6sql6-sqlite")
# Qt's Wayland plugin, and the desktops' own folder dialogs (GTK, and the portal that sandboxed
# and KDE desktops offer), which Qt uses where they are there.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS
  "qt6-wayland, qt6-gtk-platformtheme, qt6-xdgdesktopportal-platformtheme")
include(CPack)
