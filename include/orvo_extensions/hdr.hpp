/// Merging an exposure bracket, or a single frame, into one picture.
///
/// Bracket operations run on the caller's thread and wait for their own parallel loops. make_HDR throws nothing: it
/// returns empty pointers, and lastFailure() gives the reason.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image.hpp>
#include <orvo_extensions/bracket.hpp>
#include <orvo_extensions/failure.hpp>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace orvo {

/// Strength of the search for moving subjects. Each step up marks more of the picture.
enum class DeghostAmount : std::int32_t
{
    Lowest = 0,
    Low = 1,
    Medium = 2,
    High = 3,
    Highest = 4
};

/// What a change of exposure does to colours near white.
enum class HighlightHue : std::int32_t
{
    /// Each channel follows the exposure curve by itself, so that bright colours shift towards yellow, cyan or magenta.
    PerChannel = 0,
    /// Colours keep their hue on their way to white. A single picture that is no raw file gets back the hue that its
    /// partly clipped highlights lost, from the light around them (orvo_image_processing/highlight_hue.hpp).
    Kept = 1
};

/// Kept in HDRSettings for the application (docs/kept_fields.md).
struct ORVO_EXPORT HDRSettingsLL
{
    HDRSettingsLL();
    HDRSettingsLL(const HDRSettingsLL&);
    HDRSettingsLL& operator=(const HDRSettingsLL&);

    float edgeGain = 1.0f;
    float edgeThreshold = 0.5f;
    float detail = -2.0f;
    std::int32_t samples = 0;
};

/// Limits of an exposure ladder, kept in HDRSettings for the application (docs/kept_fields.md).
struct HDREvLimits
{
    float rawLow = -4.0f;
    float low = -3.0f;
    float rawHigh = 4.0f;
    float high = 3.0f;
    std::int32_t rawCount = 6;
    std::int32_t count = 4;
};

/// Settings of a merge. A copy shares the cancel flag, so the owner can stop a merge that received a copy.
///
/// `ghostRefImageIdx` and `deghostAmount` have an effect only with `ghostReduction`. docs/kept_fields.md lists the
/// fields that no operation reads.
struct ORVO_EXPORT HDRSettings
{
    HDRSettings();
    HDRSettings(const HDRSettings&);
    HDRSettings(HDRSettings&&) noexcept;
    HDRSettings& operator=(const HDRSettings&);
    HDRSettings& operator=(HDRSettings&&) noexcept;
    ~HDRSettings();

    /// Align the frames of a handheld bracket.
    bool alignment = false;
    /// Remove ghosts of moving subjects.
    bool ghostReduction = false;
    /// The frame whose subjects are kept, an index into the given paths: by default the first path, whatever its
    /// exposure. Out of range, such as -1: the middle frame by exposure.
    std::int32_t ghostRefImageIdx = 0;
    DeghostAmount deghostAmount = DeghostAmount::Lowest;
    /// Any thread may set the byte to stop the merge. Empty: the merge cannot be stopped.
    std::shared_ptr<std::atomic<unsigned char>> cancelFlag;
    bool optionA = true;
    /// Correct lateral chromatic aberration.
    bool chromaticAberrations = false;
    bool optionB = true;
    /// Above 0: automatic white balance of the result, up to 1 for all of the cast.
    float whiteBalance = 0.0f;
    /// Above 0: enhancement of fine detail in the result, up to 1.
    float details = 0.0f;
    /// Correct distortion and vignetting of raw frames, for the lens that the metadata name.
    bool lensCorrection = false;
    HDREvLimits evLimits;
    float strength = 1.0f;
    HDRSettingsLL ll;
    /// Has an effect only with `alignment`.
    AlignmentQuality alignmentQuality = AlignmentQuality::Fast;
    /// Has an effect only on ladders made from one to three frames.
    HighlightHue highlightHue = HighlightHue::PerChannel;

    /// True if there is a cancel flag and it is set.
    [[nodiscard]] bool canceled() const;
};

/// The phase that a merge has reached. A bracket reports 0, 1, 2, 3, 4, 5, 6, a single frame 200, 1, 2, 3, 5, 6.
enum class HDRMergingPhaseName : std::int32_t
{
    BracketStarted = 0,
    FramesLoaded = 1,
    LadderBuilt = 2,
    FirstFrameBlended = 3,
    SecondFrameBlended = 4,
    Blended = 5,
    Normalized = 6,
    SingleFrameStarted = 200,
};

/// Merges a bracket of any order, or a single frame, by a luminance-mask exposure blend (no radiance map, no tone
/// mapping): the frames are sorted by exposure, resampled to a regular ladder of exposures, aligned and deghosted if
/// set, and blended from the brightest to the darkest, each through a mask made from its own luminance.
///
/// All frames must have one size: that of the first by exposure is used for all, and a smaller frame is an error.
/// `size` has no effect. `onPhase` is called on the caller's thread; empty: the phases are logged. Result: the merged
/// picture, in melissaRGB(), and the pixels of the middle frame as loaded (developed if raw); both empty on failure and
/// on cancel. Peak: the frames, one picture, and a fifth of a picture for masks; alignment or deghosting of up to three
/// developed frames adds two pictures, of raw frames one for each rung of the ladder.
[[nodiscard]] ORVO_EXPORT std::pair<std::shared_ptr<Image>, std::shared_ptr<_ImageData<PixelRGB<float>>>>
make_HDR(const std::vector<std::filesystem::path>& paths, const HDRSettings& settings, _Size<int> size,
         std::function<void(HDRMergingPhaseName)> onPhase);

} // namespace orvo
