#include "panorama/seam_cut.hpp"

#include <opencv2/imgproc.hpp>
#include <opencv2/stitching/detail/seam_finders.hpp>

#include <algorithm>

namespace orvo {
namespace {

// The margin of each picture that the finder adds around the shared rectangle, in pixels.
constexpr int kFinderMargin = 10;

struct Columns
{
    int first;
    int last; // one past
};

// The columns in which a mask is set, joined across gaps that are not voids. A void is wider than high: a cut along it
// would be shorter if it left at the top or the bottom, so its two sides are independent.
std::vector<Columns> contentOf(const cv::Mat& eitherMask)
{
    const int noVoid = eitherMask.rows;
    cv::Mat highest;
    cv::reduce(eitherMask, highest, 0, cv::REDUCE_MAX);
    std::vector<Columns> parts;
    const auto* const isSet = highest.ptr<unsigned char>();
    for (int x = 0; x < highest.cols; ++x) {
        if (isSet[x] == 0)
            continue;
        if (parts.empty() || x - parts.back().last > noVoid)
            parts.push_back({x, x});
        parts.back().last = x + 1;
    }
    if (!parts.empty() && parts.front().first <= noVoid)
        parts.front().first = 0;
    if (!parts.empty() && highest.cols - parts.back().last <= noVoid)
        parts.back().last = highest.cols;
    return parts;
}

} // namespace

bool cutSeams(const std::vector<cv::UMat>& pictures, const std::vector<cv::Point>& corners,
              std::vector<cv::UMat>& masks, float badRegionPenalty, const RunControl& run)
{
    cv::detail::GraphCutSeamFinder seamFinder(cv::detail::GraphCutSeamFinderBase::COST_COLOR, kSeamTerminalCost,
                                              badRegionPenalty);
    const auto rectOf = [&](std::size_t i) { return cv::Rect(corners[i], pictures[i].size()); };
    // Shares the pixels: cutting the part cuts the mask.
    const auto cutPart = [&](std::size_t i, std::size_t j, const cv::Rect& part) {
        const cv::Rect a = part & rectOf(i);
        const cv::Rect b = part & rectOf(j);
        std::vector<cv::UMat> partMasks = {masks[i](a - corners[i]), masks[j](b - corners[j])};
        seamFinder.find({pictures[i](a - corners[i]), pictures[j](b - corners[j])}, {a.tl(), b.tl()}, partMasks);
    };
    for (std::size_t i = 0; i < pictures.size(); ++i)
        for (std::size_t j = i + 1; j < pictures.size(); ++j) {
            const cv::Rect shared = rectOf(i) & rectOf(j);
            if (shared.empty())
                continue;
            cv::Mat both;
            cv::Mat either;
            {
                const cv::Mat a = masks[i](shared - corners[i]).getMat(cv::ACCESS_READ);
                const cv::Mat b = masks[j](shared - corners[j]).getMat(cv::ACCESS_READ);
                cv::bitwise_and(a, b, both);
                cv::bitwise_or(a, b, either);
            }
            const std::vector<Columns> parts = contentOf(either);
            for (std::size_t p = 0; p < parts.size(); ++p) {
                if (cv::countNonZero(both.colRange(parts[p].first, parts[p].last)) == 0)
                    continue;
                if (run.cancelled())
                    return false;
                cutPart(i, j,
                        {shared.x + parts[p].first - kFinderMargin, shared.y - kFinderMargin,
                         parts[p].last - parts[p].first + 2 * kFinderMargin, shared.height + 2 * kFinderMargin});
            }
        }
    return true;
}

} // namespace orvo
