#include "panorama/consistent_pairs.hpp"

#include "panorama/match_confidence.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <numeric>

namespace orvo {
namespace {

constexpr double kDegree = std::numbers::pi / 180.0;

// Focal lengths in units of the longer side: 110 to 7 degrees of view. The steps are so fine that a full circle, whose
// angles are in proportion to the focal length, closes within kSameRotation at one of them.
constexpr double kShortestFocal = 0.35;
constexpr double kFocalStep = 1.01;
constexpr int kFocals = 318;

// A match agrees with a rotation if it is off by less than this in pixels of the features: the distance within which
// the matcher takes a match as one of a homography.
constexpr double kMatchReach = 4.0;
// A pair implies a rotation if at least this share of its matches agrees.
constexpr double kFewestAgreeing = 0.5;
// Two rotations between the same pictures agree within this angle. The errors of some pairs and of the focal length add
// up; things that look alike are further apart.
constexpr double kSameRotation = 2.5 * kDegree;

// Trees for each focal length. The strongest pairs are in most of them.
constexpr int kTrees = 60;

// Pictures whose directions differ by less than this share of their angle of view show so much of the same that they
// must match.
constexpr double kMustMatch = 0.5;

// Points of a picture about its middle: a sample of its features, enough to count those in a part of it.
struct Sample
{
    std::vector<cv::Point2d> points;
    double each = 1.0; // features that a point stands for
    cv::Point2d half;  // size of the picture
};

constexpr std::size_t kSampledPoints = 250;

std::vector<Sample> samplesOf(const std::vector<cv::detail::ImageFeatures>& features)
{
    std::vector<Sample> samples;
    for (const auto& picture : features) {
        Sample sample;
        sample.half = {0.5 * picture.img_size.width, 0.5 * picture.img_size.height};
        const std::size_t step = std::max<std::size_t>(1, picture.keypoints.size() / kSampledPoints);
        for (std::size_t i = 0; i < picture.keypoints.size(); i += step)
            sample.points.push_back(cv::Point2d(picture.keypoints[i].pt) - sample.half);
        sample.each = static_cast<double>(step);
        samples.push_back(std::move(sample));
    }
    return samples;
}

struct Edge
{
    int first = 0;
    int second = 0;
    std::size_t entry = 0;         // in the list of pairs
    std::vector<cv::Point2d> from; // matched points about the middle of the picture
    std::vector<cv::Point2d> to;
    cv::Matx33d rotation; // from the second camera to the first
    double density = 0.0; // matches that agree, as a share of the features that both pictures then show
    double weight = 0.0;  // matches that agree with it; 0 if too few do
};

double angleOf(const cv::Matx33d& rotation)
{
    return std::acos(std::clamp(0.5 * (cv::trace(rotation) - 1.0), -1.0, 1.0));
}

cv::Vec3d rayOf(const cv::Point2d& point, double focal) { return cv::normalize(cv::Vec3d(point.x, point.y, focal)); }

// The rotation that takes the second rays to the first with the least squares (Kabsch 1976).
cv::Matx33d fittedRotation(const std::vector<cv::Vec3d>& first, const std::vector<cv::Vec3d>& second,
                           const std::vector<bool>& used)
{
    cv::Matx33d sum = cv::Matx33d::zeros();
    for (std::size_t i = 0; i < first.size(); ++i)
        if (used[i])
            sum += first[i] * second[i].t();
    cv::Matx33d u;
    cv::Matx33d vt;
    cv::Matx31d w;
    cv::SVD::compute(sum, w, u, vt);
    const double sign = cv::determinant(u * vt) < 0.0 ? -1.0 : 1.0;
    return u * cv::Matx33d::diag(cv::Vec3d(1.0, 1.0, sign)) * vt;
}

// How many features of a picture are inside the other.
double featuresInside(const Sample& from, const Sample& other, const cv::Matx33d& otherFromThis, double focal)
{
    double count = 0.0;
    for (const cv::Point2d& point : from.points) {
        const cv::Vec3d ray = otherFromThis * cv::Vec3d(point.x, point.y, focal);
        if (ray[2] > 0.0 && std::abs(ray[0]) * focal < other.half.x * ray[2] &&
            std::abs(ray[1]) * focal < other.half.y * ray[2])
            count += from.each;
    }
    return count;
}

void fitRotation(Edge& edge, double focal, const std::vector<Sample>& samples)
{
    constexpr int kRounds = 3;
    std::vector<cv::Vec3d> first;
    std::vector<cv::Vec3d> second;
    for (std::size_t i = 0; i < edge.from.size(); ++i) {
        first.push_back(rayOf(edge.from[i], focal));
        second.push_back(rayOf(edge.to[i], focal));
    }
    std::vector<bool> agrees(first.size(), true);
    std::ptrdiff_t count = 0;
    for (int round = 0; round < kRounds; ++round) {
        edge.rotation = fittedRotation(first, second, agrees);
        for (std::size_t i = 0; i < first.size(); ++i)
            agrees[i] = cv::norm(first[i] - edge.rotation * second[i]) * focal < kMatchReach;
        count = std::count(agrees.begin(), agrees.end(), true);
        if (count < 3)
            break;
    }
    const auto all = static_cast<double>(first.size());
    edge.weight = static_cast<double>(count) >= kFewestAgreeing * all ? static_cast<double>(count) : 0.0;
    if (edge.weight == 0.0)
        return;
    const Sample& a = samples[static_cast<std::size_t>(edge.first)];
    const Sample& b = samples[static_cast<std::size_t>(edge.second)];
    const double common =
        std::min(featuresInside(a, b, edge.rotation.t(), focal), featuresInside(b, a, edge.rotation, focal));
    edge.density = edge.weight / std::max(common, edge.weight);
}

// The matched pairs, with points about the middle of each picture.
std::vector<Edge> edgesOf(const std::vector<cv::detail::ImageFeatures>& features,
                          const std::vector<cv::detail::MatchesInfo>& pairs)
{
    const int count = static_cast<int>(features.size());
    std::vector<Edge> edges;
    for (int i = 0; i < count; ++i) {
        for (int j = i + 1; j < count; ++j) {
            const auto entry = static_cast<std::size_t>(i * count + j);
            const cv::detail::MatchesInfo& pair = pairs[entry];
            if (!(pair.confidence > static_cast<double>(kMatchConfidence)) || pair.H.empty())
                continue;
            Edge edge;
            edge.first = i;
            edge.second = j;
            edge.entry = entry;
            const auto pointOf = [&](int picture, int keypoint) {
                const auto& of = features[static_cast<std::size_t>(picture)];
                const cv::Point2f& at = of.keypoints[static_cast<std::size_t>(keypoint)].pt;
                return cv::Point2d(static_cast<double>(at.x) - 0.5 * of.img_size.width,
                                   static_cast<double>(at.y) - 0.5 * of.img_size.height);
            };
            for (std::size_t m = 0; m < pair.matches.size(); ++m) {
                if (pair.inliers_mask[m] == 0)
                    continue;
                edge.from.push_back(pointOf(i, pair.matches[m].queryIdx));
                edge.to.push_back(pointOf(j, pair.matches[m].trainIdx));
            }
            edges.push_back(std::move(edge));
        }
    }
    return edges;
}

// Sets of pictures that are connected.
class Components
{
public:
    explicit Components(int count) : parent(static_cast<std::size_t>(count))
    {
        std::iota(parent.begin(), parent.end(), 0);
    }
    int of(int picture)
    {
        while (parent[static_cast<std::size_t>(picture)] != picture)
            picture = parent[static_cast<std::size_t>(picture)];
        return picture;
    }
    /// False if they are connected already.
    bool join(int a, int b)
    {
        const int first = of(a);
        const int second = of(b);
        parent[static_cast<std::size_t>(std::max(first, second))] = std::min(first, second);
        return first != second;
    }

private:
    std::vector<int> parent;
};

// Bit mixer of the SplitMix64 generator (Steele, Lea, Flood, OOPSLA 2014), as a number from 0 to 1.
double chance(std::uint64_t z)
{
    z += 0x9E3779B97F4A7C15u;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return static_cast<double>((z ^ (z >> 31)) >> 11) / 9007199254740992.0;
}

// Rotations along a spanning tree of the pairs, strong ones first; the first tree has the strongest.
struct Tree
{
    std::vector<cv::Matx33d> rotations;
    std::vector<int> component; // of each picture, its lowest picture

