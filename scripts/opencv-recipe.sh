# The one OpenCV build that the project uses, as shell variables. Sourced, never run.
#
# Debian 12 ships OpenCV 4.6 without xfeatures2d; aligning and stitching need SURF, which lives there behind
# OPENCV_ENABLE_NONFREE. The source distribution of the Python package holds OpenCV and its contrib modules whole.
# A change to any line of this file gives the build a new folder, so an old build is never taken for a new one.

opencv_version=4.7.0
opencv_python_package=opencv-contrib-python==4.7.0.72
# photo: the exposure fusion that the benchmarks compare with. dnn, objdetect and stitching: upscaling, faces and panoramas.
opencv_modules=core,imgproc,photo,features2d,calib3d,flann,video,xfeatures2d,stitching,dnn,objdetect
opencv_options=(
  -DCMAKE_BUILD_TYPE=Release
  -DBUILD_LIST="$opencv_modules"
  -DOPENCV_ENABLE_NONFREE=ON
  -DWITH_TBB=ON -DWITH_OPENCL=ON -DWITH_EIGEN=ON
  -DWITH_IPP=OFF -DWITH_ITT=OFF -DBUILD_ITT=OFF -DWITH_ADE=OFF -DWITH_QUIRC=OFF -DWITH_FFMPEG=OFF -DWITH_GSTREAMER=OFF
  -DWITH_GTK=OFF -DWITH_1394=OFF -DWITH_V4L=OFF -DWITH_CUDA=OFF -DWITH_JASPER=OFF -DWITH_OPENJPEG=OFF
  -DWITH_OPENEXR=OFF -DWITH_JPEG=OFF -DWITH_PNG=OFF -DWITH_TIFF=OFF -DWITH_WEBP=OFF -DWITH_VTK=OFF -DWITH_LAPACK=OFF
  -DBUILD_TESTS=OFF -DBUILD_PERF_TESTS=OFF -DBUILD_EXAMPLES=OFF -DBUILD_opencv_apps=OFF -DBUILD_JAVA=OFF
  -DBUILD_opencv_python2=OFF -DBUILD_opencv_python3=OFF -DBUILD_ZLIB=OFF
  -DBUILD_PROTOBUF=OFF -DPROTOBUF_UPDATE_FILES=ON
  -DCPU_BASELINE=SSE4_2 -DCPU_DISPATCH=AVX2,AVX512_SKX
  -DOPENCV_GENERATE_PKGCONFIG=OFF
)

opencv_recipe_hash() { sha256sum "${BASH_SOURCE[0]}" | cut -c1-12; }
orvo_deps_folder() { printf '%s\n' "${ORVO_DEPS:-${XDG_CACHE_HOME:-$HOME/.cache}/orvo}"; }
opencv_prefix() { printf '%s/opencv-%s-%s\n' "$(orvo_deps_folder)" "$opencv_version" "$(opencv_recipe_hash)"; }
