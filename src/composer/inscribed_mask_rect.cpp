#include "composer/inscribed_mask_rect.hpp"

#include <orvo_extensions/panorama_preview_composer.hpp>

#include <opencv2/imgproc.hpp>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_group.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvo {
namespace {

// Zero pixels on each side of a mask, so that every run of its rows ends within the row.
constexpr int kBorder = 5;

// Columns of a row that are not zero, `end` the first one after them.
struct Run
{
    int begin = 0;
    int end = 0;
};
using Runs = std::vector<Run>;

cv::Mat maskToBinary(const _ImageData<float>& mask)
{
    // Only read; OpenCV has no matrix of constant samples.
    const cv::Mat view(mask.height(), mask.width(), CV_32FC1, const_cast<float*>(mask.data()));
    cv::Mat binary;
    view.convertTo(binary, CV_8U, 255.0, 0.0);
    cv::threshold(binary, binary, 0.0, 255.0, cv::THRESH_BINARY);
    return binary;
}

// Smaller regions stay as they are.
void keepLargestContourFilled(cv::Mat& binary)
{
    std::vector<std::vector<cv::Point>> contours;
    std::vector<cv::Vec4i> hierarchy;
    cv::findContours(binary, contours, hierarchy, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    const std::vector<cv::Point>* largest = nullptr;
    double largestArea = 0.0;
    for (const auto& contour : contours) {
        const double area = cv::contourArea(contour);
        if (largest && !(area > largestArea))
            continue;
        largest = &contour;
        largestArea = area;
    }
    if (largest)
        cv::fillPoly(binary, std::vector<std::vector<cv::Point>>{*largest}, cv::Scalar::all(255), cv::LINE_8, 0);
}

Runs runsOfRow(const std::uint8_t* row, int width)
{
    Runs runs;
    bool isInside = false;
    for (int x = 0; x < width; ++x) {
        const bool isSet = row[x] != 0;
        if (isSet && !isInside)
            runs.push_back({x, width});
        else if (!isSet && isInside)
            runs.back().end = x;
        isInside = isSet;
    }
    return runs;
}

// The leftmost of the longest ones; empty if there is none.
Run longestOf(const Runs& runs)
{
    Run longest;
    for (const Run& run : runs)
        if (run.end - run.begin > longest.end - longest.begin)
            longest = run;
    return longest;
}

// The columns that both have. `both` must be neither of them.
void intersect(const Runs& a, const Runs& b, Runs& both)
{
    both.clear();
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < a.size() && j < b.size()) {
        const int begin = std::max(a[i].begin, b[j].begin);
        const int end = std::min(a[i].end, b[j].end);
        if (begin < end)
            both.push_back({begin, end});
        (a[i].end < b[j].end ? i : j)++;
    }
}

std::int64_t areaOf(const cv::Rect& rect) { return static_cast<std::int64_t>(rect.width) * rect.height; }

// The largest rectangle whose upper side is row `top`. As it grows downwards, fewer columns stay covered.
cv::Rect extendFromRow(const std::vector<Runs>& rows, int top)
{
    Runs current = rows[static_cast<std::size_t>(top)];
    Runs next;
    Run longest = longestOf(current);
    cv::Rect best(longest.begin, top, longest.end - longest.begin, 1);
    const int count = static_cast<int>(rows.size());
    for (int row = top + 1; row < count; ++row) {
        // Even with all rows below the rest would be smaller.
        if (static_cast<std::int64_t>(longest.end - longest.begin) * (count - top) <= areaOf(best))
            break;
        intersect(current, rows[static_cast<std::size_t>(row)], next);
        current.swap(next);
        longest = longestOf(current);
        const cv::Rect grown(longest.begin, top, longest.end - longest.begin, row - top + 1);
        if (areaOf(grown) > areaOf(best))
            best = grown;
    }
    return best;
}

} // namespace

cv::Rect largestRectWithoutZero(const cv::Mat& binary)
{
    std::vector<Runs> rows(static_cast<std::size_t>(binary.rows));
    for (int row = 0; row < binary.rows; ++row)
        rows[static_cast<std::size_t>(row)] = runsOfRow(binary.ptr<std::uint8_t>(row), binary.cols);
    std::vector<cv::Rect> candidates(rows.size());
    tbb::task_group_context context(tbb::task_group_context::isolated);
    tbb::parallel_for(
        tbb::blocked_range<int>(0, binary.rows),
        [&](const tbb::blocked_range<int>& range) {
            for (int row = range.begin(); row < range.end(); ++row)
                candidates[static_cast<std::size_t>(row)] = extendFromRow(rows, row);
        },
        tbb::auto_partitioner(), context);
    cv::Rect best;
    for (const cv::Rect& candidate : candidates)
        if (areaOf(candidate) > areaOf(best) || (areaOf(candidate) == areaOf(best) && candidate.height < best.height))
            best = candidate;
    return best;
}

cv::Rect calculateMaxInscribedRect(cv::Mat& binary)
{
    keepLargestContourFilled(binary);
    return largestRectWithoutZero(binary);
}

_Rect<int> inscribedRectOfMask(const _ImageData<float>& mask)
{
    cv::Mat binary = maskToBinary(mask);
    cv::copyMakeBorder(binary, binary, kBorder, kBorder, kBorder, kBorder, cv::BORDER_CONSTANT, cv::Scalar::all(0));
    const cv::Rect found = calculateMaxInscribedRect(binary);
    // The left and upper sides keep a margin to the ragged edge of the content; the right and lower sides do not.
    return {found.x + kBorder, found.y + kBorder, found.width - 2 * kBorder, found.height - 2 * kBorder};
}

_Rect<int> fullRectOfMask(const _ImageData<float>& mask)
{
    const cv::Rect found = largestRectWithoutZero(maskToBinary(mask));
    return {found.x, found.y, found.width, found.height};
}

} // namespace orvo