    Tree(const std::vector<Edge>& edges, int pictures, int number)
        : rotations(static_cast<std::size_t>(pictures), cv::Matx33d::eye()),
          component(static_cast<std::size_t>(pictures))
    {
        std::vector<std::pair<double, std::size_t>> order;
        for (std::size_t e = 0; e < edges.size(); ++e) {
            const auto seed = static_cast<std::uint64_t>(number) * edges.size() + e;
            const double luck = number == 0 ? 1.0 : chance(seed);
            if (edges[e].weight > 0.0)
                order.emplace_back(-edges[e].weight * luck, e);
        }
        std::sort(order.begin(), order.end());
        Components components(pictures);
        std::vector<std::vector<std::size_t>> neighbours(static_cast<std::size_t>(pictures));
        for (const auto& [weight, e] : order) {
            if (!components.join(edges[e].first, edges[e].second))
                continue;
            neighbours[static_cast<std::size_t>(edges[e].first)].push_back(e);
            neighbours[static_cast<std::size_t>(edges[e].second)].push_back(e);
        }
        for (int picture = 0; picture < pictures; ++picture)
            component[static_cast<std::size_t>(picture)] = components.of(picture);
        std::vector<bool> isKnown(static_cast<std::size_t>(pictures), false);
        for (int root = 0; root < pictures; ++root)
            if (component[static_cast<std::size_t>(root)] == root)
                walk(edges, neighbours, root, isKnown);
    }

