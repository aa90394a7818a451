/// Matching of all pairs of pictures that can be stopped between two of them.
#pragma once

#include <orvo_common/run_control.hpp>

#include <opencv2/stitching/detail/matchers.hpp>

#include <atomic>
#include <thread>
#include <vector>

namespace orvo {

/// cv::detail::BestOf2NearestMatcher, whose matches it finds. It matches on many threads, while a cancel function may
/// be asked on one of them alone: the calling thread, which takes its share of the pairs, asks for all.
class CancellableMatcher : public cv::detail::BestOf2NearestMatcher
{
public:
    using cv::detail::BestOf2NearestMatcher::BestOf2NearestMatcher;

    /// Calls the matcher; `control` is asked once for each pair. False if cancelled: pairs that were left have
    /// no matches.
    bool matchAll(const std::vector<cv::detail::ImageFeatures>& features,
                  std::vector<cv::detail::MatchesInfo>& pairwise, const RunControl& control)
    {
        run = &control;
        caller = std::this_thread::get_id();
        polls = 0;
        pairs = 0;
        isCancelled = false;
        (*this)(features, pairwise, cv::UMat());
        // For the pairs of other threads, so that the number of polls does not tell which thread had how many.
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
    }

    const RunControl* run = nullptr; // while matchAll() runs
    std::thread::id caller;
    int polls = 0; // of the calling thread alone
    std::atomic<int> pairs = 0;
    std::atomic<bool> isCancelled = false;
};

} // namespace orvo
