/// The engine behind a panorama: from pictures to any rectangle of the stitched sphere, in any projection.
#pragma once

#include "panorama/panorama_devignette.hpp"
#include "panorama/panorama_warper.hpp"
#include "panorama/stitcher_registration_matcher.hpp"
#include "sources/panorama_hdr_provider.hpp"
#include "sources/panorama_images_provider.hpp"
#include "sources/panorama_video_provider.hpp"

#include <orvo_common/run_control.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_extensions/panorama.hpp>

#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/stitching/detail/camera.hpp>
#include <opencv2/stitching/detail/exposure_compensate.hpp>
#include <opencv2/stitching/detail/matchers.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <variant>
#include <vector>

namespace orvo {

/// A rendered part of a panorama. `image` is in sRGB. Both pointers are empty if nothing was drawn.
struct Panorama
{
    std::shared_ptr<_ImageData<PixelRGB<float>>> image;
    std::shared_ptr<_ImageData<float>> mask; ///< 1 where the panorama has content
    cv::Rect roi;                            ///< where `image` lies inside the requested size; empty if it fills it
};

/// Owns the source of the images, registers them as rotated cameras about one point (Brown, Lowe 2007), and draws.
///
/// Four stages, a source file each (docs/stitching.md draws them): features (stitcher_features.cpp), cameras
/// (stitcher_registration.cpp), the seam scale (stitcher_seam_scale.cpp) and rendering (stitcher_compositing.cpp,
/// stitcher_reprojection.cpp). A stage keeps its results in one struct. Those of the seam scale and of the drag stand
/// behind a dirty flag in that struct, so that a change of view repeats none of them; a step makes its struct aside and
/// puts it in place when it is whole, so that a step that fails leaves the flag set and everything else as it was.
///
/// Lengths: a sphere unit is one pixel of the spherical projection at the resolution of the sources. The seam scale is
/// where seams, gains and vignetting are found, at most 0.1 megapixel a picture; the work scale is where features are
/// found, at most 0.6 megapixel.
///
/// Used by one thread at a time; only cancelLoad() may come from another one while a load runs. A cancel function
/// returns true when the work is to stop, and must not be empty (std::bad_function_call). Exceptions of OpenCV pass.
class PanoramaStitcher
{
public:
    using CancelFunction = std::function<bool()>;

    /// The internal number of the sphere, on which everything is composed; other projections are drawn from it.
    static constexpr std::int32_t kSpherical = 2;
    /// Pixels of a side of anything that is rendered: OpenCV remaps with coordinates of 16 bits.
    static constexpr int kLongestSide = kLongestPanoramaSide;

    explicit PanoramaStitcher(const PanoSource& panoSource);
    explicit PanoramaStitcher(const PanoSourceHDR& panoSource);
    explicit PanoramaStitcher(const PanoSourceVideo& panoSource);

    /// Reads the pictures and registers them. False if there are none, they do not fit together, or it was cancelled.
    bool loadImages(CancelFunction cancel);
    /// Video only: replaces the frames that the user added by hand, and registers anew. The only parts of them that may
    /// show are `rects`.
    void reloadWithComposition(const std::vector<std::uint64_t>& frames, const std::vector<_Rect<int>>& rects);
    /// Video only: the frames `start` .. `end` - 1 from the next loadImages() on.
    void setVideoInterval(std::uint64_t start, std::uint64_t end);
    /// Finds cameras for these pictures (CV_16SC3). Pictures that fit none of the others drop out. `cancel` may be
    /// empty; it is polled on the calling thread, before the features of each picture, between the pairs that are
    /// matched and between the cameras that are adjusted. Cancelled, it answers false, like a registration that failed.
    bool estimateCameras(const std::vector<cv::Mat>& sources, const CancelFunction& cancel = {});
    /// Brackets only: stops a merge that runs, or lets the next one run.
    void cancelLoad(bool cancel);
    /// The progress of loadImages(), 0 to 1; may be empty.
    void setLoadCallback(std::function<void(float)> progress);
    /// 0 never estimated, 1 registered, 2 registration failed.
    [[nodiscard]] std::int32_t getStatus() const { return registered.status; }

    /// The internal number of the projection that makePanorama() draws in.
    [[nodiscard]] std::int32_t getWarpType() const { return view.warpKind; }
    void setWarpType(std::int32_t kind) { view.warpKind = kind; }