    [[nodiscard]] bool agreesWith(const Edge& edge) const
    {
        const auto first = static_cast<std::size_t>(edge.first);
        const auto second = static_cast<std::size_t>(edge.second);
        return edge.weight > 0.0 && component[first] == component[second] &&
               angleOf(rotations[first].t() * rotations[second] * edge.rotation.t()) < kSameRotation;
    }

private:
    void walk(const std::vector<Edge>& edges, const std::vector<std::vector<std::size_t>>& neighbours, int root,
              std::vector<bool>& isKnown)
    {
        std::vector<int> open = {root};
        isKnown[static_cast<std::size_t>(root)] = true;
        while (!open.empty()) {
            const auto at = static_cast<std::size_t>(open.back());
            open.pop_back();
            for (const std::size_t e : neighbours[at]) {
                const bool isForward = static_cast<std::size_t>(edges[e].first) == at;
                const int next = isForward ? edges[e].second : edges[e].first;
                if (isKnown[static_cast<std::size_t>(next)])
                    continue;
                isKnown[static_cast<std::size_t>(next)] = true;
                rotations[static_cast<std::size_t>(next)] =
                    rotations[at] * (isForward ? edges[e].rotation : edges[e].rotation.t());
                open.push_back(next);
            }
        }
    }
};

// Matches that agree with the tree, less a pair's worth for each two pictures that should match and do not.
double scoreOf(const Tree& tree, const std::vector<Edge>& edges, double viewAngle, double pairsWorth)
{
    const std::size_t count = tree.rotations.size();
    std::vector<bool> isMatched(count * count, false);
    double score = 0.0;
    for (const Edge& edge : edges) {
        if (!tree.agreesWith(edge))
            continue;
        score += edge.weight;
        isMatched[static_cast<std::size_t>(edge.first) * count + static_cast<std::size_t>(edge.second)] = true;
    }
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t j = i + 1; j < count; ++j) {
            if (tree.component[i] != tree.component[j] || isMatched[i * count + j])
                continue;
            const cv::Vec3d a(tree.rotations[i](0, 2), tree.rotations[i](1, 2), tree.rotations[i](2, 2));
            const cv::Vec3d b(tree.rotations[j](0, 2), tree.rotations[j](1, 2), tree.rotations[j](2, 2));
            if (std::acos(std::clamp(a.dot(b), -1.0, 1.0)) < kMustMatch * viewAngle)
                score -= pairsWorth;
        }
    }
    return score;
}

