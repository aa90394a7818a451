/// The phases of a merge, and the share of its time that each has taken.
#pragma once

#include <orvo_common/run_control.hpp>
#include <orvo_extensions/hdr.hpp>

#include <cstddef>
#include <functional>

namespace orvo {

/// How a merge spends its time.
enum class MergeCourse
{
    Bracket,
    BracketReadLate, ///< frames are read during the blend
    Single           ///< skips a phase
};

/// Reports the phases in order, each to the callback and then as progress; after the fourth, blending reports only
/// progress.
class MergePhases
{
public:
    /// `onPhase` is not empty. All must outlive this.
    MergePhases(const std::function<void(HDRMergingPhaseName)>& onPhase, const RunControl& run, MergeCourse course);

    void started() const;
    void framesLoaded() const;
    void ladderBuilt();
    /// `done` of `total` rungs are blended into the last.
    void frameBlended(std::size_t done, std::size_t total);
    void allBlended() const;
    void normalized() const;

private:
    void report(int phase) const;

    const std::function<void(HDRMergingPhaseName)>& callback;
    const RunControl& control;
    MergeCourse course;
    int running = 0;
};

} // namespace orvo