    /// The outer rectangle of a projection, the current one by default, in sphere units.
    [[nodiscard]] cv::Rect projectionBounds(std::optional<std::int32_t> kind = std::nullopt) const;
    /// Where the pictures lie on the sphere, in sphere units.
    [[nodiscard]] cv::Rect roiInOutputPixels();
    /// The size, shrunk in proportion until no side is above 32000.
    [[nodiscard]] static cv::Size limitOutputSize(const cv::Size& size);

    /// Between these two renders are fast and rough, and rotations count from where the view was at the start.
    void beginViewAdjust();
    void endViewAdjust();
    /// Turns the view by fractions of the projection's bounds.
    void setViewShift(const _Point<float>& shift);
    /// Turns the view by `angle` radians about the ray through a point given as fractions of the projection's bounds.
    void setViewRotation(float angle, const _Point<float>& centre);
    void resetView();

    /// Draws the part `rect` of the unrotated sphere, in sphere units, at `size`: `image` CV_16SC3, `mask` CV_8UC1.
    /// Returns where the content lies inside `size`, and is what `image` and `mask` hold; empty if cancelled, or if no
    /// picture reaches the rectangle (both are then CV_16SC3 and zero). Runs on the OpenCL device if there is one that
    /// can hold the work, else, and for good after a failure there, on the CPU. Peak: for each picture that reaches the
    /// rectangle what it covers at `size` (8 bytes a pixel, 12 to take out vignetting), then the blender's pyramids of
    /// the rectangle with a margin of some percent (14 bytes a pixel).
    cv::Rect makePanoramaRaw(const cv::Rect& rect, const cv::Size& size, cv::OutputArray image, cv::OutputArray mask,
                             CancelFunction cancel);
    /// Draws `rect`, counted from the origin of projectionBounds(), in the current projection and view, at `size`. With
    /// `keepCanvas` the result has exactly that size, and is zero outside of the content. Empty if cancelled and where
    /// there is no content. Where it is not the unturned sphere that is drawn, the part of the sphere that is needed is
    /// composed at the same resolution and remapped. Peak: that part, two planes of floats and the result.
    Panorama makePanorama(const _Rect<int>& rect, const _Size<int>& size, const bool& keepCanvas,
                          CancelFunction cancel);
    /// The form for the finished picture: `outputSize` counts only where no reprojection is needed.
    Panorama makePanorama(const _Rect<int>& rect, const _Size<int>& size, CancelFunction cancel,
                          const _Size<int>& outputSize);

    /// Says that the next picture drawn is the last one: on the CPU each source is let go of as soon as it is warped,
    /// and what was kept for reuse goes back to the system before the blender starts. Whatever is drawn after it is
    /// empty until pictures are registered anew.
    void drawOnceMore();

    /// The pictures in use, at full size, and their cameras (focal length at the work scale). For reports and tests.
    [[nodiscard]] const std::vector<cv::Mat>& usedImages() const { return registered.images; }
    [[nodiscard]] const std::vector<cv::Mat>& usedMasks() const { return registered.masks; }
    [[nodiscard]] const std::vector<cv::detail::CameraParams>& usedCameras() const { return registered.cameras; }
    /// For each picture in use its place in the list that was registered.
    [[nodiscard]] const std::vector<int>& usedIndices() const { return registered.indices; }
    [[nodiscard]] float getWorkScale() const { return registered.workScale; }
    [[nodiscard]] float getWarpedImageScale() const { return registered.warpedImageScale; }
    [[nodiscard]] const cv::Mat& getViewRotation() const { return view.viewRotation; }
    [[nodiscard]] const std::vector<cv::UMat>& usedSeamMasks() const { return seams.seamMasks; }
    [[nodiscard]] const std::vector<cv::Point>& usedCorners() const { return warped.corners; } ///< of the seam masks
    [[nodiscard]] const PanoramaDevignette* usedDevignetteModel() const { return devignetting.devignetteModel.get(); }

private:
    // Kept from one registration to the next.
    struct FeatureFinding
    {
        cv::Ptr<cv::Feature2D> finder;
        cv::Ptr<CancellableMatcher> matcher;
    };

    // The pictures that fit together, and their cameras. Whole where `status` is 1.
    struct Registration
    {
        std::int32_t status = 0;
        std::vector<cv::Mat> images;
        std::vector<cv::Mat> masks;
        std::vector<int> indices;
        cv::Size firstSize; // of images[0], which sets the seam scale
        float workScale = -1.0f;
        float warpedImageScale = 1.0f;
        std::vector<cv::detail::CameraParams> cameras;
    };