// Where few of the features that both pictures would show match, the pictures show two places that look alike: only
// doors match, not what is between them (as in Brown, Lowe 2007, but relative to the other pairs, since noise and
// parallax cost matches everywhere).
void dropSparse(std::vector<Edge>& edges)
{
    constexpr double kSparse = 0.35; // of the density that half of all matches have
    std::vector<std::pair<double, double>> densities;
    double all = 0.0;
    for (const Edge& edge : edges) {
        densities.emplace_back(edge.density, edge.weight);
        all += edge.weight;
    }
    std::sort(densities.begin(), densities.end());
    double sum = 0.0;
    double median = 0.0;
    for (const auto& [density, weight] : densities) {
        if (sum < 0.5 * all)
            median = density;
        sum += weight;
    }
    for (Edge& edge : edges)
        if (edge.density < kSparse * median)
            edge.weight = 0.0;
}

double medianWeight(const std::vector<Edge>& edges)
{
    std::vector<double> weights;
    for (const Edge& edge : edges)
        if (edge.weight > 0.0)
            weights.push_back(edge.weight);
    if (weights.empty())
        return 0.0;
    std::nth_element(weights.begin(), weights.begin() + static_cast<std::ptrdiff_t>(weights.size() / 2), weights.end());
    return weights[weights.size() / 2];
}

} // namespace

std::optional<ConsistentViews> findConsistentViews(const std::vector<cv::detail::ImageFeatures>& features,
                                                   const std::vector<cv::detail::MatchesInfo>& pairs,
                                                   const RunControl& run)
{
    std::vector<Edge> edges = edgesOf(features, pairs);
    if (edges.empty())
        return std::nullopt;
    const std::vector<Sample> samples = samplesOf(features);
    const cv::Size size = features[0].img_size;
    const double longer = std::max(size.width, size.height);
    const int count = static_cast<int>(features.size());
    std::optional<ConsistentViews> best;
    double bestScore = 0.0;
    double focal = kShortestFocal * longer;
    for (int i = 0; i < kFocals; ++i, focal *= kFocalStep) {
        if (run.cancelled())
            return std::nullopt;
        for (Edge& edge : edges)
            fitRotation(edge, focal, samples);
        dropSparse(edges);
        const double viewAngle = 2.0 * std::atan(0.5 * std::min(size.width, size.height) / focal);
        const double pairsWorth = medianWeight(edges);
        for (int number = 0; number < kTrees; ++number) {
            Tree tree(edges, count, number);
            const double score = scoreOf(tree, edges, viewAngle, pairsWorth);
            if (!(score > bestScore))
                continue;
            bestScore = score;
            best.emplace();
            best->focal = focal;
            best->agrees.assign(pairs.size(), false);
            for (const Edge& edge : edges) {
                const auto mirrored = static_cast<std::size_t>(edge.second * count + edge.first);
                best->agrees[edge.entry] = tree.agreesWith(edge);
                best->agrees[mirrored] = best->agrees[edge.entry];
            }
            best->rotations = std::move(tree.rotations);
        }
    }
    return best;
}

} // namespace orvo
