# Installing Tavrin (`cmake --install`, prefix /usr/local by default) and the Debian package
# (`cpack -G DEB`, prefix /usr).
#
#   bin/tavrin                                       the program
#   lib/tavrin/tavrin-pdf.so                         PDF support, loaded from <program>/../lib/tavrin
#   share/man/man1/tavrin*.1                         the manual pages, written from the commands
#   share/bash-completion/completions/tavrin         bash completion
#   share/zsh/vendor-completions/_tavrin             zsh completion
#   share/doc/tavrin/                                README and the batch recipes
#
# The module directory is a fixed "lib/tavrin", not the multiarch library directory, because the
# program finds the module relative to itself; the RPATH names the same place for any library
# placed there later.
set(TAVRIN_MODULE_DIR lib/tavrin)

set_target_properties(tavrin PROPERTIES INSTALL_RPATH "$ORIGIN/../${TAVRIN_MODULE_DIR}")
install(TARGETS tavrin RUNTIME DESTINATION bin COMPONENT tavrin)
install(TARGETS tavrin_pdf_module LIBRARY DESTINATION ${TAVRIN_MODULE_DIR} COMPONENT tavrin)
install(DIRECTORY ${CMAKE_BINARY_DIR}/share/man/man1 DESTINATION share/man COMPONENT tavrin
        FILES_MATCHING PATTERN "*.1")
install(FILES ${CMAKE_BINARY_DIR}/share/bash-completion/completions/tavrin
        DESTINATION share/bash-completion/completions COMPONENT tavrin)
install(FILES ${CMAKE_BINARY_DIR}/share/zsh/vendor-completions/_tavrin
        DESTINATION share/zsh/vendor-completions COMPONENT tavrin)
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION share/doc/tavrin COMPONENT tavrin)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/batch DESTINATION share/doc/tavrin COMPONENT tavrin)

# ---- Hooks for the parts that come later. Each installs only once its target or file exists. ----

# The desktop app and the share helper.
if(TARGET tavrin-app)
  install(TARGETS tavrin-app RUNTIME DESTINATION bin COMPONENT tavrin)
endif()
if(TARGET tavrin-share)
  install(TARGETS tavrin-share RUNTIME DESTINATION bin COMPONENT tavrin)
endif()
# Desktop entries (the app, "Open With", the tavrin: URL scheme handler).
file(GLOB TAVRIN_DESKTOP_FILES ${PROJECT_SOURCE_DIR}/data/applications/*.desktop)
if(TAVRIN_DESKTOP_FILES)
  install(FILES ${TAVRIN_DESKTOP_FILES} DESTINATION share/applications COMPONENT tavrin)
endif()
# The D-Bus activation file for com.tavrin.Tavrin.
# Its Exec names the program where this install puts it, known only when it runs (the package
# installs under /usr, `cmake --install` under its --prefix).
if(TARGET tavrin-app AND EXISTS ${PROJECT_SOURCE_DIR}/data/dbus/com.tavrin.Tavrin.service.in)
  install(CODE "
    file(READ \"${PROJECT_SOURCE_DIR}/data/dbus/com.tavrin.Tavrin.service.in\" text)
    string(REPLACE \"@BINDIR@\" \"\${CMAKE_INSTALL_PREFIX}/bin\" text \"\${text}\")
    file(WRITE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/share/dbus-1/services/com.tavrin.Tavrin.service\" \"\${text}\")
    message(STATUS \"Installing: \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/share/dbus-1/services/com.tavrin.Tavrin.service\")"
    COMPONENT tavrin)
endif()
# The systemd user unit (the folder watcher).
file(GLOB TAVRIN_USER_UNITS ${PROJECT_SOURCE_DIR}/data/systemd/*.service)
if(TAVRIN_USER_UNITS)
  install(FILES ${TAVRIN_USER_UNITS} DESTINATION lib/systemd/user COMPONENT tavrin)
endif()
# Icons, laid out as share/icons/hicolor/<size>/apps/.
if(IS_DIRECTORY ${PROJECT_SOURCE_DIR}/data/icons/hicolor)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/data/icons/hicolor DESTINATION share/icons COMPONENT tavrin)
endif()
# AppStream metadata.
if(EXISTS ${PROJECT_SOURCE_DIR}/data/metainfo/com.tavrin.Tavrin.metainfo.xml)
  install(FILES ${PROJECT_SOURCE_DIR}/data/metainfo/com.tavrin.Tavrin.metainfo.xml DESTINATION share/metainfo
          COMPONENT tavrin)
endif()

# ---- The Debian package ----
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tavrin)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Tavrin developers <tavrin@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "show and remove the metadata files carry, verifying every cleaned copy")
set(CPACK_PACKAGE_DESCRIPTION
    "Tavrin shows what a file carries (location, device, author, dates, software, edit history,\n"
    "comments, hidden content), removes what a cleaning profile names, re-reads the result to prove\n"
    "that nothing of it remains, and refuses to hand over a file it could not verify.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# dpkg-shlibdeps reads the module's needs too; it finds no package for a library of our own.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib/tavrin)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "libimage-exiftool-perl")
set(CPACK_STRIP_FILES ON)
set(CPACK_OUTPUT_FILE_PREFIX ${CMAKE_BINARY_DIR})
include(CPack)