    // Seam scale: the pictures on the sphere. The lists hold only what shows there; `warpedIndex` leads from the
    // pictures in use into them.
    struct WarpedImages
    {
        bool warpedDirty = true;
        std::vector<cv::Point> corners;
        std::vector<cv::UMat> warped8;
        std::vector<cv::Mat> warped16;
        std::vector<cv::UMat> warpedMasks;
        std::vector<cv::Mat> radiusMaps;
        std::unordered_map<std::int32_t, std::int32_t> warpedIndex;
        cv::Rect resultRoi;
    };

    // Seam scale: what each picture shows of its warped mask.
    struct Seams
    {
        bool seamsDirty = true;
        std::vector<cv::UMat> seamMasks;
    };

    // Seam scale: the vignetting that the pictures share, and the warped pictures without it.
    struct Devignetting
    {
        bool devignetteDirty = true;
        std::unique_ptr<PanoramaDevignette> devignetteModel;
        std::vector<cv::UMat> devignetted8;
    };

    // Seam scale: the gains that even out exposures.
    struct ExposureGains
    {
        bool compensatorDirty = true;
        cv::Ptr<cv::detail::ExposureCompensator> compensator;
    };

    // What the user dials in.
    struct View
    {
        std::int32_t warpKind = kSpherical;
        cv::Mat viewRotation = cv::Mat::eye(3, 3, CV_32F);
        cv::Mat viewRotationBase = cv::Mat::eye(3, 3, CV_32F);
        bool fastRender = false;
    };

    // The small sphere that a drag draws from.
    struct RotateSphere
    {
        bool rotateImageDirty = true;
        cv::Mat rotateImage;
        cv::Mat rotateMask;
        cv::Rect rotateRect;
    };

    struct FullSizeParts; // rendering keeps nothing beyond one call

    static CancelFunction required(CancelFunction cancel)
    {
        if (!cancel)
            throw std::bad_function_call();
        return cancel;
    }

    std::variant<PanoramaImagesProvider, PanoramaHDRProvider, PanoramaVideoProvider> source;
    bool useDevignette = false;
    FeatureFinding featureFinding;
    Registration registered;
    WarpedImages warped;
    Seams seams;
    Devignetting devignetting;
    ExposureGains exposureGains;
    View view;
    RotateSphere rotateSphere;
    bool isLastDrawing = false;

    [[nodiscard]] std::size_t compositionFrameCount() const;
    bool registerPictures(const std::vector<cv::Mat>& sources, const RunControl& run);

    // Features.
    [[nodiscard]] std::vector<cv::detail::ImageFeatures> findFeatures(const RunControl& run);
    void keepBiggestComponent(std::vector<cv::detail::ImageFeatures>& features,
                              std::vector<cv::detail::MatchesInfo>& pairwise, const RunControl& run);

    // Cameras.
    void makeMasks();
    bool refineCameras(const std::vector<cv::detail::ImageFeatures>& features,
                       const std::vector<cv::detail::MatchesInfo>& pairwise, const RunControl& run);
    void straighten();
    void pointAtTheScene();
    [[nodiscard]] float sphereScale() const { return registered.warpedImageScale / registered.workScale; }
    [[nodiscard]] std::pair<cv::Mat, cv::Mat> fullSizeCamera(std::size_t index) const;

    // Seam scale, in the order of the steps.
    [[nodiscard]] double seamScale() const;
    void prepareWarpedImages();
    bool findSeams(const RunControl& run);
    void cutSeamsOfCompositionFrame(std::vector<cv::UMat>& seamMasks, std::int32_t frame, std::size_t baseCount) const;
    void applyDevignette();
    void prepareExposureCompensator();

    // Rendering: the sphere.
    cv::Rect composeRaw(const cv::Rect& rect, const cv::Size& size, cv::OutputArray image, cv::OutputArray mask,
                        const RunControl& run);
    bool warpFullSize(FullSizeParts& parts, const cv::Rect& rect, const cv::Size& size, const RunControl& run);
    void applyExposureCompensation(int index, cv::Point corner, cv::InputOutputArray image, cv::InputArray mask,
                                   const cv::Rect& rect, const cv::Size& size);

    // Rendering: other projections and views, drawn from the sphere.
    [[nodiscard]] bool reprojectionNeeded() const;
    void prepareRotateImage();
    bool reproject(const cv::Rect& rect, const cv::Size& size, cv::Mat& picture, cv::Mat& mask, cv::Rect& shown,
                   const RunControl& run);
    cv::Rect copyFromRotateImage(const cv::Rect& part, const cv::Size& size, const cv::Rect& sphere, cv::Mat& picture,
                                 cv::Mat& mask);
};

} // namespace orvo
