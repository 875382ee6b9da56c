# Fails the build when a source folder includes a header of a folder that comes
# later in KX_LAYERS (or of a folder the list does not name).
#
# Included from the top-level CMakeLists.txt, it adds a target run by every build
# that checks again whenever a source changes. Run as a script (cmake -P) with
# -DLAYERS=<list> -DSOURCE_DIR=<top> it does the check itself.

function(kx_check_layers source_dir layers)
  set(problems "")
  list(LENGTH layers count)
  math(EXPR last "${count} - 1")
  foreach(index RANGE ${last})
    list(GET layers ${index} folder)
    file(GLOB sources "${source_dir}/${folder}/*.h" "${source_dir}/${folder}/*.cpp")
    foreach(source IN LISTS sources)
      file(STRINGS "${source}" includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"[^\"]+\"")
      foreach(line IN LISTS includes)
        string(REGEX REPLACE ".*\"([^\"]+)\".*" "\\1" header "${line}")
        get_filename_component(header_folder "${header}" DIRECTORY)
        list(FIND layers "${header_folder}" header_index)
        if(header_index EQUAL -1 OR header_index GREATER index)
          file(RELATIVE_PATH name "${source_dir}" "${source}")
          string(APPEND problems "  ${name} includes \"${header}\"\n")
        endif()
      endforeach()
    endforeach()
  endforeach()
  if(problems)
    message(FATAL_ERROR "Folders may include only their own headers and those of folders before them "
                        "in KX_LAYERS (CMakeLists.txt):\n${problems}")
  endif()
endfunction()

if(CMAKE_SCRIPT_MODE_FILE)
  kx_check_layers("${SOURCE_DIR}" "${LAYERS}")
  return()
endif()

set(kx_layer_sources "")
foreach(folder IN LISTS KX_LAYERS)
  file(GLOB folder_sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${folder}/*.h" "${PROJECT_SOURCE_DIR}/${folder}/*.cpp")
  list(APPEND kx_layer_sources ${folder_sources})
endforeach()
set(kx_layers_stamp "${PROJECT_BINARY_DIR}/layers.checked")
add_custom_command(
  OUTPUT "${kx_layers_stamp}"
  COMMAND "${CMAKE_COMMAND}" "-DLAYERS=${KX_LAYERS}" "-DSOURCE_DIR=${PROJECT_SOURCE_DIR}"
          -P "${PROJECT_SOURCE_DIR}/cmake/CheckLayers.cmake"
  COMMAND "${CMAKE_COMMAND}" -E touch "${kx_layers_stamp}"
  DEPENDS ${kx_layer_sources} "${PROJECT_SOURCE_DIR}/cmake/CheckLayers.cmake"
  COMMENT "Checking that folders include only layers below them"
  VERBATIM)
add_custom_target(kx_check_layers ALL DEPENDS "${kx_layers_stamp}")
