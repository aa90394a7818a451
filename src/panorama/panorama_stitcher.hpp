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
    cv::Rect roi;                            ///< position of `image` inside the requested size; empty if it fills it
};

/// Owns the source of the images, registers them as cameras rotated about one point (Brown, Lowe 2007), and renders.
///
/// Four stages, a source file each (docs/stitching.md draws them): features (stitcher_features.cpp), cameras
/// (stitcher_registration.cpp), the seam scale (stitcher_seam_scale.cpp) and rendering (stitcher_compositing.cpp,
/// stitcher_reprojection.cpp). A stage keeps its results in one struct. The structs of the seam scale and of the drag
/// have a dirty flag, so that a change of view repeats none of them. A step builds a new struct and replaces the old
/// one when it is complete, so a step that fails leaves the flag set and changes nothing else.
///
/// Lengths: a sphere unit is one pixel of the spherical projection at the resolution of the sources. Seams, gains and
/// vignetting are computed at the seam scale, at most 0.1 megapixel per picture; features at the work scale, at most
/// 0.6 megapixel.
///
/// Used by one thread at a time; only cancelLoad() may be called from another thread while a load runs. A cancel
/// function returns true to stop the work, and must not be empty (std::bad_function_call). Exceptions of OpenCV reach
/// the caller.
class PanoramaStitcher
{
public:
    using CancelFunction = std::function<bool()>;

    /// The internal number of the sphere, on which everything is composed; other projections are rendered from it.
    static constexpr std::int32_t kSpherical = 2;
    /// Longest side of any rendering in pixels: OpenCV remaps with 16-bit coordinates.
    static constexpr int kLongestSide = kLongestPanoramaSide;

    explicit PanoramaStitcher(const PanoSource& panoSource);
    /// Files and pictures in memory; writes nothing to standard error.
    PanoramaStitcher(std::vector<PictureInput> pictures, const PanoramaStitchingSettings& settings);
    explicit PanoramaStitcher(const PanoSourceHDR& panoSource);
    explicit PanoramaStitcher(const PanoSourceVideo& panoSource);

    /// Reads the pictures and registers them. False if there are none, if they do not fit together, or if it was
    /// cancelled.
    bool loadImages(CancelFunction cancel);
    /// Video only: replaces the frames that the user added by hand, and registers again. Only their `rects` are used.
    /// `cancel` as for estimateCameras().
    void reloadWithComposition(const std::vector<std::uint64_t>& frames, const std::vector<_Rect<int>>& rects,
                               const CancelFunction& cancel = {});
    /// Video only: uses the frames `start` .. `end` - 1 from the next loadImages() on.
    void setVideoInterval(std::uint64_t start, std::uint64_t end);
    /// Finds cameras for these pictures (CV_16SC3). Pictures that match no other picture are dropped. `cancel` may be
    /// empty; it is polled on the calling thread, before the features of each picture, between matched pairs and
    /// between adjusted cameras. Returns false if cancelled or if the registration fails.
    bool estimateCameras(const std::vector<cv::Mat>& sources, const CancelFunction& cancel = {});
    /// After a registration that failed as a whole although pictures match: registers again without the pairs that
    /// contradict the rest, and drops the pictures that then match no other. Pictures that were read stay known until
    /// the next registration. False if nothing is left, or if cancelled.
    bool registerWithoutContradictions(const CancelFunction& cancel);
    /// Whether registerWithoutContradictions() has anything to try.
    [[nodiscard]] bool hasContradictions() const { return !failed.pairwise.empty(); }
    /// Brackets only: stops a running merge, or allows the next one.
    void cancelLoad(bool cancel);
    /// The progress of loadImages(), 0 to 1; may be empty.
    void setLoadCallback(std::function<void(float)> progress);
    /// The progress of each registration, and of each drawing of the sphere, 0 to 1; may be empty. Called on the thread
    /// that registers or draws.
    void setWorkCallback(std::function<void(float)> progress) { workProgress = std::move(progress); }
    /// 0: not estimated, 1: registered, 2: registration failed.
    [[nodiscard]] std::int32_t getStatus() const { return registered.status; }

