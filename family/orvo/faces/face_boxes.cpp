#include "faces/face_boxes.hpp"

#include <algorithm>
#include <tuple>

namespace orvo {
namespace {

// Two detectors frame the same face with boxes that differ by up to a third in size.
constexpr double kSameFind = 0.4;
// Faces of two people that touch overlap less than this, because the boxes end at the ears.
constexpr double kSameFace = 0.3;
// A centre within this share of the other's half sides: the smaller box is a part of the larger.
constexpr double kWellInside = 0.6;

cv::Point2d centre(const cv::Rect2d& box) { return {box.x + 0.5 * box.width, box.y + 0.5 * box.height}; }

auto place(const cv::Rect2d& box) { return std::make_tuple(box.y, box.x, box.width, box.height); }

// The mean of one group, summed in a fixed order of its members.
FaceCandidate mean(const std::vector<FaceVote>& votes)
{
    FaceCandidate result;
    unsigned seen = 0;
    double weight = 0.0;
    for (const FaceVote& vote : votes) {
        const double w = std::max(vote.support, 1);
        result.box.x += w * vote.box.x;
        result.box.y += w * vote.box.y;
        result.box.width += w * vote.box.width;
        result.box.height += w * vote.box.height;
        weight += w;
        result.support += vote.support;
        seen |= 1u << static_cast<unsigned>(vote.detector);
    }
    result.box = {result.box.x / weight, result.box.y / weight, result.box.width / weight, result.box.height / weight};
    for (; seen != 0; seen &= seen - 1)
        ++result.detectors;
    return result;
}

} // namespace

double overlap(const cv::Rect2d& a, const cv::Rect2d& b)
{
    const double common = (a & b).area();
    const double both = a.area() + b.area() - common;
    return both > 0.0 ? common / both : 0.0;
}

bool sameFace(const cv::Rect2d& a, const cv::Rect2d& b)
{
    if (overlap(a, b) >= kSameFace)
        return true;
    const cv::Rect2d& large = a.area() < b.area() ? b : a;
    const cv::Rect2d& small = a.area() < b.area() ? a : b;
    const cv::Point2d offset = centre(small) - centre(large);
    return std::abs(offset.x) < 0.5 * kWellInside * large.width &&
           std::abs(offset.y) < 0.5 * kWellInside * large.height;
}

std::vector<FaceCandidate> gathered(std::vector<FaceVote> votes)
{
    // The strongest finds collect those around them. Sorted by all fields, because detectors on several threads deliver
    // them in any order.
    std::sort(votes.begin(), votes.end(), [](const FaceVote& a, const FaceVote& b) {
        return std::make_tuple(-a.support, place(a.box), a.detector) <
               std::make_tuple(-b.support, place(b.box), b.detector);
    });
    std::vector<std::vector<FaceVote>> groups;
    for (const FaceVote& vote : votes) {
        const auto group = std::find_if(groups.begin(), groups.end(), [&](const std::vector<FaceVote>& members) {
            return overlap(members.front().box, vote.box) >= kSameFind;
        });
        if (group == groups.end())
            groups.push_back({vote});
        else
            group->push_back(vote);
    }
    std::vector<FaceCandidate> candidates;
    for (const std::vector<FaceVote>& group : groups)
        candidates.push_back(mean(group));
    return candidates;
}

std::vector<FaceCandidate> distinct(std::vector<FaceCandidate> candidates)
{
    std::sort(candidates.begin(), candidates.end(), [](const FaceCandidate& a, const FaceCandidate& b) {
        return std::make_tuple(-a.detectors, -a.support, place(a.box)) <
               std::make_tuple(-b.detectors, -b.support, place(b.box));
    });
    std::vector<FaceCandidate> kept;
    for (const FaceCandidate& candidate : candidates) {
        const bool known = std::any_of(kept.begin(), kept.end(), [&](const FaceCandidate& stronger) {
            return sameFace(stronger.box, candidate.box);
        });
        if (!known)
            kept.push_back(candidate);
    }
    std::sort(kept.begin(), kept.end(),
              [](const FaceCandidate& a, const FaceCandidate& b) { return place(a.box) < place(b.box); });
    return kept;
}

} // namespace orvo
