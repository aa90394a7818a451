# The one OpenCV build that the project uses, as shell variables. Sourced, never run.
#
# Debian 12 ships OpenCV 4.6 without xfeatures2d; aligning and stitching need SURF, which lives there behind
# OPENCV_ENABLE_NONFREE. The source distribution of the Python package holds OpenCV and its contrib modules whole.
# A change to any line of this file or of opencv-unity.cmake gives the build a new folder, so an old build is never taken
# for a new one.

opencv_scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
opencv_version=4.7.0
opencv_python_package=opencv-contrib-python==4.7.0.72
# photo: the exposure fusion that the benchmarks compare with. dnn, objdetect and stitching: upscaling, faces and panoramas.
opencv_modules=core,imgproc,photo,features2d,calib3d,flann,video,xfeatures2d,stitching,dnn,objdetect
opencv_options=(
  -DCMAKE_BUILD_TYPE=Release
  -DCMAKE_CXX_FLAGS=-fno-math-errno  # roundings of SURF and of registration are instructions instead of calls
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
  -DOPENCV_DNN_OPENCL=OFF  # networks run on the processor
  -DOPENCV_SKIP_FEATURES2D_DOWNLOADING=ON  # data of descriptors that are left out
  -DCMAKE_PROJECT_OpenCV_INCLUDE="$opencv_scripts/opencv-unity.cmake"
)

# Sources that no program of the project reaches, not even indirectly: a third of the compile time of the whole modules.
# Their functions stay declared, and a call is an error of the linker: then remove the file from this list. The modules
# are linked with --no-undefined, so a file that they need themselves cannot be left out unnoticed. core and imgproc stay
# whole, since new code is most likely to call these. dnn reads ONNX networks only.
opencv_left_out=(
  opencv/modules/calib3d/src/{ap3p,calibinit,calibration_handeye,checkchessboard,chessboard,circlesgrid,dls,epnp,fisheye}.cpp
  opencv/modules/calib3d/src/{five-point,homography_decomp,ippe,p3p,posit,quadsubpix,solvepnp,sqpnp,stereobm,stereosgbm}.cpp
  opencv/modules/calib3d/src/{triangulate,upnp}.cpp
  opencv/modules/dnn/src/{caffe,darknet,tensorflow,torch,vkcom/src,vkcom/shader,vkcom/vulkan,tengine4dnn/src}/*.cpp
  opencv/modules/dnn/src/{caffe,tensorflow}/*.proto
  opencv/modules/dnn/src/{dnn_read,model}.cpp
  opencv/modules/features2d/src/{affine_feature,agast,agast_score,akaze,bagofwords,blobdetector,brisk,draw,dynamic}.cpp
  opencv/modules/features2d/src/{evaluation,gftt,kaze,mser,kaze/*}.cpp
  opencv/modules/objdetect/src/{aruco/*,aruco/apriltag/*,detection_based_tracker,face_detect,face_recognize,hog}.cpp
  opencv/modules/objdetect/src/{qrcode,qrcode_encoder}.cpp
  opencv/modules/photo/src/{align,contrast_preserve,denoise_tvl1,denoising,denoising.cuda,npr,seamless_cloning}.cpp
  opencv/modules/photo/src/{seamless_cloning_impl,tonemap}.cpp
  opencv/modules/stitching/src/{timelapsers,warpers_cuda}.cpp
  opencv/modules/video/src/{bgfg_KNN,bgfg_gaussmix2,camshift,dis_flow,kalman,lkpyramid,optflowgf,optical_flow_io}.cpp
  opencv/modules/video/src/{variational_refinement,tracking/*,tracking/detail/*}.cpp
  opencv_contrib/modules/xfeatures2d/src/{affine_feature2d,beblid,boostdesc,brief,daisy,ellipticKeyPoint,fast,freak}.cpp
  opencv_contrib/modules/xfeatures2d/src/{gms,harris_lapace_detector,latch,logos,logos/*,lucid,msd,pct_signatures}.cpp
  opencv_contrib/modules/xfeatures2d/src/{pct_signatures/*,pct_signatures_sqfd,stardetector,surf.cuda,tbmr,vgg}.cpp
)

# Removes opencv_left_out below folder $1, where the source distribution is unpacked.
leave_out_sources() {
  local pattern files
  for pattern in "${opencv_left_out[@]}"; do
    mapfile -t files < <(compgen -G "$1/$pattern")
    [ ${#files[@]} -gt 0 ] || { printf 'the source of OpenCV has no %s\n' "$pattern" >&2; return 1; }
    rm -f -- "${files[@]}" || return 1
  done
}

opencv_recipe_hash() { cat "$opencv_scripts"/opencv-recipe.sh "$opencv_scripts"/opencv-unity.cmake | sha256sum | cut -c1-12; }
orvo_deps_folder() { printf '%s\n' "${ORVO_DEPS:-${XDG_CACHE_HOME:-$HOME/.cache}/orvo}"; }
opencv_prefix() { printf '%s/opencv-%s-%s\n' "$(orvo_deps_folder)" "$opencv_version" "$(opencv_recipe_hash)"; }
