#include "bracket/resample_frames.hpp"

#include <orvo/bracket_exposure.hpp>
#include <orvo/raw_development.hpp>
#include <orvo_common/console_trace.hpp>
#include <orvo_common/run_control.hpp>
#include <orvo_image_processing/highlight_hue.hpp>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace orvo {
namespace {

// EVs on either side of a single frame, and the range to which two or three frames are widened. Raw files contain more
// range than developed pictures.
constexpr float kSingleReachRaw = 3.0f;
constexpr float kSingleReach = 2.0f;
constexpr float kMinimumSpanRaw = 5.0f;
constexpr float kMinimumSpan = 4.0f;

// Target step between rungs in EV, and the allowed number of steps. Never fewer than three, so that the blend always
// has a dark, a bright and two middle rungs.
constexpr float kStepSingle = 1.0f;
constexpr float kStep = 1.5f;
constexpr float kMostStepsSingle = 4.0f;
constexpr float kMostSteps = 6.0f;
constexpr float kFewestSteps = 3.0f;

// Added to the top of the range, so that the rounding error of adding steps does not lose the last rung: one step of 16
// bits.
constexpr float kTopMargin = std::bit_cast<float>(0x37800080u);

// Roll-off of the exposure curve that fills rungs from developed pictures: its start, and the tone that it preserves.
constexpr float kRollOffStart = 0.9f;
constexpr float kRollOffPivot = 0.5f;

struct Ladder
{
    float low;
    float high;
    float step;
};

Ladder planLadder(const std::vector<HDRFrame>& frames, bool isRaw)
{
    const bool isSingle = frames.size() == 1;
    float low = isRaw ? -kSingleReachRaw : -kSingleReach;
    float high = isRaw ? kSingleReachRaw : kSingleReach;
    if (!isSingle) {
        low = frames.front().ev;
        high = frames.back().ev;
        const float minimumSpan = isRaw ? kMinimumSpanRaw : kMinimumSpan;
        if (minimumSpan > high - low) {
            const float centre = (low + high) * 0.5f;
            low = centre - minimumSpan * 0.5f;
            high = centre + minimumSpan * 0.5f;
        }
    }
    const bool isSingleFinished = isSingle && !isRaw;
    const float stepBase = isSingleFinished ? kStepSingle : kStep;
    const float maxCount = isSingleFinished ? kMostStepsSingle : kMostSteps;
    const float span = high - low;
    const float count = std::max(std::min(maxCount, std::ceil(span / stepBase)), kFewestSteps);
    const float step = span / count;
    // Exposures that are not finite, or so large that adding a step has no effect, come from broken metadata. The
    // ladder would never reach its top.
    if (!(low + step > low && high + step > high && std::isfinite(high + step)))
        throw FailureError({FailureKind::UnfittingPictures, {}, "the exposure values of the frames are not usable"});
    return {low, high, step};
}

std::size_t nearestFrame(const std::vector<HDRFrame>& frames, float target)
{
    std::size_t nearest = 0;
    float best = std::numeric_limits<float>::max();
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const float distance = std::abs(target - frames[i].ev);
        if (distance < best) {
            best = distance;
            nearest = i;
        }
    }
    return nearest;
}

// The frames themselves as the ladder. Only pixels are passed on: the result's metadata come from the frames.
std::vector<HDRFrame> framesAsLadder(std::vector<HDRFrame>& frames, bool chromatic)
{
    std::vector<HDRFrame> ladder;
    for (HDRFrame& frame : frames) {
        if (hasRawMark(frame)) {
            develop_for_hdr(frame.image, frame.metadata, frame.rawMetadata, 0.0f, chromatic);
            markDeveloped(frame);
        }
        ladder.emplace_back().image = frame.image;
    }
    return ladder;
}

// Replaces the pixels that all rungs still share; the frame keeps its own.
void recoverHighlights(PlannedLadder& ladder)
{
    const HDRFrame& any = ladder.rungs.front();
    const auto recovered = any.image->copy({});
    recoverHighlightHue(recovered->data(), recovered->width(), recovered->height(),
                        any.metadata ? any.metadata->fileProfile : nullptr);
    for (HDRFrame& rung : ladder.rungs)
        rung.image = recovered;
}

} // namespace

PlannedLadder planRungs(const std::vector<HDRFrame>& frames, const HDRSettings& settings)
{
    const int reference = getGhostReductionIndex(frames);
    const Ladder plan = planLadder(frames, hasRawMark(frames.front()));
    grfx::cout << "Framees EV resampling from " << plan.low << " to " << plan.high << " step " << plan.step << "\n";
    PlannedLadder ladder;
    const float limit = plan.high + kTopMargin;
    // Rung exposures are these sums, including their rounding. NOLINTNEXTLINE(clang-analyzer-security.FloatLoopCounter)
    for (float target = plan.low; limit >= target; target += plan.step) {
        const std::size_t nearest = nearestFrame(frames, target);
        if (settings.ghostReduction && static_cast<int>(nearest) == reference)
            ladder.ghostIndex = static_cast<int>(ladder.rungs.size());
        ladder.rungs.push_back(frames[nearest]);
        ladder.rungs.back().ev = target;
        ladder.shifts.push_back(target - frames[nearest].ev);
        ladder.frames.push_back(nearest);
        grfx::cout << "Frame inserted: " << target << "\n";
    }
    if (frames.size() == 1 && settings.highlightHue == HighlightHue::Kept && !hasRawMark(frames[0]))
        recoverHighlights(ladder);
    return ladder;
}

RungCurve curveOfShift(float shift, const HDRSettings& settings)
{
    return {{shift * 0.1f + 1.0f, kRollOffStart, kRollOffPivot}, settings.highlightHue};
}

void shiftRung(HDRFrame& rung, float shift, const HDRSettings& settings)
{
    if (rung.image.use_count() > 1)
        rung.image = rung.image->copy({});
    if (hasRawMark(rung))
        develop_for_hdr(rung.image, rung.metadata, rung.rawMetadata, shift, settings.chromaticAberrations);
    else
        curveOfShift(shift, settings).applyInPlace(rung.image->data(), rung.image->pixelCount());
}

std::tuple<std::vector<HDRFrame>, int> resampleFrames(std::vector<HDRFrame>& frames, const HDRSettings& settings,
                                                      float& /*unused*/)
{
    return resampleFrames(frames, settings, RunControl([&settings] { return settings.canceled(); }));
}

std::tuple<std::vector<HDRFrame>, int> resampleFrames(std::vector<HDRFrame>& frames, const HDRSettings& settings,
                                                      const RunControl& run)
{
    if (frames.size() > kMostResampledFrames)
        return {framesAsLadder(frames, settings.chromaticAberrations),
                settings.ghostReduction ? getGhostReductionIndex(frames) : -1};

    PlannedLadder plan = planRungs(frames, settings);
    for (std::size_t i = 0; i < plan.rungs.size(); ++i) {
        shiftRung(plan.rungs[i], plan.shifts[i], settings);
        if (run.cancelled())
            return {std::vector<HDRFrame>(), 0};
    }
    return {std::move(plan.rungs), plan.ghostIndex};
}

} // namespace orvo
