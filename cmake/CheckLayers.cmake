# Layers the build enforces. camrelay_check_layer(TARGET NAME [FOLDERS f...]
# ALLOWED l...) makes TARGET wait for a check of every source and header in
# the folders (by default the one called NAME, relative to the calling
# CMakeLists): each '#include "X/..."' must name an X in ALLOWED. The check
# runs again whenever one of those files changes, so an include that would
# make a layer depend on one above it stops the build with the file named.


function(camrelay_check_layer target name)
  cmake_parse_arguments(LAYER "" "" "FOLDERS;ALLOWED" ${ARGN})
  if(NOT LAYER_FOLDERS)
    set(LAYER_FOLDERS ${name})
  endif()
  set(files "")
  foreach(folder ${LAYER_FOLDERS})
    file(GLOB_RECURSE found CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp
         ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.h)
    list(APPEND files ${found})
  endforeach()
  set(stamp ${CMAKE_CURRENT_BINARY_DIR}/layers/${name}.checked)
  string(REPLACE ";" "," allowed "${LAYER_ALLOWED}")
  set(list_file ${CMAKE_CURRENT_BINARY_DIR}/layers/${name}.files)
  string(REPLACE ";" "\n" file_lines "${files}")
  file(CONFIGURE OUTPUT ${list_file} CONTENT "${file_lines}\n")
  add_custom_command(OUTPUT ${stamp}
    COMMAND ${CMAKE_COMMAND} -DLAYER=${name} -DALLOWED=${allowed} -DFILE_LIST=${list_file} -DSTAMP=${stamp}
            -P ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/check_layer.cmake
    DEPENDS ${files} ${list_file} ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/check_layer.cmake
    COMMENT "Checking the includes of layer ${name}" VERBATIM)
  add_custom_target(layer_check_${name} DEPENDS ${stamp})
  add_dependencies(${target} layer_check_${name})
endfunction()
