#include "filling/convergence.hpp"

#include "filling/patch_distance.hpp"

#include <orvo_core/parallel.hpp>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

namespace orvo::details {
namespace {

// Shorter segments have no reliable direction, in pixels and as a share of the longer side of the hole.
constexpr float kShortest = 12.0f;
constexpr float kShortestShare = 1.0f / 15;
constexpr std::size_t kMostSegments = 1500;
constexpr std::size_t kFewestSegments = 30;
constexpr int kPairs = 4000;
// A segment that misses a point by so much does not lead to it.
constexpr float kTolerance = 2.0f * std::numbers::pi_v<float> / 180.0f;
// Segments matter less the farther they are from the hole, in units of its longer side.
constexpr float kNear = 1.0f;
// The share of the segments that must lead to the point...
constexpr float kDominant = 0.25f;
// ... and their weight relative to that of the best parallel lines.
constexpr float kOverParallel = 2.0f;
// The angle between lines through the ends of the hole, from which on shifted copies show kinks.
constexpr float kLeastSpread = 12.0f * std::numbers::pi_v<float> / 180.0f;

// A straight line between two points. Coordinates are relative to the centre of the hole, in units of its longer side;
// lines and points are homogeneous.
struct Segment
{
    cv::Point2f centre;
    cv::Point2f along; // a unit vector
    cv::Vec3f line;
    float weight;
};

// How well a segment leads to a point: 1, exactly, to 0, beyond the tolerance.
float agreement(const Segment& segment, const cv::Vec3f& point)
{
    const cv::Point2f towards(point[0] - point[2] * segment.centre.x, point[1] - point[2] * segment.centre.y);
    const float across = towards.x * segment.along.y - towards.y * segment.along.x;
    const float square = across * across / std::max(towards.dot(towards), 1e-12f) / (kTolerance * kTolerance);
    return std::max(0.0f, 1.0f - square);
}

float support(const std::vector<Segment>& segments, const cv::Vec3f& point)
{
    float sum = 0.0f;
    for (const Segment& segment : segments)
        sum += segment.weight * agreement(segment, point);
    return sum;
}

// Whether a segment passes within a few pixels of the hole, whose rim may have made it.
bool touches(const cv::Mat1b& unknown, const cv::Point2f& from, const cv::Point2f& to)
{
    constexpr int kClear = 3;
    const int steps = std::max(1, static_cast<int>(cv::norm(to - from)));
    for (int i = 0; i <= steps; ++i) {
        const cv::Point2f at = from + (to - from) * (static_cast<float>(i) / static_cast<float>(steps));
        const cv::Rect box = cv::Rect(cvRound(at.x) - kClear, cvRound(at.y) - kClear, 2 * kClear + 1, 2 * kClear + 1) &
                             cv::Rect(0, 0, unknown.cols, unknown.rows);
        if (!box.empty() && cv::countNonZero(unknown(box)) != 0)
            return true;
    }
    return false;
}

// Detects segments as Grompone von Gioi, Jakubowicz, Morel, Randall (IPOL 2012, doi:10.5201/ipol.2012.gjmr-lsd), and
// leaves out those that touch the hole.
std::vector<Segment> segmentsAround(const FillLevel& level, int scale, const _Rect<int>& window, const _Rect<int>& hole)
{
    const _Size<int> size = level.inner();
    cv::Mat1b bright(size.height, size.width);
    cv::Mat1b unknown(size.height, size.width);
    forEachRow(size.height, [&](int y) {
        for (int x = 0; x < size.width; ++x) {
            const auto i = static_cast<std::size_t>(level.at(FillLevel::kMargin + x, FillLevel::kMargin + y));
            const Texel& t = level.texels[i];
            const bool known = level.places[i] == Place::Known;
            // The detector's thresholds depend on the strongest contrast, so nothing in the hole may matter.
            bright(y, x) = known ? static_cast<std::uint8_t>((t.r + 2 * t.g + t.b) / 4) : std::uint8_t{128};
            unknown(y, x) = known ? 0 : 1;
        }
    });
    std::vector<cv::Vec4f> found;
    cv::createLineSegmentDetector(cv::LSD_REFINE_STD)->detect(bright, found);
    const auto unit = static_cast<float>(std::max(hole.width, hole.height)) / static_cast<float>(scale);
    const auto centreOf = [&](int first, int extent, int windowFirst) {
        return (static_cast<float>(first - windowFirst) + 0.5f * static_cast<float>(extent)) /
                   static_cast<float>(scale) -
               0.5f;
    };
    const cv::Point2f middle(centreOf(hole.x, hole.width, window.x), centreOf(hole.y, hole.height, window.y));
    const float shortest = std::max(kShortest, kShortestShare * unit);
    std::vector<Segment> segments;
    for (const cv::Vec4f& ends : found) {
        const cv::Point2f from(ends[0], ends[1]);
        const cv::Point2f to(ends[2], ends[3]);
        const float length = static_cast<float>(cv::norm(to - from));
        if (length < shortest || touches(unknown, from, to))
            continue;
        const cv::Point2f centre = (0.5f * (from + to) - middle) / unit;
        const cv::Point2f along = (to - from) / length;
        const float beyond = std::max(0.0f, static_cast<float>(cv::norm(centre)) - 0.5f);
        segments.push_back({centre,
                            along,
                            {-along.y, along.x, along.y * centre.x - along.x * centre.y},
                            std::min(1.0f, length / unit) * std::exp(-beyond / kNear)});
    }
    // Ties keep the detector's order.
    std::stable_sort(segments.begin(), segments.end(),
                     [](const Segment& a, const Segment& b) { return a.weight > b.weight; });
    segments.resize(std::min(segments.size(), kMostSegments));
    return segments;
}

// The crossing that most segments lead to.
cv::Vec3f bestCrossing(const std::vector<Segment>& segments)
{
    std::vector<cv::Vec3f> crossings;
    CountedRandom random(0, 0); // the same pairs in every run
    const auto pick = [&]() -> const Segment& {
        return segments[static_cast<std::size_t>(random.below(static_cast<int>(segments.size())))];
    };
    for (int i = 0; i < kPairs; ++i) {
        const Segment& a = pick();
        const Segment& b = pick();
        const cv::Vec3f crossing = a.line.cross(b.line);
        if (const float size = static_cast<float>(cv::norm(crossing)); size > 1e-6f)
            crossings.push_back(crossing / size);
    }
    std::vector<float> supports(crossings.size());
    forEachRow(static_cast<int>(crossings.size()), [&](int i) {
        supports[static_cast<std::size_t>(i)] = support(segments, crossings[static_cast<std::size_t>(i)]);
    });
    return crossings.empty() ? cv::Vec3f()
                             : crossings[static_cast<std::size_t>(std::max_element(supports.begin(), supports.end()) -
                                                                  supports.begin())];
}

// The point with the least squared distance, weighted, to the lines of the segments that lead to `point`.
cv::Vec3f refined(const std::vector<Segment>& segments, const cv::Vec3f& point)
{
    cv::Matx33d sum;
    for (const Segment& segment : segments) {
        const double weight = segment.weight * agreement(segment, point);
        const cv::Vec3d line(segment.line);
        sum += weight * (line * line.t());
    }
    cv::Vec3d values;
    cv::Matx33d vectors;
    cv::eigen(sum, values, vectors);
    return cv::Vec3f(static_cast<float>(vectors(2, 0)), static_cast<float>(vectors(2, 1)),
                     static_cast<float>(vectors(2, 2)));
}

float bestParallel(const std::vector<Segment>& segments)
{
    constexpr int kDirections = 90;
    float most = 0.0f;
    for (int i = 0; i < kDirections; ++i) {
        const float angle = std::numbers::pi_v<float> * static_cast<float>(i) / kDirections;
        most = std::max(most, support(segments, {std::cos(angle), std::sin(angle), 0.0f}));
    }
    return most;
}

// The largest angle between lines from `point` to the corners of the hole; pi inside.
float spreadOf(const cv::Point2f& point, const cv::Point2f& half)
{
    if (std::abs(point.x) <= half.x && std::abs(point.y) <= half.y)
        return std::numbers::pi_v<float>;
    float least = 0.0f;
    float most = 0.0f;
    const float middle = std::atan2(-point.y, -point.x);
    for (const float x : {-half.x, half.x})
        for (const float y : {-half.y, half.y}) {
            const float angle =
                std::remainder(std::atan2(y - point.y, x - point.x) - middle, 2.0f * std::numbers::pi_v<float>);
            least = std::min(least, angle);
            most = std::max(most, angle);
        }
    return most - least;
}

} // namespace

std::optional<VanishingPoint> convergence(const FillLevel& level, int scale, const _Rect<int>& window,
                                          const _Rect<int>& hole)
{
    const std::vector<Segment> segments = segmentsAround(level, scale, window, hole);
    if (segments.size() < kFewestSegments)
        return {};
    cv::Vec3f point = bestCrossing(segments);
    float most = support(segments, point);
    constexpr int kRefinements = 5;
    for (int i = 0; i < kRefinements; ++i) {
        const cv::Vec3f better = refined(segments, point);
        const float now = support(segments, better);
        if (!(now > most))
            break;
        point = better;
        most = now;
    }
    float all = 0.0f;
    for (const Segment& segment : segments)
        all += segment.weight;
    if (!(std::abs(point[2]) > 1e-4f))
        return {};
    const auto unit = static_cast<float>(std::max(hole.width, hole.height));
    const cv::Point2f at(point[0] / point[2], point[1] / point[2]);
    const cv::Point2f half(0.5f * static_cast<float>(hole.width) / unit, 0.5f * static_cast<float>(hole.height) / unit);
    if (most < kDominant * all || most < kOverParallel * bestParallel(segments) || spreadOf(at, half) < kLeastSpread)
        return {};
    const auto inPicture = [&](int first, int size, float offset) {
        return static_cast<float>(first) + 0.5f * static_cast<float>(size - 1) + offset * unit;
    };
    return VanishingPoint{inPicture(hole.x, hole.width, at.x), inPicture(hole.y, hole.height, at.y)};
}

} // namespace orvo::details
