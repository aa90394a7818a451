# Where `cmake --install` puts headers, shared library, CMake package and pkg-config file. apps/ adds its own.
include(CMakePackageConfigHelpers)

install(TARGETS orvo_extensions EXPORT orvo_extensions
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
foreach(LIBRARY orvo_common orvo_logger orvo_core orvo_io orvo_image_processing orvo_brush orvo)
  install(DIRECTORY family/${LIBRARY}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} PATTERN detail EXCLUDE)
endforeach()

set(PACKAGE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/orvo_extensions)
install(EXPORT orvo_extensions NAMESPACE orvo:: FILE orvo_extensionsTargets.cmake DESTINATION ${PACKAGE_FOLDER})
configure_package_config_file(cmake/orvo_extensionsConfig.cmake.in ${CMAKE_BINARY_DIR}/orvo_extensionsConfig.cmake
  INSTALL_DESTINATION ${PACKAGE_FOLDER})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/orvo_extensionsConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/orvo_extensionsConfig.cmake ${CMAKE_BINARY_DIR}/orvo_extensionsConfigVersion.cmake
  DESTINATION ${PACKAGE_FOLDER})
# pkg-config finds the prefix from where its file lies, so that the whole tree can be installed or moved anywhere.
file(RELATIVE_PATH ORVO_PREFIX_FROM_PKGCONFIG "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
configure_file(cmake/orvo_extensions.pc.in ${CMAKE_BINARY_DIR}/orvo_extensions.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/orvo_extensions.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
