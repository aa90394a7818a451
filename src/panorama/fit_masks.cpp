#include "panorama/fit_masks.hpp"

#include <opencv2/stitching/detail/util.hpp>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_group.h>

#include <algorithm>
#include <cstdint>

namespace orvo {
namespace {

// Who has a canvas pixel: nobody yet, the picture of this number counted from 1 if nobody claims it, or a claimant.
constexpr std::int32_t kNobody = 0;
constexpr std::int32_t kClaimed = -1;

// One row of the canvas, for the columns of one picture; `state` is the canvas row's.
void visit(cv::Mat& mask, const cv::Mat& wholeMask, int row, std::int32_t number, std::int32_t* state)
{
    std::uint8_t* const claims = mask.ptr<std::uint8_t>(row);
    const std::uint8_t* const whole = wholeMask.ptr<std::uint8_t>(row);
    for (int x = 0; x < mask.cols; ++x) {
        if (claims[x]) {
            if (state[x] == kClaimed)
                claims[x] = 0;
            else
                state[x] = kClaimed;
        } else if (whole[x] && state[x] == kNobody) {
            state[x] = number;
        }
    }
}

void fillHoles(cv::Mat& mask, int row, std::int32_t number, const std::int32_t* state)
{
    std::uint8_t* const claims = mask.ptr<std::uint8_t>(row);
    for (int x = 0; x < mask.cols; ++x)
        if (state[x] == number)
            claims[x] = 1;
}

} // namespace

void fitMasks(std::vector<cv::Mat>& masks, const std::vector<cv::Mat>& wholeMasks,
              const std::vector<cv::Point>& corners)
{
    if (masks.empty())
        return;
    std::vector<cv::Size> sizes;
    for (const cv::Mat& mask : masks)
        sizes.push_back(mask.size());
    const cv::Rect canvas = cv::detail::resultRoi(corners, sizes);

    tbb::task_group_context context(tbb::task_group_context::isolated);
    const auto fitRows = [&](const tbb::blocked_range<int>& rows) {
        std::vector<std::int32_t> state(static_cast<std::size_t>(canvas.width));
        for (int y = rows.begin(); y < rows.end(); ++y) {
            std::fill(state.begin(), state.end(), kNobody);
            const auto forEachPicture = [&](const auto& body) {
                for (std::size_t i = 0; i < masks.size(); ++i) {
                    const int row = y - corners[i].y;
                    if (row >= 0 && row < masks[i].rows)
                        body(i, row, state.data() + (corners[i].x - canvas.x));
                }
            };
            forEachPicture([&](std::size_t i, int row, std::int32_t* there) {
                visit(masks[i], wholeMasks[i], row, static_cast<std::int32_t>(i) + 1, there);
            });
            forEachPicture([&](std::size_t i, int row, const std::int32_t* there) {
                fillHoles(masks[i], row, static_cast<std::int32_t>(i) + 1, there);
            });
        }
    };
    tbb::parallel_for(tbb::blocked_range<int>(canvas.y, canvas.y + canvas.height), fitRows, tbb::auto_partitioner(),
                      context);
}

} // namespace orvo
