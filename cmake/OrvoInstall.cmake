# Where `cmake --install` puts headers, shared library, CMake package and pkg-config file. apps/ adds its own. The tree
# works from any prefix, also after it was moved: nothing in it names an absolute path.
include(CMakePackageConfigHelpers)

install(TARGETS orvo_extensions EXPORT orvo_extensions
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
foreach(LIBRARY orvo_common orvo_logger orvo_core orvo_io orvo_image_processing orvo_brush orvo)
  install(DIRECTORY family/${LIBRARY}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} PATTERN detail EXCLUDE)
endforeach()

# An OpenCV that scripts/bootstrap.sh built is on no other machine, so its libraries are installed in a folder that only
# ours look into, with the headers of its core for the one header of ours that needs them. One that the machine has
# already is left where it is.
set(ORVO_PRIVATE_FOLDER orvo_extensions)
set(ORVO_DOC_FOLDER ${CMAKE_INSTALL_DATAROOTDIR}/doc/orvo-extensions)  # the name of the Debian package
cmake_path(IS_PREFIX ORVO_OPENCV_PREFIX "${OpenCV_DIR}" NORMALIZE ORVO_BRINGS_OPENCV)
if(ORVO_BRINGS_OPENCV)
  set(BROUGHT ${ORVO_OPENCV_COMPONENTS})
  list(REMOVE_ITEM BROUGHT photo)  # only benchmarks use it
  set(BROUGHT_FILES "")
  foreach(MODULE IN LISTS BROUGHT)
    install(FILES $<TARGET_FILE:opencv_${MODULE}> RENAME $<TARGET_SONAME_FILE_NAME:opencv_${MODULE}>
      DESTINATION ${CMAKE_INSTALL_LIBDIR}/${ORVO_PRIVATE_FOLDER})
    list(APPEND BROUGHT_FILES $<TARGET_SONAME_FILE_NAME:opencv_${MODULE}>)
  endforeach()
  # As built they look for each other in the folder that they were built for.
  install(CODE "
    foreach(FILE ${BROUGHT_FILES})
      file(RPATH_SET FILE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/${ORVO_PRIVATE_FOLDER}/\${FILE}\"
        NEW_RPATH \"\\\$ORIGIN\")
    endforeach()")
  set(ORVO_OPENCV_HEADERS ${ORVO_OPENCV_PREFIX}/include/opencv4/opencv2)
  set(ORVO_OPENCV_INCLUDEDIR ${CMAKE_INSTALL_LIBDIR}/${ORVO_PRIVATE_FOLDER}/include)
  install(DIRECTORY ${ORVO_OPENCV_HEADERS}/core DESTINATION ${ORVO_OPENCV_INCLUDEDIR}/opencv2)
  install(FILES ${ORVO_OPENCV_HEADERS}/core.hpp ${ORVO_OPENCV_HEADERS}/cvconfig.h ${ORVO_OPENCV_HEADERS}/opencv_modules.hpp
    DESTINATION ${ORVO_OPENCV_INCLUDEDIR}/opencv2)
  install(DIRECTORY ${ORVO_OPENCV_PREFIX}/share/licenses/opencv4/ DESTINATION ${ORVO_DOC_FOLDER}/opencv)
  set_target_properties(orvo_extensions PROPERTIES INSTALL_RPATH "$ORIGIN/${ORVO_PRIVATE_FOLDER}")
else()
  set_target_properties(orvo_extensions PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON)
endif()
install(FILES LICENSE CHANGELOG.md cmake/package/copyright DESTINATION ${ORVO_DOC_FOLDER})

set(PACKAGE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/orvo_extensions)
install(EXPORT orvo_extensions NAMESPACE orvo:: FILE orvo_extensionsTargets.cmake DESTINATION ${PACKAGE_FOLDER})
set(ORVO_OPENCV_CORE "")
if(ORVO_BRINGS_OPENCV)
  get_target_property(CORE_SONAME opencv_core IMPORTED_SONAME_RELEASE)
  set(ORVO_OPENCV_LIBDIR ${CMAKE_INSTALL_LIBDIR}/${ORVO_PRIVATE_FOLDER})
  set(ORVO_OPENCV_CORE ${ORVO_OPENCV_LIBDIR}/${CORE_SONAME})
endif()
configure_package_config_file(cmake/orvo_extensionsConfig.cmake.in ${CMAKE_BINARY_DIR}/orvo_extensionsConfig.cmake
  INSTALL_DESTINATION ${PACKAGE_FOLDER})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/orvo_extensionsConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/orvo_extensionsConfig.cmake ${CMAKE_BINARY_DIR}/orvo_extensionsConfigVersion.cmake
  DESTINATION ${PACKAGE_FOLDER})
# pkg-config finds the prefix from where its file lies, so that the whole tree can be installed or moved anywhere.
file(RELATIVE_PATH ORVO_PREFIX_FROM_PKGCONFIG "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
set(MODULES orvo_extensions)
if(ORVO_BRINGS_OPENCV)
  list(APPEND MODULES orvo_extensions-opencv)
endif()
foreach(MODULE IN LISTS MODULES)
  configure_file(cmake/${MODULE}.pc.in ${CMAKE_BINARY_DIR}/${MODULE}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/${MODULE}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
