#include "bracket/match_filters.hpp"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <unordered_map>

namespace orvo {
namespace {

// Deciles of fewer matches than this are not significant.
constexpr std::size_t kFewestForCut = 20;
constexpr std::size_t kParts = 10;

// The growth of the displacement from decile to decile may increase by this share of the frame's side.
constexpr float kJump = 0.003f;

/// Orders matches by their displacement on one axis.
class Comparator
{
public:
    Comparator(const std::vector<cv::KeyPoint>& keypoints1, const std::vector<cv::KeyPoint>& keypoints2)
        : query(keypoints1), train(keypoints2)
    {}

protected:
    [[nodiscard]] cv::Point2f displacement(const cv::DMatch& match) const
    {
        const cv::Point2f q = query[static_cast<std::size_t>(match.queryIdx)].pt;
        const cv::Point2f t = train[static_cast<std::size_t>(match.trainIdx)].pt;
        return {std::abs(q.x - t.x), std::abs(q.y - t.y)};
    }

private:
    const std::vector<cv::KeyPoint>& query;
    const std::vector<cv::KeyPoint>& train;
};

struct ComparatorX : Comparator
{
    using Comparator::Comparator;
    [[nodiscard]] float operator()(const cv::DMatch& match) const { return displacement(match).x; }
    [[nodiscard]] bool operator()(const cv::DMatch& a, const cv::DMatch& b) const
    {
        return displacement(a).x < displacement(b).x;
    }
};

struct ComparatorY : Comparator
{
    using Comparator::Comparator;
    [[nodiscard]] float operator()(const cv::DMatch& match) const { return displacement(match).y; }
    [[nodiscard]] bool operator()(const cv::DMatch& a, const cv::DMatch& b) const
    {
        return displacement(a).y < displacement(b).y;
    }
};

template <typename Axis>
std::vector<float> sortedDisplacements(const std::vector<cv::DMatch>& matches, const Axis& axis, float side)
{
    std::vector<float> values;
    values.reserve(matches.size());
    for (const cv::DMatch& match : matches)
        values.push_back(axis(match) / side);
    std::sort(values.begin(), values.end());
    return values;
}

// True if the growth into decile k exceeds the growth before it by more than the limit. The growth before the first
// decile is the first displacement.
bool jumpsAt(const std::vector<float>& sorted, std::size_t part, std::size_t k)
{
    const float current = sorted[k * part];
    const float previous = sorted[(k - 1) * part];
    const float beforePrevious = k >= 2 ? sorted[(k - 2) * part] : 0.0f;
    return (current - previous) - (previous - beforePrevious) > kJump;
}

template <typename Axis>
void keepSmallest(std::vector<cv::DMatch>& matches, std::size_t count, const Axis& axis)
{
    if (count < kFewestForCut)
        return;
    std::stable_sort(matches.begin(), matches.end(), axis);
    matches.resize(count);
}

} // namespace

void symmetryTest(const std::vector<std::vector<cv::DMatch>>& matches12,
                  const std::vector<std::vector<cv::DMatch>>& matches21, std::vector<cv::DMatch>& out)
{
    std::unordered_map<int, std::vector<int>> reverse; // query index in 21 -> train indices, as a knn search lists them
    for (const auto& entry : matches21)
        if (!entry.empty())
            reverse[entry.front().queryIdx].push_back(entry.front().trainIdx);
    std::vector<unsigned char> crossed(matches12.size(), 0);
    const auto testEntry = [&](std::size_t i) {
        if (matches12[i].empty())
            return;
        const cv::DMatch& match = matches12[i].front();
        const auto found = reverse.find(match.trainIdx);
        crossed[i] = found != reverse.end() &&
                     std::find(found->second.begin(), found->second.end(), match.queryIdx) != found->second.end();
    };
    tbb::parallel_for(std::size_t{0}, matches12.size(), testEntry, tbb::auto_partitioner());
    out.clear();
    // Collected here, not in the loop: a position counter shared by threads would make the order depend on timing.
    for (std::size_t i = 0; i < matches12.size(); ++i)
        if (crossed[i] != 0)
            out.push_back(matches12[i].front());
}

void cutOutliers(std::vector<cv::DMatch>& matches, const std::vector<cv::KeyPoint>& keypoints1,
                 const std::vector<cv::KeyPoint>& keypoints2, float width, float height)
{
    if (matches.size() < kFewestForCut)
        return;
    const ComparatorX byX(keypoints1, keypoints2);
    const ComparatorY byY(keypoints1, keypoints2);
    const std::vector<float> dx = sortedDisplacements(matches, byX, width);
    const std::vector<float> dy = sortedDisplacements(matches, byY, height);
    const std::size_t part = matches.size() / kParts;
    for (std::size_t k = 1; k < kParts; ++k) {
        if (jumpsAt(dx, part, k))
            return keepSmallest(matches, k * part, byX);
        if (jumpsAt(dy, part, k))
            return keepSmallest(matches, k * part, byY);
    }
    keepSmallest(matches, (kParts - 1) * part, byX);
}

} // namespace orvo
