# Debian keeps libraries in the multiarch folder (lib/x86_64-linux-gnu on
# amd64), where its linker, pkg-config and CMake look whatever the prefix.
# GNUInstallDirs picks it only when configured for the prefix /usr, but the
# package is installed into /usr from a build configured for /usr/local; so
# the multiarch folder is chosen here, once, unless one was given
# (-DCMAKE_INSTALL_LIBDIR=...). A build folder that already holds
# GNUInstallDirs' plain "lib" is moved to it too.
if(CMAKE_LIBRARY_ARCHITECTURE AND NOT WIN32 AND EXISTS /etc/debian_version
   AND NOT DEFINED CACHE{CAMRELAY_MULTIARCH_LIBDIR}
   AND (NOT DEFINED CACHE{CMAKE_INSTALL_LIBDIR} OR "$CACHE{CMAKE_INSTALL_LIBDIR}" STREQUAL "lib"))
  set(CAMRELAY_MULTIARCH_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE INTERNAL "The multiarch folder chosen")
  set(CMAKE_INSTALL_LIBDIR ${CAMRELAY_MULTIARCH_LIBDIR} CACHE PATH "Object code libraries (lib)" FORCE)
endif()