    /// The internal number of the projection that makePanorama() uses.
    [[nodiscard]] std::int32_t getWarpType() const { return view.warpKind; }
    void setWarpType(std::int32_t kind) { view.warpKind = kind; }

    /// Whether the current projection and view are drawn by resampling the sphere.
    [[nodiscard]] bool reprojectionNeeded() const;
    /// The outer rectangle of a projection, the current one by default, in sphere units.
    [[nodiscard]] cv::Rect projectionBounds(std::optional<std::int32_t> kind = std::nullopt) const;
    /// The rectangle of the pictures on the sphere, in sphere units.
    [[nodiscard]] cv::Rect roiInOutputPixels();
    /// The size, scaled down in proportion until no side exceeds 32000.
    [[nodiscard]] static cv::Size limitOutputSize(const cv::Size& size);

    /// Between these two calls renders are fast and rough, and rotations are relative to the view at the start.
    void beginViewAdjust();
    void endViewAdjust();
    /// Rotates the view by fractions of the projection's bounds.
    void setViewShift(const _Point<float>& shift);
    /// Rotates the view by `angle` radians about the ray through a point given as fractions of the projection's bounds.
    void setViewRotation(float angle, const _Point<float>& centre);
    void resetView();

    /// Draws the part `rect` of the unrotated sphere, in sphere units, at `size`: `image` CV_16SC3, `mask` CV_8UC1.
    /// Returns the rectangle of the content inside `size`, which `image` and `mask` contain; empty if cancelled, or if
    /// no picture reaches the rectangle (both are then CV_16SC3 and zero). Runs on the OpenCL device if it has enough
    /// memory, else, and permanently after a failure there, on the CPU. Peak on the CPU: for each picture that reaches
    /// the rectangle a byte per pixel at `size` (12 to remove vignetting), then BandBlender's of the rectangle with a
    /// margin of some percent.
    cv::Rect makePanoramaRaw(const cv::Rect& rect, const cv::Size& size, cv::OutputArray image, cv::OutputArray mask,
                             CancelFunction cancel);
    /// Draws `rect`, counted from the origin of projectionBounds(), in the current projection and view, at `size`. With
    /// `keepCanvas` the result has exactly this size, and is zero outside the content. Empty if cancelled or if there
    /// is no content. Unless the unrotated sphere is drawn, the required part of the sphere is composed at the same
    /// resolution and remapped. Peak: that part and the result.
    Panorama makePanorama(const _Rect<int>& rect, const _Size<int>& size, const bool& keepCanvas,
                          CancelFunction cancel);
    /// The overload for the finished picture: `outputSize` is used only if no reprojection is needed.
    Panorama makePanorama(const _Rect<int>& rect, const _Size<int>& size, CancelFunction cancel,
                          const _Size<int>& outputSize);

    /// Announces that the next render is the last one: on the CPU each source is freed as soon as it is warped, and
    /// planes kept for reuse return to the system before the blender starts. Later renders are empty until pictures are
    /// registered again.
    void drawOnceMore();

    /// The pictures in use, at full size, and their cameras (focal length at the work scale). For reports and tests.
    [[nodiscard]] const std::vector<cv::Mat>& usedImages() const { return registered.images; }
    [[nodiscard]] const std::vector<cv::Mat>& usedMasks() const { return registered.masks; }
    [[nodiscard]] const std::vector<cv::detail::CameraParams>& usedCameras() const { return registered.cameras; }
    /// For each picture in use its index in the registered list.
    [[nodiscard]] const std::vector<int>& usedIndices() const { return registered.indices; }
    [[nodiscard]] float getWorkScale() const { return registered.workScale; }
    [[nodiscard]] float getWarpedImageScale() const { return registered.warpedImageScale; }
    [[nodiscard]] const cv::Mat& getViewRotation() const { return view.viewRotation; }
    [[nodiscard]] const std::vector<cv::UMat>& usedSeamMasks() const { return seams.seamMasks; }
    [[nodiscard]] const std::vector<cv::Point>& usedCorners() const { return warped.corners; } ///< of the seam masks
    [[nodiscard]] const PanoramaDevignette* usedDevignetteModel() const { return devignetting.devignetteModel.get(); }

private:
    // Kept between registrations.
    struct FeatureFinding
    {
        cv::Ptr<cv::Feature2D> finder;
        cv::Ptr<CancellableMatcher> matcher;
    };

