/// The document format's vocabulary: identifiers of effects, names of tools and networks, keys of stored resources.
///
/// Each text is defined here once, as a compile-time constant. Nothing is built at program start, so the initialiser of
/// any other object may use them. For the same reason inline functions return lists and the table as new standard
/// containers.
#pragma once

#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvo {

/// Names of effect classes.
namespace EffectIdentifiers {

inline constexpr std::string_view kDeblurAI = "ORVODeblurAIEffect";
inline constexpr std::string_view kDenoiseAI = "ORVODenoiseAIEffect";
inline constexpr std::string_view kDenoiseAIRaw = "ORVODenoiseAIRawEffect";
inline constexpr std::string_view kLensCorrection = "ORVOLensCorrectionEffect";
inline constexpr std::string_view kDevelopCommon = "ORVODevelopCommonEffectID";
inline constexpr std::string_view kSharpen = "ORVOSharpenEffect";
inline constexpr std::string_view kDenoiseLaplacian = "ORVODenoiseLaplacianEffect";
inline constexpr std::string_view kBlackWhite = "ORVOBlackWhiteEffect";
inline constexpr std::string_view kCurve = "ORVOCurveEffect";
inline constexpr std::string_view kSaturation = "ORVOSaturationEffect";
inline constexpr std::string_view kVibrance = "ORVOVibranceEffect";
inline constexpr std::string_view kRawDevelop = "ORVORawDevelopEffect";

/// Names of the four lists below.
inline constexpr std::string_view kDenoiseAIList = "DenoiseAI";
inline constexpr std::string_view kDenoiseAIRawList = "DenoiseAIRaw";
inline constexpr std::string_view kDefaultEffectsList = "DefaultEffects";
inline constexpr std::string_view kDefaultEffectsRawList = "DefaultEffectsRAW";

inline constexpr std::array<std::string_view, 1> kDenoiseAIEntries = {kDenoiseAI};
inline constexpr std::array<std::string_view, 1> kDenoiseAIRawEntries = {kDenoiseAIRaw};

/// In the order in which a new document applies them.
inline constexpr std::array<std::string_view, 8> kDefaultEntries = {
    kLensCorrection, kDevelopCommon, kSharpen, kDenoiseLaplacian, kBlackWhite, kCurve, kSaturation, kVibrance};

/// The same for a raw picture. The order differs in more than the second entry.
inline constexpr std::array<std::string_view, 8> kDefaultRawEntries = {
    kLensCorrection, kRawDevelop, kDenoiseLaplacian, kCurve, kBlackWhite, kSaturation, kVibrance, kSharpen};

/// The list in the form that ToolDescription takes.
template <std::size_t Count>
[[nodiscard]] std::vector<std::string> toStrings(const std::array<std::string_view, Count>& texts)
{
    return {texts.begin(), texts.end()};
}

[[nodiscard]] inline std::vector<std::string> denoiseAI() { return toStrings(kDenoiseAIEntries); }
[[nodiscard]] inline std::vector<std::string> denoiseAIRaw() { return toStrings(kDenoiseAIRawEntries); }
[[nodiscard]] inline std::vector<std::string> defaultEffects() { return toStrings(kDefaultEntries); }
[[nodiscard]] inline std::vector<std::string> defaultEffectsRaw() { return toStrings(kDefaultRawEntries); }

} // namespace EffectIdentifiers

/// Names of tools, as an edit carries them.
namespace ToolNames {

inline constexpr std::string_view kClone = "CLONE";
inline constexpr std::string_view kErase = "ERASE";
inline constexpr std::string_view kPreset = "PRESET";
inline constexpr std::string_view kAIAdjustments = "AI Adjustments";
inline constexpr std::string_view kEraseMasked = "ERASE_MASKED";
inline constexpr std::string_view kEraseWires = "ERASE_WIRES";
inline constexpr std::string_view kEraseDust = "ERASE_DUST";
inline constexpr std::string_view kRestoreMasked = "RESTORE_MASKED";
inline constexpr std::string_view kCloneActions = "CLONE_ACTIONS";
inline constexpr std::string_view kCloneGeometry = "CLONE_GEOMETRY";
inline constexpr std::string_view kSetClonePoint = "SET_CLONE_POINT";
inline constexpr std::string_view kSetStampPoint = "SET_STAMP_POINT";
inline constexpr std::string_view kCloneStroke = "CLONE_STROKE";
inline constexpr std::string_view kCloneStartStroke = "CLONE_START_STROKE";
inline constexpr std::string_view kCloneFinishStroke = "CLONE_FINISH_STROKE";

} // namespace ToolNames

/// Kinds of edits and of documents.
inline constexpr std::string_view kNonDestructiveEdit = "NonDestructiveEdit";
inline constexpr std::string_view kSupportDestructiveImage = "SupportDestructiveImage";

/// Networks by number. 4, 5 and 6 are not in use.
namespace ModelNames {

inline constexpr std::array<std::pair<std::int32_t, std::string_view>, 13> kEntries = {{
    {0, "denoised_image"},
    {1, "EMotionBlurNormal"},
    {2, "EMotionBlurHard"},
    {3, "EMotionBlurFull"},
    {7, "EDeblurUniversalNormal"},
    {8, "EDeblurUniversalHard"},
    {9, "EDeblurUniversalFull"},
    {10, "EDeblurUniversalNormalFaceEnhance"},
    {11, "EDeblurUniversalHardFaceEnhance"},
    {12, "EDeblurUniversalFullFaceEnhance"},
    {13, "EMotionBlurNormalFaceEnhance"},
    {14, "EMotionBlurHardFaceEnhance"},
    {15, "EMotionBlurFullFaceEnhance"},
}};

/// The name for a number; empty for a number that is not in use.
[[nodiscard]] constexpr std::string_view nameOf(std::int32_t number)
{
    const auto* const found =
        std::find_if(kEntries.begin(), kEntries.end(), [&](const auto& entry) { return entry.first == number; });
    return found == kEntries.end() ? std::string_view() : found->second;
}

[[nodiscard]] inline std::map<std::int32_t, std::string> table() { return {kEntries.begin(), kEntries.end()}; }

} // namespace ModelNames

/// Keys of the resources that a document stores in addition to its settings.
namespace ResourceKeys {

inline constexpr std::string_view kMask = "msk";
inline constexpr std::string_view kTiledMask = "tmsk";
inline constexpr std::string_view kBaseTiledImageData = "btid";
inline constexpr std::string_view kMaskState = "mskstt";
inline constexpr std::string_view kCloneState = "clnstt";
inline constexpr std::string_view kDrawingState = "drwstt";
inline constexpr std::string_view kEraseState = "erstt";
inline constexpr std::string_view kTiledImageDataCompressed = "orvoTiledImageDataCompressedData";

} // namespace ResourceKeys

/// The name of the log file, as setLogFile() uses it.
inline constexpr std::string_view kLogFile = kLogFileName;

/// The prefix of a generated text response.
inline constexpr std::string_view kGeneratedResponsePrefix = "data:image/png;base64,";

} // namespace orvo
