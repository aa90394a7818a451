// Any seam masks anywhere on a canvas, made a partition; compared with a literal implementation of the header.
#include "fuzz_target.hpp"
#include "panorama/fit_masks.hpp"

#include <orvo_core/parallel.hpp>

#include <opencv2/core.hpp>

namespace {

using orvo::fuzz::Arguments;
using orvo::fuzz::require;

// Small, because every pixel of the canvas is compared with the literal implementation.
constexpr int kMostSide = 8;
constexpr int kMostDistance = 8;
// More pictures than fit a byte, for one first byte in sixteen.
constexpr int kManyPictures = 256;

struct Seams
{
    std::vector<cv::Mat> masks;
    std::vector<cv::Mat> whole;
    std::vector<cv::Point> corners;
};

Seams readSeams(Arguments& arguments)
{
    Seams seams;
    const int first = arguments.byte();
    const int count = first % 16 == 15 ? kManyPictures + first / 16 : 1 + first % 8;
    for (int i = 0; i < count; ++i) {
        const int width = arguments.number(1, kMostSide);
        const int height = arguments.number(1, kMostSide);
        seams.corners.emplace_back(arguments.number(-kMostDistance, kMostDistance),
                                   arguments.number(-kMostDistance, kMostDistance));
        cv::Mat mask(height, width, CV_8UC1);
        cv::Mat whole(height, width, CV_8UC1);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const std::uint8_t bits = arguments.byte();
                mask.at<std::uint8_t>(y, x) = static_cast<std::uint8_t>((bits & 1) != 0 ? bits | 2 : 0);
                whole.at<std::uint8_t>(y, x) = (bits & 4) != 0 ? 255 : 0;
            }
        seams.masks.push_back(mask);
        seams.whole.push_back(whole);
    }
    return seams;
}

cv::Rect placeOf(const Seams& seams, std::size_t i) { return {seams.corners[i], seams.masks[i].size()}; }

// The value of picture `i` at a point of the canvas.
std::uint8_t at(const std::vector<cv::Mat>& planes, const Seams& seams, std::size_t i, cv::Point point)
{
    const cv::Rect place = placeOf(seams, i);
    return place.contains(point) ? planes[i].at<std::uint8_t>(point - place.tl()) : std::uint8_t{0};
}

void checkPoint(const Seams& seams, const std::vector<cv::Mat>& fitted, cv::Point point)
{
    const std::size_t count = seams.masks.size();
    std::size_t owner = 0;
    while (owner < count && at(seams.masks, seams, owner, point) == 0)
        ++owner;
    const bool claimed = owner < count;
    if (!claimed)
        for (owner = 0; owner < count && at(seams.whole, seams, owner, point) == 0;)
            ++owner;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint8_t kept = claimed ? at(seams.masks, seams, i, point) : std::uint8_t{1};
        require(at(fitted, seams, i, point) == (i == owner ? kept : 0),
                "a pixel has one owner: the first that claims it, else the first that has it");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const orvo::WorkerLimit single(1); // the same code path in every run
    Arguments arguments({data, size});
    const Seams seams = readSeams(arguments);
    std::vector<cv::Mat> fitted;
    for (const cv::Mat& mask : seams.masks)
        fitted.push_back(mask.clone());
    orvo::fitMasks(fitted, seams.whole, seams.corners);
    for (int y = -kMostDistance; y < kMostDistance + kMostSide; ++y)
        for (int x = -kMostDistance; x < kMostDistance + kMostSide; ++x)
            checkPoint(seams, fitted, {x, y});
    return 0;
}
