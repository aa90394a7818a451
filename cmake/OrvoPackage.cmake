# `cpack --config build/release/CPackConfig.cmake` makes the Debian package: program, library, headers, manual page and
# completions. scripts/try_package.sh installs it on an empty Debian.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orvo-extensions)
set(CPACK_PACKAGE_VENDOR "the authors of orvo_extensions")
# The maintainer of a package, which dpkg requires, is whoever distributes it. A package for one's own machine needs no
# address.
set(ORVO_PACKAGE_CONTACT "" CACHE STRING "maintainer of the package: NAME <ADDRESS>")
set(CPACK_PACKAGE_CONTACT ${CPACK_PACKAGE_VENDOR})
if(ORVO_PACKAGE_CONTACT)
  set(CPACK_PACKAGE_CONTACT ${ORVO_PACKAGE_CONTACT})
elseif(PROJECT_HOMEPAGE_URL)
  string(APPEND CPACK_PACKAGE_CONTACT ", ${PROJECT_HOMEPAGE_URL}")
endif()
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "merges brackets, focus series and panoramas, upscales and fills pictures")
set(CPACK_PACKAGE_DESCRIPTION "The command line program orvo, and the C++20 library orvo_extensions behind it for photo editors, with its headers,
CMake package and pkg-config file.")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
# Depends is what the files link, as dpkg-shlibdeps reads it; the OpenCV that the package brings is no dependency.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
if(ORVO_BRINGS_OPENCV)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${ORVO_OPENCV_PREFIX}/lib)
endif()
# The cascades of the face detection; what a project that links the library builds with.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS opencv-data)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "libtbb-dev, g++, cmake, pkg-config")
include(CPack)