    // The pictures that fit together, and their cameras. Complete if `status` is 1.
    struct Registration
    {
        std::int32_t status = 0;
        std::vector<cv::Mat> images;
        std::vector<cv::Mat> masks;
        std::vector<int> indices;
        std::size_t frameCount = 0; // of the frames added by hand, which are the last images
        cv::Size firstSize;         // of images[0], which sets the seam scale
        float workScale = -1.0f;
        float warpedImageScale = 1.0f;
        std::vector<cv::detail::CameraParams> cameras;
    };

    // What a failed registration was made of.
    struct FailedRegistration
    {
        std::vector<cv::Mat> sources;
        std::vector<cv::detail::ImageFeatures> features;
        std::vector<cv::detail::MatchesInfo> pairwise;
    };

    // Seam scale: the pictures on the sphere. The lists contain only visible pictures; `warpedIndex` maps pictures in
    // use to their entries.
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

    // Seam scale: the visible part of each warped mask.
    struct Seams
    {
        bool seamsDirty = true;
        std::vector<cv::UMat> seamMasks;
    };

    // Seam scale: the common vignetting of the pictures, and the warped pictures without it.
    struct Devignetting
    {
        bool devignetteDirty = true;
        std::unique_ptr<PanoramaDevignette> devignetteModel;
        std::vector<cv::UMat> devignetted8;
    };

    // Seam scale: the gains that equalise exposures.
    struct ExposureGains
    {
        bool compensatorDirty = true;
        cv::Ptr<cv::detail::ExposureCompensator> compensator;
    };

    // Set by the user.
    struct View
    {
        std::int32_t warpKind = kSpherical;
        cv::Mat viewRotation = cv::Mat::eye(3, 3, CV_32F);
        cv::Mat viewRotationBase = cv::Mat::eye(3, 3, CV_32F);
        bool fastRender = false;
    };

    // The small sphere used during a drag.
    struct RotateSphere
    {
        bool rotateImageDirty = true;
        cv::Mat rotateImage;
        cv::Mat rotateMask;
        cv::Rect rotateRect;
    };

    struct FullSizeParts; // rendering keeps nothing between calls

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
    FailedRegistration failed;
    WarpedImages warped;
    Seams seams;
    Devignetting devignetting;
    ExposureGains exposureGains;
    View view;
    RotateSphere rotateSphere;
    bool isLastDrawing = false;
    std::function<void(float)> workProgress;

    [[nodiscard]] std::size_t compositionFrameCount() const;
    bool registerPictures(const std::vector<cv::Mat>& sources, const RunControl& run);
    bool placeConsistent(const RunControl& run);
    void finishRegistration();

    // Features.
    [[nodiscard]] std::vector<cv::detail::ImageFeatures> findFeatures(const RunControl& run);
    bool matchFeatures(const std::vector<cv::detail::ImageFeatures>& features,
                       std::vector<cv::detail::MatchesInfo>& pairwise, const RunControl& run);
    void keepBiggestComponent(std::vector<cv::detail::ImageFeatures>& features,
                              std::vector<cv::detail::MatchesInfo>& pairwise);

    // Cameras.
    void makeMasks(std::size_t pictures);
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
    [[nodiscard]] cv::UMat warpLate(FullSizeParts& parts, std::size_t index, const cv::Rect& rect,
                                    const cv::Size& size) const;
    void applyExposureCompensation(int index, cv::Point corner, cv::InputOutputArray image, cv::InputArray mask,
                                   const cv::Rect& rect, const cv::Size& size);

    [[nodiscard]] Panorama converted(cv::Mat picture, cv::UMat owner, const cv::Mat& mask, const cv::Rect& shown) const;

    // Rendering: other projections and views, drawn from the sphere.
    void prepareRotateImage();
    bool reproject(const cv::Rect& rect, const cv::Size& size, cv::Mat& picture, cv::Mat& mask, cv::Rect& shown,
                   const RunControl& run);
    cv::Rect copyFromRotateImage(const cv::Rect& part, const cv::Size& size, const cv::Rect& sphere, cv::Mat& picture,
                                 cv::Mat& mask);
};

} // namespace orvo
