# What the Windows build takes instead of the system's packages:
# - Boost's headers from the distribution's /usr/include/boost, through a folder
#   that holds nothing but a link to it, so that no other Linux header reaches
#   the cross compiler;
# - SQLite compiled from the amalgamation that scripts/test-windows builds from
#   the distribution's source package (CAMRELAY_SQLITE_DIR).
set(CAMRELAY_BOOST_ROOT ${CMAKE_BINARY_DIR}/boost-headers)
if(NOT EXISTS ${CAMRELAY_BOOST_ROOT}/boost)
  file(MAKE_DIRECTORY ${CAMRELAY_BOOST_ROOT})
  file(CREATE_LINK /usr/include/boost ${CAMRELAY_BOOST_ROOT}/boost SYMBOLIC)
endif()
add_library(Boost::headers INTERFACE IMPORTED)
# Asio on Windows needs Winsock and at least Windows 7's API.
target_include_directories(Boost::headers SYSTEM INTERFACE ${CAMRELAY_BOOST_ROOT})
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
