# Installation and packages: the documentation, the manual pages, the Debian
# copyright and changelog files, and CPack's settings for the Debian package (on
# Linux) and the Windows installer and zip (in the mingw-w64 build).
# The programs' own install() rules stand beside their targets.
# scripts/package.sh drives it all.

set(QMLOAD_MAINTAINER "qmload maintainers <maintainers@users.noreply.c-seed-9874a2e2.example>")
set(QMLOAD_SUMMARY "flash AELF application images into controllers over a serial line")

# Manual pages, made at build time by help2man from each program's --help and
# --version and a hand-written include file (docs/man/), so they always list the
# options the programs really have. They need to run the programs, so a
# cross-build has none.
set(qmload_manpages_default OFF)
if(NOT CMAKE_CROSSCOMPILING)
  find_program(QMLOAD_HELP2MAN help2man)
  find_program(QMLOAD_GZIP gzip)
  if(QMLOAD_HELP2MAN AND QMLOAD_GZIP)
    set(qmload_manpages_default ON)
  else()
    message(STATUS "help2man or gzip not found: no manual pages (install them with: bash scripts/setup.sh)")
  endif()
endif()
option(QMLOAD_MANPAGES "Make the manual pages with help2man" ${qmload_manpages_default})

set(qmload_man_dir ${CMAKE_BINARY_DIR}/man)
set(qmload_man_outputs)
if(QMLOAD_MANPAGES)
  foreach(program IN ITEMS qmload qmload-cli qmload-sim)
    if(NOT TARGET ${program})
      continue()
    endif()
    set(include ${PROJECT_SOURCE_DIR}/docs/man/${program}.h2m)
    set(command "$<TARGET_FILE:${program}>")
    if(program STREQUAL "qmload-cli")
      # Its page also carries each subcommand's options.
      set(command "sh ${PROJECT_SOURCE_DIR}/docs/man/help-with-subcommands.sh $<TARGET_FILE:${program}>")
    endif()
    set(page ${qmload_man_dir}/${program}.1)
    add_custom_command(OUTPUT ${page}.gz
      COMMAND ${CMAKE_COMMAND} -E make_directory ${qmload_man_dir}
      COMMAND ${QMLOAD_HELP2MAN} --no-info --no-discard-stderr --include ${include} --output ${page} "${command}"
      COMMAND ${QMLOAD_GZIP} -9nf ${page}
      DEPENDS ${program} ${include} ${PROJECT_SOURCE_DIR}/docs/man/help-with-subcommands.sh
      COMMENT "Manual page ${program}(1)"
      VERBATIM)
    list(APPEND qmload_man_outputs ${page}.gz)
  endforeach()
  add_custom_target(manpages ALL DEPENDS ${qmload_man_outputs})
  install(FILES ${qmload_man_outputs} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

if(WIN32)
  # Beside the programs in the installation folder.
  install(FILES README.md DESTINATION .)
else()
  install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
  install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
    PATTERN ".gitignore" EXCLUDE)

  # Debian's copyright file and, for a package without a Debian revision, its
  # changelog.gz. The date is the commit's (or the configure time's), so a
  # rebuild of the same commit gives the same file.
  execute_process(COMMAND git -C ${PROJECT_SOURCE_DIR} log -1 --format=%ct
    OUTPUT_VARIABLE qmload_release_epoch OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(NOT qmload_release_epoch)
    string(TIMESTAMP qmload_release_epoch "%s" UTC)
  endif()
  execute_process(COMMAND date -u -R -d @${qmload_release_epoch}
    OUTPUT_VARIABLE QMLOAD_RELEASE_DATE OUTPUT_STRIP_TRAILING_WHITESPACE)
  execute_process(COMMAND date -u +%Y -d @${qmload_release_epoch}
    OUTPUT_VARIABLE QMLOAD_RELEASE_YEAR OUTPUT_STRIP_TRAILING_WHITESPACE)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/copyright.in ${CMAKE_BINARY_DIR}/debian/copyright @ONLY)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in ${CMAKE_BINARY_DIR}/debian/changelog @ONLY)
  add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/debian/changelog.gz
    COMMAND ${QMLOAD_GZIP} -9nkf ${CMAKE_BINARY_DIR}/debian/changelog
    DEPENDS ${CMAKE_BINARY_DIR}/debian/changelog
    VERBATIM)
  add_custom_target(debian_changelog ALL DEPENDS ${CMAKE_BINARY_DIR}/debian/changelog.gz)
  install(FILES ${CMAKE_BINARY_DIR}/debian/copyright ${CMAKE_BINARY_DIR}/debian/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DOCDIR})
endif()

# CPack: one package of everything installed.
set(CPACK_PACKAGE_NAME qmload)
set(CPACK_PACKAGE_VENDOR "qmload")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${QMLOAD_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${QMLOAD_SUMMARY})
set(CPACK_PACKAGE_INSTALL_DIRECTORY qmload)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)

if(WIN32)
  set(CPACK_GENERATOR "NSIS;ZIP")
  set(CPACK_PACKAGE_FILE_NAME qmload-${PROJECT_VERSION}-win64)
  set(CPACK_NSIS_INSTALL_ROOT "$PROGRAMFILES64")
  # A 64-bit installer (Debian's nsis ships the amd64 stubs): it runs where the
  # programs run, on 64-bit Windows and in a 64-bit-only Wine.
  set(CPACK_NSIS_DEFINES "Target amd64-unicode")
  set(CPACK_NSIS_PACKAGE_NAME "qmload ${PROJECT_VERSION}")
  set(CPACK_NSIS_DISPLAY_NAME "qmload ${PROJECT_VERSION}")
  # The programs stand at the top of the installation folder, not in bin\.
  set(CPACK_NSIS_EXECUTABLES_DIRECTORY .)
  set(CPACK_PACKAGE_EXECUTABLES qmload qmload) # the Start-menu entry of the GUI
  set(CPACK_NSIS_INSTALLED_ICON_NAME qmload.exe)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${QMLOAD_MAINTAINER})
  set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
  set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  # The long description; CPack puts the summary line before it.
  set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "qmload prepares application images for a family of STM32-class controllers
in its own AELF format (.alf) and writes them into a controller over a serial
line (UART / RS-485) with a CRC-16/MODBUS request/reply protocol.
.
This package holds the GUI (qmload), the command line for scripts and
production lines (qmload-cli) and a simulated device on a pseudo-terminal for
trying both without hardware (qmload-sim).")
endif()

include(CPack)
