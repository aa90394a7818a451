/// Matches all pairs of pictures, and can be cancelled between two of them.
#pragma once

#include <orvo_common/run_control.hpp>

#include <opencv2/stitching/detail/matchers.hpp>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace orvo {

/// cv::detail::BestOf2NearestMatcher, with the same matches. It matches on many threads, but a cancel function may be
/// called on only one: the calling thread, which matches its share of the pairs, polls it for all.
class CancellableMatcher : public cv::detail::BestOf2NearestMatcher
{
public:
    using cv::detail::BestOf2NearestMatcher::BestOf2NearestMatcher;

    /// Calls the matcher; `control` is polled once per pair, and follows them. False if cancelled: the remaining pairs
    /// have no matches.
    bool matchAll(const std::vector<cv::detail::ImageFeatures>& features,
                  std::vector<cv::detail::MatchesInfo>& pairwise, const RunControl& control)
    {
        run = &control;
        caller = std::this_thread::get_id();
        polls = 0;
        pairs = 0;
        allPairs = std::max(1.0f, 0.5f * static_cast<float>(features.size() * (features.size() - 1)));
        isCancelled = false;
        (*this)(features, pairwise, cv::UMat());
        // For the pairs of other threads, so that the number of polls does not depend on their distribution.
        while (polls < pairs && !isCancelled)
            poll();
        run = nullptr;
        return !isCancelled;
    }

private:
    void match(const cv::detail::ImageFeatures& first, const cv::detail::ImageFeatures& second,
               cv::detail::MatchesInfo& matches) override
    {
        ++pairs;
        if (std::this_thread::get_id() == caller && !isCancelled)
            poll();
        if (!isCancelled)
            BestOf2NearestMatcher::match(first, second, matches);
    }

    void poll()
    {
        ++polls;
        if (run->cancelled())
            isCancelled = true;
        else
            run->report(std::min(1.0f, static_cast<float>(pairs) / allPairs));
    }

    const RunControl* run = nullptr; // while matchAll() runs
    std::thread::id caller;
    int polls = 0; // by the calling thread only
    std::atomic<int> pairs = 0;
    float allPairs = 1.0f;
    std::atomic<bool> isCancelled = false;
};

} // namespace orvo
