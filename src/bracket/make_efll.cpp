#include "bracket/make_efll.hpp"

#include "bracket/align_frames.hpp"
#include "bracket/compute_mask.hpp"
#include "bracket/deghosted_ladder.hpp"
#include "bracket/late_frames.hpp"
#include "bracket/load_frames.hpp"
#include "bracket/merge_phases.hpp"
#include "bracket/resample_frames.hpp"
#include "bracket/rung_pixels.hpp"

#include <orvo/bracket_exposure.hpp>
#include <orvo/finishing.hpp>
#include <orvo/lens_correction.hpp>
#include <orvo/raw_development.hpp>
#include <orvo_common/console_trace.hpp>
#include <orvo_common/run_control.hpp>
#include <orvo_common/text.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/auto_exposure.hpp>
#include <orvo_image_processing/debug_drawer.hpp>
#include <orvo_io/settings.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <cstring>
#include <iostream>
#include <numeric>
#include <optional>
#include <sstream>
#include <tuple>
#include <utility>

namespace orvo {
namespace {

using Picture = _ImageData<PixelRGB<float>>;
using Merged = std::pair<std::shared_ptr<Image>, std::shared_ptr<Picture>>;

// Weight of the brightest blended frame; the others fall linearly to 0 for the darkest.
constexpr float kLargestWeight = 0.75f;
// A resampled ladder of developed pictures contains less information than raw files or a long bracket, and is blended
// more softly.
constexpr float kResampledMaskScale = 0.8f;

// One exposure map for all channels.
constexpr int kAllChannels = 0;

// Marks the diagnostic line, so that a sink can distinguish it from progress.
constexpr std::uint64_t kDiagnosticMark = 16;

void logPhase(HDRMergingPhaseName phase)
{
    LOG(__orvolog() << LogMessageType::Trace << "Merging phase: " << static_cast<int>(phase));
}

void tellIsRaw(bool isRaw)
{
    logstream line = __orvolog();
    line.marks = kDiagnosticMark;
    LOG(line << LogMessageType::Diagnostic << "isRaw " << isRaw << "\n");
}

// The parallel loader leaves an empty frame for a file that could not be read, and has stated the failure.
void requireAllLoaded(const std::vector<HDRFrame>& frames)
{
    for (const HDRFrame& frame : frames)
        if (!frame.image)
            details::throwStatedFailure();
}

// Frames whose pixels are not used again hand them to the ladder, whose rungs can then be processed in place.
void dropPixelsExcept(std::vector<HDRFrame>& frames, std::optional<std::size_t> kept)
{
    for (std::size_t i = 0; i < frames.size(); ++i)
        if (i != kept)
            frames[i].image.reset();
}

// The state of the blend: pixels of the size of the first rung, and the curve that still has to be applied to them.
struct BlendStart
{
    std::shared_ptr<Picture> pixels;
    RungCurve pending; // the identity if nothing has to be applied
};

// The last rung as the start of the blend: its own pixels, if they have the first rung's size and are used again by no
// rung, or only by the rung below, which is blended first and reads them just before they change. Otherwise a copy. A
// larger rung is read as if it had the first one's size.
BlendStart startOfBlend(std::vector<HDRFrame>& ladder, const std::vector<float>& shifts, _Size<int> size,
                        const HDRSettings& settings)
{
    const std::size_t n = ladder.size();
    HDRFrame& last = ladder[n - 1];
    const bool isPair = last.image == ladder[n - 2].image && last.image.use_count() == 2;
    if (!shifts.empty() && isPair && last.image->size() == size && !hasRawMark(last))
        return {std::move(last.image), curveOfShift(shifts[n - 1], settings)};
    if (!shifts.empty())
        shiftRung(last, shifts[n - 1], settings);
    if (last.image.use_count() == 1 && last.image->size() == size)
        return {std::move(last.image), curveOfShift(0.0f, settings)};
    auto start = std::make_shared<Picture>(size, last.image->colorProfile());
    const std::size_t rowPixels = static_cast<std::size_t>(size.width);
    forEachRow(size.height, [&](int y) {
        std::memcpy(start->row(y), last.image->data() + static_cast<std::size_t>(y) * rowPixels,
                    rowPixels * sizeof(PixelRGB<float>));
    });
    return {std::move(start), curveOfShift(0.0f, settings)};
}

ORVO_VECTOR_CLONES void mixRow(PixelRGB<float>* __restrict target, const PixelRGB<float>* __restrict source,
                               const float* __restrict weights, std::size_t width)
{
    for (std::size_t x = 0; x < width; ++x) {
        const float m = std::clamp(weights[x], 0.0f, 1.0f);
        target[x].r = (source[x].r - target[x].r) * m + target[x].r;
        target[x].g = (source[x].g - target[x].g) * m + target[x].g;
        target[x].b = (source[x].b - target[x].b) * m + target[x].b;
    }
}

// `pending` is applied to the result's pixels before the rung is mixed in.
void blendIn(Picture& result, const RungCurve& pending, RungPixels& rung, BlendMask& mask)
{
    if (!pending.isIdentity())
        rung.keepApart();
    const int height = result.height();
    const auto width = static_cast<std::size_t>(result.width());
    for (int top = 0; top < height; top += BlendMask::kBandRows) {
        const int bottom = std::min(top + BlendMask::kBandRows, height);
        const float* const weights = mask.rows(top, bottom);
        parallelFor(tbb::blocked_range<int>(top, bottom), [&](const tbb::blocked_range<int>& rows) {
            const ManagedPlane<PixelRGB<float>> scratch(width);
            for (int y = rows.begin(); y != rows.end(); ++y) {
                const PixelRGB<float>* const source = rung.rows(y, y + 1, scratch.data());
                PixelRGB<float>* const target = result.row(y);
                pending.apply(target, target, width);
                mixRow(target, source, weights + static_cast<std::size_t>(y - top) * width, width);
            }
        });
    }
}

// The pixels of a rung that is not yet at its exposure. Developed pictures are shifted to it as they are read; raw ones
// are developed as a whole.
RungPixels pixelsOf(HDRFrame& rung, float shift, _Size<int> size, const HDRSettings& settings)
{
    if (!hasRawMark(rung))
        return {rung.image->data(), size.width, size.height, curveOfShift(shift, settings)};
    shiftRung(rung, shift, settings);
    return {rung.image->data(), size.width, size.height};
}

// Blends the ladder from its last rung to the first; empty if cancelled. Each rung frees its pixels once it is blended.
// With `shifts`, the rungs are shifted to their exposure only here, so that no separate rung is kept in addition to the
// frames. `prepare` is called with each rung before its pixels, of `size`, are read, and may make them.
std::shared_ptr<Picture> blendLadder(std::vector<HDRFrame>& ladder, const std::vector<float>& shifts, _Size<int> size,
                                     const std::function<void(std::size_t)>& prepare, float maskScale,
                                     const HDRSettings& settings, const RunControl& run, MergePhases& phases)
{
    const std::size_t n = ladder.size();
    prepare(n - 1);
    BlendStart start = startOfBlend(ladder, shifts, size, settings);
    std::shared_ptr<Picture> result = std::move(start.pixels);
    for (std::size_t i = n - 1; i-- > 0;) {
        const float weight = (static_cast<float>(i) / static_cast<float>(n - 1)) * kLargestWeight * maskScale;
        prepare(i);
        {
            RungPixels pixels = shifts.empty() ? RungPixels(ladder[i].image->data(), size.width, size.height)
                                               : pixelsOf(ladder[i], shifts[i], size, settings);
            BlendMask mask(pixels, weight);
            blendIn(*result, start.pending, pixels, mask);
            start.pending = curveOfShift(0.0f, settings);
        }
        if (i == 0)
            result->setColorProfile(ladder[0].image->colorProfile());
        ladder[i].image.reset();
        phases.frameBlended(n - 1 - i, n - 1);
        if (run.cancelled())
            return nullptr;
    }
    return result;
}

// Shifts the rungs to their exposure; false if cancelled.
bool shiftAll(std::vector<HDRFrame>& ladder, const std::vector<float>& shifts, const HDRSettings& settings,
              const RunControl& run)
{
    for (std::size_t i = 0; i < shifts.size(); ++i) {
        shiftRung(ladder[i], shifts[i], settings);
        if (run.cancelled())
            return false;
    }
    return true;
}

// A rung at its exposure; the rung itself stays as it is.
std::shared_ptr<const Picture> shiftedPicture(const std::vector<HDRFrame>& ladder, const std::vector<float>& shifts,
                                              std::size_t index, const HDRSettings& settings)
{
    HDRFrame rung = ladder[index];
    if (!shifts.empty() && !curveOfShift(shifts[index], settings).isIdentity())
        shiftRung(rung, shifts[index], settings);
    return rung.image;
}

// Shifts a single frame back to the exposure that it had in the middle of its ladder.
void restoreExposure(const Picture& middleRung, Picture& result, HighlightHue hue)
{
    auto_exposure_data_t data;
    autoExposureEstimateRGB(middleRung.data(), result.data(), result.width(), result.height(), data, kAllChannels);
    grfx::cout << "Auto exposure: expV " << data.expV << " expM " << data.expM << " expR " << data.expR << " contr "
               << data.contr << "\n";
    RungCurve({data.expV, data.expR, data.expM}, hue).applyInPlace(result.data(), result.pixelCount());
}

std::string summaryOf(const std::vector<PictureInput>& inputs, const HDRSettings& settings)
{
    const auto boolText = [](bool value) { return value ? "true" : "false"; };
    std::ostringstream text;
    text << "HDR was created for settings:\n";
    for (const PictureInput& input : inputs)
        text << ws2s(wideFromPath(input.path())) << "\n";
    text << "alingment...................." << boolText(settings.alignment) << "\n"
         << "chromaticAberrations.." << boolText(settings.chromaticAberrations) << "\n"
         << "ghostReduction..........." << boolText(settings.ghostReduction) << "\n"
         << "ghostRefImageIdx......." << settings.ghostRefImageIdx << "\n"
         << "deghostAmount..........." << static_cast<int>(settings.deghostAmount) << "\n";
    return text.str();
}

// The result of a cancelled merge.
Merged stopped()
{
    details::stateFailure(cancelledFailure());
    return {};
}

// Of rungs that are in memory. `any`: a frame, whose metadata rungs of pixels only do not have.
void deghost(std::vector<HDRFrame>& ladder, const HDRFrame& any, const HDRSettings& settings, int ghostIndex)
{
    std::optional<HighlightHueRecovery> hues;
    if (settings.highlightHue == HighlightHue::Kept && any.metadata && !hasRawMark(any)) {
        const auto& reference = *ladder[static_cast<std::size_t>(ghostIndex)].image;
        hues.emplace(reference.data(), reference.width(), reference.height(), any.metadata->fileProfile);
    }
    processDeghosting<HDRFrame>(ladder, settings.deghostAmount, ghostIndex, hues ? &*hues : nullptr);
}

// The remaining steps of a raw merge: lens, development of the middle frame, chromatic aberration.
void finishRaw(HDRFrame& middle, std::shared_ptr<Picture>& result, std::shared_ptr<Picture>& linear,
               const std::shared_ptr<ImageMetadata>& metadata, const HDRSettings& settings)
{
    if (settings.lensCorrection) {
        result = applyAutoLensCorrection(result, metadata, middle.rawMetadata);
        linear = applyAutoLensCorrection(linear, metadata, middle.rawMetadata);
    }
    if (!middle.developed) {
        develop_for_hdr(linear, metadata, middle.rawMetadata, 0.0f, settings.chromaticAberrations);
        LensCorrectionUnit::applyAndDismissRawCA(result, metadata, middle.rawMetadata, settings.chromaticAberrations);
        metadata->isDeveloped = true;
    }
}

Merged finish(HDRFrame& middle, std::shared_ptr<Picture> result, const std::vector<PictureInput>& inputs,
              const HDRSettings& settings)
{
    std::shared_ptr<Picture> linear = middle.image;
    auto metadata =
        middle.metadata ? std::make_shared<ImageMetadata>(*middle.metadata) : std::make_shared<ImageMetadata>();
    if (metadata->isRaw)
        finishRaw(middle, result, linear, metadata, settings);
    metadata->isFinished = true;
    metadata->isRaw = false;
    metadata->size = result->size();
    if (settings.whiteBalance > 0.0f)
        applyWB(result, settings.whiteBalance);
    if (settings.details > 0.0f)
        applyDetails(result->data(), result->width(), result->height(), settings.details);
    if (orvosettings().get<bool>("DebugDrawer.enable", false))
        DebugDrawer::draw(result, summaryOf(inputs, settings), _Point<int>(0, result->height() / 2));
    return {CreateOrvoImage(result, metadata), linear};
}

// Blends the frames of a developed bracket in the order in which the fold needs them, so that only one is in memory
// besides the result, and of a long bracket the next.
Merged mergeReadLate(const std::vector<PictureInput>& inputs, const HDRSettings& settings, const RunControl& run,
                     MergePhases& phases)
{
    LateFrames late(inputs, settings, run);
    const std::vector<HDRFrame>& frames = late.frames();
    phases.framesLoaded();
    if (run.cancelled())
        return stopped();
    tellIsRaw(false);
    PlannedLadder ladder;
    if (frames.size() > kMostResampledFrames) {
        ladder.rungs = frames;
        ladder.frames.resize(frames.size());
        std::iota(ladder.frames.begin(), ladder.frames.end(), std::size_t{0});
    } else {
        ladder = planRungs(frames, settings);
    }
    phases.ladderBuilt();
    if (run.cancelled())
        return stopped();
    const auto give = [&](std::size_t frame, const std::shared_ptr<Picture>& pixels) {
        for (std::size_t i = 0; i < ladder.rungs.size(); ++i)
            if (ladder.frames[i] == frame)
                ladder.rungs[i].image = pixels;
    };
    // The first two frames are blended with each other, so they are read at the same time.
    std::vector<std::size_t> first = {ladder.frames.back()};
    const auto next = std::find_if(ladder.frames.rbegin(), ladder.frames.rend(),
                                   [&](std::size_t frame) { return frame != first[0]; });
    if (next != ladder.frames.rend())
        first.push_back(*next);
    std::vector<std::shared_ptr<Picture>> pictures(first.size());
    forEachItem(first.size(), [&](std::size_t i) { pictures[i] = late.read(first[i]); });
    for (std::size_t i = 0; i < first.size(); ++i)
        give(first[i], std::exchange(pictures[i], nullptr));
    // Of a long bracket the next frame is read while one is blended. Of a short one it would be the third, at most: not
    // worth a picture more of memory.
    const bool readsAhead = frames.size() > kMostResampledFrames;
    const auto readOnce = [&](std::size_t rung) {
        if (!ladder.rungs[rung].image)
            give(ladder.frames[rung], late.read(ladder.frames[rung]));
        if (readsAhead && rung > 0 && !ladder.rungs[rung - 1].image)
            late.readAhead(ladder.frames[rung - 1]);
    };
    const float maskScale = frames.size() > kMostResampledFrames ? 1.0f : kResampledMaskScale;
    auto result = blendLadder(ladder.rungs, ladder.shifts, late.size(), readOnce, maskScale, settings, run, phases);
    if (!result)
        return stopped();
    phases.allBlended();
    normalize_for_hdr(result->data(), result->width(), result->height());
    phases.normalized();
    HDRFrame middle = frames[frames.size() / 2];
    return finish(middle, std::move(result), inputs, settings);
}

// Whether only the blend reads pixels.
bool canReadLate(const std::vector<PictureInput>& inputs, const HDRSettings& settings)
{
    return inputs.size() > 1 && !settings.alignment && !settings.ghostReduction &&
           std::none_of(inputs.begin(), inputs.end(), [](const PictureInput& input) {
               return input.memory() == nullptr && isRawImageFile(input.path());
           });
}

} // namespace

Merged make_EFLL(const std::vector<std::filesystem::path>& paths, const HDRSettings& settings, _Size<int> /*size*/,
                 std::function<void(HDRMergingPhaseName)> onPhase)
{
    return mergeBracket(inputsOf(paths), settings, std::move(onPhase), RunControl([&] { return settings.canceled(); }),
                        MiddleFrame::Kept, functionSignature() + " make_EFLL: not all images were loaded");
}

Merged mergeBracket(const std::vector<PictureInput>& inputs, const HDRSettings& settings,
                    std::function<void(HDRMergingPhaseName)> onPhase, const RunControl& run, MiddleFrame middleFrame,
                    const std::string& complaint)
{
    if (!onPhase)
        onPhase = logPhase;
    if (inputs.empty()) {
        details::stateFailure({FailureKind::Internal, {}, "no picture files were given"});
        return {};
    }
    const bool readsLate = middleFrame == MiddleFrame::Dropped && canReadLate(inputs, settings);
    MergePhases phases(onPhase, run,
                       inputs.size() == 1 ? MergeCourse::Single
                       : readsLate        ? MergeCourse::BracketReadLate
                                          : MergeCourse::Bracket);
    phases.started();
    if (readsLate)
        return mergeReadLate(inputs, settings, run, phases);

    const bool allRaw = areAllRawFiles(inputs);
    std::vector<HDRFrame> frames = loadInputs(inputs, settings, ImageReaderOpenFlag::Bracket, allRaw, run);
    // A cancelled load returns no frames, so it ends here too. The loader has stated the failure.
    if (frames.size() != inputs.size()) {
        if (!complaint.empty())
            std::cerr << complaint << std::endl;
        return {};
    }
    requireAllLoaded(frames);
    if (!allRaw && settings.chromaticAberrations)
        for (HDRFrame& frame : frames)
            applyChromaticAbberationsCorrection(frame.image);
    phases.framesLoaded();

    fillEVsAndSort(frames);
    requireSizeOfFirst(frames);
    // The correction of chromatic aberration needs unwarped raw frames, so warping comes after it.
    const bool alignsLate = allRaw && settings.chromaticAberrations;
    if (settings.alignment && inputs.size() > 1 && !alignsLate)
        alignFrames(frames, static_cast<int>(frames.size() / 2), true, settings.alignmentQuality, run);
    if (run.cancelled())
        return stopped();

    const bool single = frames.size() == 1;
    const bool isRaw = hasRawMark(frames[0]);
    const float maskScale = isRaw || frames.size() > kMostResampledFrames ? 1.0f : kResampledMaskScale;
    tellIsRaw(isRaw);
    std::vector<HDRFrame> ladder;
    std::vector<float> shifts;
    int ghostIndex = -1;
    if ((single && isRaw) || frames.size() > kMostResampledFrames) {
        std::tie(ladder, ghostIndex) = resampleFrames(frames, settings, run);
    } else {
        PlannedLadder plan = planRungs(frames, settings);
        ladder = std::move(plan.rungs);
        shifts = std::move(plan.shifts);
        ghostIndex = plan.ghostIndex;
    }
    const std::size_t mid = frames.size() / 2;
    const bool keepsMiddle = middleFrame == MiddleFrame::Kept || hasRawMark(frames[mid]); // finished with the result
    dropPixelsExcept(frames, keepsMiddle ? std::optional(mid) : std::nullopt);
    const bool isLate =
        !single && settings.ghostReduction && !shifts.empty() &&
        std::none_of(ladder.begin(), ladder.end(), [](const HDRFrame& rung) { return hasRawMark(rung); });
    // Only steps that read several rungs at once need all of them at their exposure before the blend.
    if ((settings.ghostReduction && !isLate) || (alignsLate && settings.alignment)) {
        if (!shiftAll(ladder, shifts, settings, run))
            return stopped();
        shifts.clear();
    }
    if (ladder.empty())
        return stopped();
    phases.ladderBuilt();
    if (alignsLate && !single && settings.alignment) {
        if (frames.size() > kMostResampledFrames) // rungs of pixels only, one of each frame
            for (std::size_t i = 0; i < frames.size(); ++i)
                ladder[i].path = frames[i].path;
        alignFrames(ladder, static_cast<int>(ladder.size() / 2), true, settings.alignmentQuality, run);
    }
    if (run.cancelled())
        return stopped();
    std::optional<DeghostedLadder> late;
    if (!single && settings.ghostReduction) {
        if (ghostIndex == -1)
            ghostIndex = static_cast<int>(static_cast<std::uint64_t>(getGhostReductionIndex(frames)) *
                                          (ladder.size() - 1) / (frames.size() - 1));
        if (isLate) {
            late.emplace(ladder, shifts, ghostIndex, settings, run);
            shifts.clear();
        } else {
            deghost(ladder, frames.front(), settings, ghostIndex);
        }
    }
    if (run.cancelled())
        return stopped();

    // Only a single frame's exposure is measured on its middle rung; keeping it in other cases would cost a picture.
    const auto middleRung = single ? shiftedPicture(ladder, shifts, ladder.size() / 2, settings) : nullptr;
    const auto makeLate = [&](std::size_t rung) {
        if (late)
            late->make(rung);
    };
    auto result = blendLadder(ladder, shifts, ladder[0].image->size(), makeLate, maskScale, settings, run, phases);
    if (!result)
        return stopped();
    phases.allBlended();
    normalize_for_hdr(result->data(), result->width(), result->height());
    if (single)
        restoreExposure(*middleRung, *result, settings.highlightHue);
    else
        phases.normalized();
    Merged merged = finish(frames[mid], std::move(result), inputs, settings);
    if (middleFrame == MiddleFrame::Dropped)
        merged.second.reset();
    return merged;
}

} // namespace orvo
