# Every third-party library, found once. docs/architecture.md lists which library may use which.

# OpenCV with SURF: the build of scripts/bootstrap.sh, else one installed on the machine.
execute_process(
  COMMAND bash -c ". '${PROJECT_SOURCE_DIR}/scripts/opencv-recipe.sh' && opencv_prefix"
  OUTPUT_VARIABLE ORVO_OPENCV_PREFIX OUTPUT_STRIP_TRAILING_WHITESPACE)
set(ORVO_OPENCV_COMPONENTS core imgproc photo features2d flann calib3d video xfeatures2d stitching dnn objdetect)
find_package(OpenCV 4.7 QUIET COMPONENTS ${ORVO_OPENCV_COMPONENTS} HINTS ${ORVO_OPENCV_PREFIX})
if(NOT OpenCV_FOUND)
  message(FATAL_ERROR "No OpenCV 4.7 or newer with xfeatures2d was found. Run scripts/bootstrap.sh, which builds one (about ten minutes, once).")
endif()
message(STATUS "OpenCV ${OpenCV_VERSION} in ${OpenCV_DIR}")
# OpenCV's targets declare their headers as system headers, but Debian's /usr/include must never come before them.

find_package(TBB REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(spdlog REQUIRED)
find_package(Eigen3 REQUIRED NO_MODULE)
find_package(JPEG REQUIRED)
find_package(PNG REQUIRED)
find_package(TIFF REQUIRED)
find_package(nlohmann_json REQUIRED)
# Debian's CMake files of Imath name a Python library that is in another package; pkg-config's are correct.
pkg_check_modules(OPENEXR REQUIRED IMPORTED_TARGET OpenEXR)
pkg_check_modules(LCMS2 REQUIRED IMPORTED_TARGET lcms2)
pkg_check_modules(LIBRAW REQUIRED IMPORTED_TARGET libraw)
pkg_check_modules(EXIV2 REQUIRED IMPORTED_TARGET exiv2)
pkg_check_modules(HEIF REQUIRED IMPORTED_TARGET libheif)
pkg_check_modules(WEBP REQUIRED IMPORTED_TARGET libwebp libwebpdemux)
pkg_check_modules(LENSFUN REQUIRED IMPORTED_TARGET lensfun)
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET libavformat libavcodec libavutil libswscale)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
if(ORVO_APPS)
  find_package(CLI11 REQUIRED)
  pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
endif()
if(ORVO_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()
if(ORVO_BENCHMARKS)
  find_package(benchmark REQUIRED)
endif()
