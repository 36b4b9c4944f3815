# Installing and packaging: what `cmake --install` puts where, the manual pages, and the Debian
# package that CPack builds (scripts/package.sh, or `cpack` in the build folder).
#
#   bin/                                  tydbcreate-cli, dbfinspect, tydbcreate (when built)
#   share/man/man1/                       their manual pages, gzip-compressed
#   share/doc/tydbcreate/                 copyright, changelog.gz
#   share/doc/tydbcreate/examples/demo/   the demo application folder, without built tables
#   share/applications/, share/icons/hicolor/scalable/apps/   the window's menu entry and icon
#   /etc/tallyo/registry.ini              the sample registry file, a configuration file of the
#                                         package; absolute, because the programs read that path
#                                         whatever the prefix
# The benchmarks are not installed.
include(GNUInstallDirs)

set(TY_PACKAGE_NAME tydbcreate)
set(TY_PACKAGE_MAINTAINER "tyDBCreate developers <tydbcreate@example.org>")
set(ty_doc ${CMAKE_INSTALL_DATADIR}/doc/${TY_PACKAGE_NAME})
set(ty_window_dir ${PROJECT_SOURCE_DIR}/app/tydbcreate)

# 1. The programs.
foreach(program tydbcreate-cli dbfinspect tydbcreate)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()
if(TARGET tydbcreate)
  foreach(file tydbcreate.desktop tydbcreate.svg)
    if(NOT EXISTS ${ty_window_dir}/${file})
      message(FATAL_ERROR "app/tydbcreate/${file} is missing: the window is installed with it")
    endif()
  endforeach()
  install(FILES ${ty_window_dir}/tydbcreate.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
  install(FILES ${ty_window_dir}/tydbcreate.svg
          DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
endif()

# 2. The manual pages, made at build time into man/: from --help by help2man for the
# command-line programs (so they cannot go stale), by hand for the window.
find_program(TY_HELP2MAN help2man)
if(NOT TY_HELP2MAN)
  message(FATAL_ERROR "help2man is missing: the manual pages are made with it. "
                      "Install it with `apt-get install help2man` (scripts/bootstrap.sh does).")
endif()
set(TY_MAN_DIR ${CMAKE_BINARY_DIR}/man)
set(TY_MAN_PAGES)
foreach(program tydbcreate-cli dbfinspect tydbcreate)
  if(NOT TARGET ${program})
    continue()
  endif()
  set(page ${TY_MAN_DIR}/${program}.1)
  if(EXISTS ${PROJECT_SOURCE_DIR}/packaging/${program}.h2m)
    set(input ${PROJECT_SOURCE_DIR}/packaging/${program}.h2m)
    set(how -DHELP2MAN=${TY_HELP2MAN} -DPROGRAM=$<TARGET_FILE:${program}> -DINCLUDE=${input}
            "-DSOURCE=${PROJECT_NAME} ${PROJECT_VERSION}")
  else()
    set(input ${PROJECT_SOURCE_DIR}/packaging/${program}.1)
    set(how -DPAGE=${input})
  endif()
  add_custom_command(OUTPUT ${page} ${page}.gz
                     COMMAND ${CMAKE_COMMAND} ${how} -DOUTPUT=${page}
                             -P ${PROJECT_SOURCE_DIR}/cmake/HelpToMan.cmake
                     DEPENDS ${program} ${input} ${PROJECT_SOURCE_DIR}/cmake/HelpToMan.cmake
                     COMMENT "Manual page ${program}(1)" VERBATIM)
  list(APPEND TY_MAN_PAGES ${page})
  install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endforeach()
add_custom_target(man_pages ALL DEPENDS ${TY_MAN_PAGES})

# 3. The documents: copyright, the package's changelog, and the example application folder
# (what a scan of the demo writes is left out).
configure_file(${PROJECT_SOURCE_DIR}/packaging/changelog.in ${CMAKE_BINARY_DIR}/packaging/changelog
               @ONLY)
execute_process(COMMAND gzip -9n -c ${CMAKE_BINARY_DIR}/packaging/changelog
                OUTPUT_FILE ${CMAKE_BINARY_DIR}/packaging/changelog.gz)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright ${CMAKE_BINARY_DIR}/packaging/changelog.gz
        DESTINATION ${ty_doc})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/demo DESTINATION ${ty_doc}/examples
        PATTERN Temp EXCLUDE
        PATTERN errors.log EXCLUDE
        PATTERN robots.dat EXCLUDE
        REGEX "\\.([Dd][Bb][Ff]|[Mm][Dd][Xx])$" EXCLUDE)

# 4. The sample registry file, kept by dpkg as a configuration file. `cmake --install` never
# writes it over a registry file that is already there (one the user has filled in).
set(ty_sample_registry ${PROJECT_SOURCE_DIR}/packaging/registry.ini)
install(CODE "
  set(registry \"\$ENV{DESTDIR}/etc/tallyo/registry.ini\")
  if(EXISTS \"\${registry}\")
    message(STATUS \"Kept: \${registry} (the sample registry file is not installed over it)\")
  else()
    file(INSTALL DESTINATION /etc/tallyo TYPE FILE FILES \"${ty_sample_registry}\")
  endif()")
file(WRITE ${CMAKE_BINARY_DIR}/packaging/conffiles "/etc/tallyo/registry.ini\n")

# 5. The Debian package: tydbcreate_<version>_<arch>.deb in the folder cpack runs in.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${TY_PACKAGE_NAME})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${TY_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${TY_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/packaging/conffiles)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "rebuilds a web-site monitoring database from web-server logs")
# CPack puts the summary above as the first line; this is the extended description.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "tydbcreate-cli reads the configuration of the Tallyo web-site monitoring
product (copied from its Windows installation), reads the web-server logs of
every monitored site (W3C Extended, five fixed layouts, ARCHIVE.ZIP) and
writes the product's visitor database as dBASE IV tables with their
production indexes. dbfinspect shows and checks such tables.")
if(TARGET tydbcreate)
  string(APPEND CPACK_DEBIAN_PACKAGE_DESCRIPTION "
tydbcreate runs the same scan in the product's one-window wizard.")
endif()
include(CPack)
