# What the Windows build takes instead of the system's packages:
# - the header-only libraries (Boost, CLI11, nlohmann's JSON) from the
#   distribution's /usr/include, each through a folder that holds nothing but
#   a link to it, so that no other Linux header reaches the cross compiler;
# - SQLite compiled from the amalgamation that scripts/test-windows builds from
#   the distribution's source package (CAMRELAY_SQLITE_DIR).
function(camrelay_header_library target folder)
  set(root ${CMAKE_BINARY_DIR}/${folder}-headers)
  if(NOT EXISTS ${root}/${folder})
    if(NOT EXISTS /usr/include/${folder})
      message(FATAL_ERROR "/usr/include/${folder} is missing: scripts/install-deps installs it")
    endif()
    file(MAKE_DIRECTORY ${root})
    file(CREATE_LINK /usr/include/${folder} ${root}/${folder} SYMBOLIC)
  endif()
  add_library(${target} INTERFACE IMPORTED)
  target_include_directories(${target} SYSTEM INTERFACE ${root})
endfunction()
camrelay_header_library(Boost::headers boost)
camrelay_header_library(CLI11::CLI11 CLI)
camrelay_header_library(nlohmann_json::nlohmann_json nlohmann)
# Asio on Windows needs Winsock and at least Windows 7's API.
target_compile_definitions(Boost::headers INTERFACE _WIN32_WINNT=0x0601 WIN32_LEAN_AND_MEAN)
target_link_libraries(Boost::headers INTERFACE ws2_32 mswsock)

set(CAMRELAY_SQLITE_DIR "" CACHE PATH "Folder holding sqlite3.c and sqlite3.h")
if(NOT EXISTS "${CAMRELAY_SQLITE_DIR}/sqlite3.c")
  message(FATAL_ERROR "CAMRELAY_SQLITE_DIR must name the folder of the SQLite amalgamation "
                      "(scripts/test-windows prepares it)")
endif()
add_library(camrelay_sqlite3 STATIC ${CAMRELAY_SQLITE_DIR}/sqlite3.c)
target_include_directories(camrelay_sqlite3 SYSTEM PUBLIC $<BUILD_INTERFACE:${CAMRELAY_SQLITE_DIR}>)
target_compile_definitions(camrelay_sqlite3 PRIVATE SQLITE_THREADSAFE=1 SQLITE_OMIT_LOAD_EXTENSION)
# Debug information for SQLite's 250,000 lines would cost most of the build.
target_compile_options(camrelay_sqlite3 PRIVATE -g0)
add_library(SQLite::SQLite3 ALIAS camrelay_sqlite3)
install(TARGETS camrelay_sqlite3 EXPORT camrelayTargets ARCHIVE DESTINATION lib)

# The C runtime's POSIX names for its thread-safe time functions (localtime_r).
add_compile_definitions(_POSIX_THREAD_SAFE_FUNCTIONS=200112L)
