# What an installed CamRelay holds besides the programs and the library: the
# pkg-config file, the CMake package's version file, the schema, the
# documentation; and the Debian package built from all of it by CPack.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(CPACK_PACKAGE_NAME camrelay)
set(CPACK_PACKAGE_VENDOR "The CamRelay developers")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "talk to video alarm communicators over TCP and UDP")
set(CPACK_PACKAGE_DESCRIPTION
"CamRelay logs in to a video alarm communicator (a unit) with an access code,
downloads and uploads its programming, fetches its event log and camera
events, moves voice messages both ways, sends firmware updates, fetches
snapshots and clips, exchanges command strings, changes the installer and
user codes and drives a live camera preview. What comes from the unit is kept
in a local SQLite database and in folders.

This package holds the command-line host camrelay, the simulated unit
camrelay-unit (for development and tests without hardware), and the C++
library with its headers, CMake package and pkg-config file.")

# pkg-config: the prefix is found from the file's own folder.
file(RELATIVE_PATH CAMRELAY_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" CAMRELAY_PC_TO_PREFIX ${CAMRELAY_PC_TO_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/camrelay.pc.in ${PROJECT_BINARY_DIR}/camrelay.pc.in @ONLY)
# Generated, so that the compile definitions are always the library's own.
file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/camrelay.pc INPUT ${PROJECT_BINARY_DIR}/camrelay.pc.in)
install(FILES ${PROJECT_BINARY_DIR}/camrelay.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# find_package(camrelay 0.1): versions before 1.0 promise nothing across minor versions.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/camrelayConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/camrelayConfigVersion.cmake DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/camrelay)

# The library creates databases from its own built-in copy; the schema is
# installed for those who inspect or create a database by other means.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/schema/ DESTINATION ${CMAKE_INSTALL_DATADIR}/camrelay/schema
  FILES_MATCHING PATTERN "*.sql")
# A stripping install (CPack's) strips the programs; the static library keeps
# the symbols it is linked by and loses only its debug information.
install(CODE "
  if(CMAKE_INSTALL_DO_STRIP)
    execute_process(COMMAND ${CMAKE_STRIP} --strip-debug
      \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/$<TARGET_FILE_NAME:camrelay>\")
  endif()
")
# Debian looks for the copyright and the changelog (compressed, without a
# time stamp, so that two builds give the same file) under the package's name.
execute_process(COMMAND gzip -9nc ${CMAKE_CURRENT_LIST_DIR}/changelog
  OUTPUT_FILE ${PROJECT_BINARY_DIR}/changelog.gz)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/changelog)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/copyright ${PROJECT_BINARY_DIR}/changelog.gz ${PROJECT_SOURCE_DIR}/README.md
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/camrelay)

# The Maintainer field; a packager of their own gives
# -DCPACK_DEBIAN_PACKAGE_MAINTAINER="Name <address>".
set(CPACK_PACKAGE_CONTACT "CamRelay developers <developers@camrelay.org>")
set(CPACK_GENERATOR DEB)
# Installed with DESTDIR, so that the install steps see the real prefix.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
# Depends: computed by dpkg-shlibdeps from the libraries the programs use.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Building against the library needs the headers of its dependencies.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "libboost-dev (>= 1.74), libsqlite3-dev, pkg-config")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
