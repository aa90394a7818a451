/// Exposure merging, focus stacking, panoramas and enlarging, all called the same way: a request in, a result out.
///
/// A request is a plain record of pictures, settings, progress and cancel. perform() runs it on the calling thread,
/// throws nothing, writes nothing to standard error, and returns a result that holds the picture or the failure:
///
///     orvo::FocusStackRequest request;
///     request.pictures = {"near.jpg", "middle.jpg", "far.jpg"};
///     request.progress = [](float share) { std::printf("%.0f %%\n", 100.0 * share); };
///     const orvo::OperationResult result = orvo::perform(request);
///     if (!result)
///         std::puts(orvo::describe(*result.failure).c_str());
///
/// Each request does what the function named at it does, with the same pixels, and lastFailure(), lastWarnings() and
/// lastShortfalls() of the thread hold the same as the result.
#pragma once

#include <orvo/upscaling.hpp>
#include <orvo_common/export.hpp>
#include <orvo_core/image.hpp>
#include <orvo_extensions/bracket.hpp>
#include <orvo_extensions/failure.hpp>
#include <orvo_extensions/hdr.hpp>
#include <orvo_extensions/panorama.hpp>
#include <orvo_extensions/picture_input.hpp>
#include <orvo_extensions/radiance.hpp>
#include <orvo_extensions/warp_type.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvo {

/// How a caller follows and stops an operation. Both may be empty. If one throws, the operation fails.
struct OperationCalls
{
    /// Receives the finished share of the work on the calling thread: 0 to 1, never less than before.
    std::function<void(float)> progress;
    /// Returns true to stop. Called often, from the calling thread and from those that work for it, several at once.
    std::function<bool()> cancel;
};

/// make_HDR(): merges an exposure bracket, or enhances a single frame.
struct HdrRequest : OperationCalls
{
    std::vector<PictureInput> pictures; ///< in any order; `settings.ghostRefImageIdx` counts them
    HDRSettings settings;               ///< its cancel flag stops the merge too
    /// Receives the phases as make_HDR() reports them; may be empty.
    std::function<void(HDRMergingPhaseName)> onPhase;
    /// False: HdrResult::middleFrame stays empty. The frames of a developed bracket that is neither aligned nor
    /// deghosted are then read while they are blended, so that one of them, and of more than three the next, is in
    /// memory at a time besides the result; files without exposure data are read twice.
    bool keepsMiddleFrame = true;
};

/// mergeRadiance(): merges an exposure bracket into the light of the scene.
struct RadianceRequest : OperationCalls
{
    std::vector<PictureInput> pictures; ///< in any order; `settings.evs` counts them
    RadianceSettings settings;
};

/// makeFocusStack(): merges a focus series.
struct FocusStackRequest : OperationCalls
{
    std::vector<PictureInput> pictures; ///< in the order of the focus
    BracketSettings::FocusStacking settings;
};

/// stitchPanorama(): stitches single pictures.
struct PanoramaRequest : OperationCalls
{
    std::vector<PictureInput> pictures; ///< in any order; sorted by their paths and names
    PanoramaStitchingSettings settings;
    PanoramaOutput output;
};

/// upscaleAI(): enlarges a picture.
struct UpscaleRequest : OperationCalls
{
    PictureInput picture;
    UpscaleAISettings settings;
};

/// The picture, or the failure, and what else there is to say.
struct OperationResult
{
    /// In melissaRGB(), panoramas in sRGB(), radiance linear as in RadianceMap; empty if the operation failed.
    std::shared_ptr<Image> image;
    std::optional<Failure> failure;    ///< set if there is no picture
    std::vector<std::string> warnings; ///< see lastWarnings()
    std::vector<Failure> shortfalls;   ///< see lastShortfalls()

    /// Whether there is a picture.
    explicit operator bool() const { return image != nullptr; }
};

/// The merged picture, and a frame to compare it with.
struct HdrResult : OperationResult
{
    std::shared_ptr<_ImageData<PixelRGB<float>>>
        middleFrame; ///< by exposure, as loaded; developed if raw; see HdrRequest
};

/// The linear picture, and what its values mean: see RadianceMap.
struct RadianceResult : OperationResult
{
    float whiteLuminance = 0.0f; ///< cd/m2; 0 if unknown
    std::vector<float> evs;      ///< in the order of the pictures, 0 for the middle frame
    double clipped = 0.0;        ///< share of the pixels
};

/// The panorama, and where its pictures are in it.
struct PanoramaResult : OperationResult
{
    std::shared_ptr<const _ImageData<float>> coverage; ///< see StitchedPanorama
    WarpType projection = WarpType::Spherical;
    float focalLength = 0.0f;          ///< median, in pixels of the pictures
    std::vector<PanoramaPlace> places; ///< one for each picture, in the order of the request, also after a failure
};

[[nodiscard]] ORVO_EXPORT HdrResult perform(const HdrRequest& request);
[[nodiscard]] ORVO_EXPORT RadianceResult perform(const RadianceRequest& request);
[[nodiscard]] ORVO_EXPORT OperationResult perform(const FocusStackRequest& request);
[[nodiscard]] ORVO_EXPORT PanoramaResult perform(const PanoramaRequest& request);
[[nodiscard]] ORVO_EXPORT OperationResult perform(const UpscaleRequest& request);

} // namespace orvo
