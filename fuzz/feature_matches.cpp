// Passes any matches between any key points through the filters of frame alignment.
#include "bracket/match_filters.hpp"
#include "fuzz_target.hpp"

#include <orvo_core/parallel.hpp>

#include <opencv2/core/types.hpp>

#include <algorithm>

namespace {

using orvo::fuzz::Arguments;
using orvo::fuzz::require;
using Matches = std::vector<cv::DMatch>;

constexpr int kMostPoints = 64;
constexpr int kMostMatches = 128;

bool same(const cv::DMatch& a, const cv::DMatch& b) { return a.queryIdx == b.queryIdx && a.trainIdx == b.trainIdx; }

// Points on a grid as in photographs, and occasionally one with arbitrary floats.
std::vector<cv::KeyPoint> readPoints(Arguments& arguments)
{
    std::vector<cv::KeyPoint> points(static_cast<std::size_t>(arguments.number(1, kMostPoints)));
    for (cv::KeyPoint& point : points) {
        const int x = arguments.byte();
        point.pt = x == 255 ? cv::Point2f(arguments.real(), arguments.real())
                            : cv::Point2f(static_cast<float>(x), static_cast<float>(arguments.byte()));
    }
    return points;
}

std::vector<Matches> readMatches(Arguments& arguments, std::size_t queries, std::size_t trains)
{
    std::vector<Matches> entries(static_cast<std::size_t>(arguments.number(0, kMostMatches)));
    for (Matches& entry : entries) {
        const int query = arguments.byte();
        const int train = arguments.byte();
        // An entry may be empty, and may contain second choices, which do not count.
        for (int i = 0; i < (query == 255 ? 0 : 1 + train / 128); ++i)
            entry.emplace_back((query + i) % static_cast<int>(queries), train % static_cast<int>(trains), 0.0f);
    }
    return entries;
}

void checkSymmetry(const std::vector<Matches>& forth, const std::vector<Matches>& back, const Matches& kept)
{
    Matches expected;
    for (const Matches& entry : forth)
        if (!entry.empty() && std::any_of(back.begin(), back.end(), [&](const Matches& other) {
                return !other.empty() && other[0].queryIdx == entry[0].trainIdx &&
                       other[0].trainIdx == entry[0].queryIdx;
            }))
            expected.push_back(entry[0]);
    require(std::equal(kept.begin(), kept.end(), expected.begin(), expected.end(), same),
            "matches that both directions agree on are kept, in order");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const orvo::WorkerLimit single(1); // the same code path in every run
    Arguments arguments({data, size});
    const auto points1 = readPoints(arguments);
    const auto points2 = readPoints(arguments);
    const auto forth = readMatches(arguments, points1.size(), points2.size());
    const auto back = readMatches(arguments, points2.size(), points1.size());
    Matches kept;
    orvo::symmetryTest(forth, back, kept);
    checkSymmetry(forth, back, kept);

    Matches all;
    for (const Matches& entry : forth)
        all.insert(all.end(), entry.begin(), entry.end());
    constexpr std::size_t kFewest = 20; // fewer are not cut
    Matches cut = all;
    orvo::cutOutliers(cut, points1, points2, static_cast<float>(arguments.number(1, 256)),
                      static_cast<float>(arguments.number(1, 256)));
    require(cut.size() <= all.size() && cut.size() >= std::min(all.size(), kFewest), "a cut leaves enough matches");
    for (const cv::DMatch& match : cut)
        require(std::count_if(cut.begin(), cut.end(), [&](const cv::DMatch& other) { return same(match, other); }) <=
                    std::count_if(all.begin(), all.end(), [&](const cv::DMatch& other) { return same(match, other); }),
                "a cut adds no match");
    return 0;
}
