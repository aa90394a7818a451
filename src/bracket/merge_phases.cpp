#include "bracket/merge_phases.hpp"

#include <span>

namespace orvo {
namespace {

using Phase = HDRMergingPhaseName;

struct Reached
{
    Phase phase;
    float share; // of the time of a merge
};

// Measured on a handheld bracket of three 20 megapixel JPEGs with alignment and deghosting, on two cores.
constexpr Reached kBracket[] = {
    {Phase::BracketStarted, 0.0f},     {Phase::FramesLoaded, 0.15f},       {Phase::LadderBuilt, 0.42f},
    {Phase::FirstFrameBlended, 0.79f}, {Phase::SecondFrameBlended, 0.89f}, {Phase::Blended, 0.98f},
    {Phase::Normalized, 0.99f},
};
// Measured on three JPEGs of 24 megapixels; the blend advances by its rungs.
constexpr float kReadLateBlended = 0.9f;
constexpr Reached kReadLate[] = {
    {Phase::BracketStarted, 0.0f},      {Phase::FramesLoaded, 0.01f}, {Phase::LadderBuilt, 0.01f},
    {Phase::Blended, kReadLateBlended}, {Phase::Normalized, 0.99f},
};
// A single frame reports one phase less: it skips 4, so its 5 means that two frames are blended, and its 6 that all
// are.
constexpr Reached kSingle[] = {
    {Phase::SingleFrameStarted, 0.0f}, {Phase::FramesLoaded, 0.15f}, {Phase::LadderBuilt, 0.42f},
    {Phase::FirstFrameBlended, 0.79f}, {Phase::Blended, 0.89f},      {Phase::Normalized, 0.98f},
};

std::span<const Reached> sharesOf(MergeCourse course)
{
    switch (course) {
    case MergeCourse::Single:
        return kSingle;
    case MergeCourse::BracketReadLate:
        return kReadLate;
    case MergeCourse::Bracket:
        break;
    }
    return kBracket;
}

float shareAt(Phase phase, MergeCourse course)
{
    for (const Reached& reached : sharesOf(course))
        if (reached.phase == phase)
            return reached.share;
    return 0.0f; // progress never goes back
}

} // namespace

MergePhases::MergePhases(const std::function<void(HDRMergingPhaseName)>& onPhase, const RunControl& run,
                         MergeCourse course_)
    : callback(onPhase), control(run), course(course_)
{}

void MergePhases::report(int phase) const
{
    const auto name = static_cast<Phase>(phase);
    callback(name);
    control.report(shareAt(name, course));
}

void MergePhases::started() const
{
    report(static_cast<int>(course == MergeCourse::Single ? Phase::SingleFrameStarted : Phase::BracketStarted));
}

void MergePhases::framesLoaded() const { report(static_cast<int>(Phase::FramesLoaded)); }

void MergePhases::ladderBuilt()
{
    running = static_cast<int>(Phase::LadderBuilt);
    report(running);
}

void MergePhases::frameBlended(std::size_t done, std::size_t total)
{
    if (running < static_cast<int>(Phase::SecondFrameBlended)) {
        const bool skips = course == MergeCourse::Single && running == static_cast<int>(Phase::FirstFrameBlended);
        running += skips ? 2 : 1;
        report(running);
    }
    if (course == MergeCourse::BracketReadLate)
        control.report(kReadLateBlended * static_cast<float>(done) / static_cast<float>(total));
}

void MergePhases::allBlended() const { report(running + 1); }

void MergePhases::normalized() const { report(running + 2); }

} // namespace orvo
