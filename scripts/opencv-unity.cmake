# Read by OpenCV's project() (see opencv-recipe.sh). Compiles several sources of a module as one, since more than half of
# the time of most of them goes into the headers that they share. Only modules whose sources agree: in imgproc some define
# the same names, and others would get overloads of the software floats that the module's first sources include.

set(ORVO_UNITY_MODULES core dnn)

# Sources that stay on their own. Variants for instruction sets have flags of their own and are never joined; the sources
# that choose among these include them for the baseline, each in its own way. Winograd's constants are also macros.
set(ORVO_UNITY_ALONE "\\.dispatch\\.cpp$|winograd_[0-9a-z_]*\\.cpp$")

function(orvo_join_sources)
  foreach(MODULE ${ORVO_UNITY_MODULES})
    set_target_properties(opencv_${MODULE} PROPERTIES UNITY_BUILD ON)
    get_target_property(SOURCES opencv_${MODULE} SOURCES)
    list(FILTER SOURCES INCLUDE REGEX "${ORVO_UNITY_ALONE}")
    set_source_files_properties(${SOURCES} TARGET_DIRECTORY opencv_${MODULE} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  endforeach()
endfunction()

# When all modules are defined.
cmake_language(DEFER DIRECTORY ${CMAKE_SOURCE_DIR} CALL orvo_join_sources)
