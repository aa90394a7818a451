#include "panorama/fit_masks.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <opencv2/stitching/detail/util.hpp>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_group.h>

#include <algorithm>
#include <cstdint>
#include <limits>

namespace orvo {
namespace {

// The owner of a canvas pixel: none yet, the picture with this number, counted from 1, if no mask claims it, or a
// claimant. A byte is enough for usual sets, so that a row of them fits the L1 cache; else 32 bits.
template <typename State>
constexpr State kNobody = 0;
template <typename State>
constexpr State kClaimed = std::numeric_limits<State>::max();

// One row of the canvas, for the columns of one picture; `state` belongs to the canvas row.
template <typename State>
ORVO_INLINE void visit(std::uint8_t* __restrict claims, const std::uint8_t* __restrict whole, State number,
                       State* __restrict state, int count)
{
    for (int x = 0; x < count; ++x) {
        const State before = state[x];
        const std::uint8_t claim = claims[x];
        const State unclaimed = whole[x] != 0 && before == kNobody<State> ? number : before;
        state[x] = claim != 0 ? kClaimed<State> : unclaimed;
        claims[x] = before == kClaimed<State> ? std::uint8_t{0} : claim;
    }
}

template <typename State>
ORVO_INLINE void fillHoles(std::uint8_t* __restrict claims, State number, const State* __restrict state, int count)
{
    for (int x = 0; x < count; ++x)
        claims[x] = state[x] == number ? std::uint8_t{1} : claims[x];
}

ORVO_VECTOR_CLONES void visitRow(std::uint8_t* __restrict claims, const std::uint8_t* __restrict whole,
                                 std::uint8_t number, std::uint8_t* __restrict state, int count)
{
    visit(claims, whole, number, state, count);
}

ORVO_VECTOR_CLONES void visitRow(std::uint8_t* __restrict claims, const std::uint8_t* __restrict whole,
                                 std::uint32_t number, std::uint32_t* __restrict state, int count)
{
    visit(claims, whole, number, state, count);
}

ORVO_VECTOR_CLONES void fillRow(std::uint8_t* __restrict claims, std::uint8_t number,
                                const std::uint8_t* __restrict state, int count)
{
    fillHoles(claims, number, state, count);
}

ORVO_VECTOR_CLONES void fillRow(std::uint8_t* __restrict claims, std::uint32_t number,
                                const std::uint32_t* __restrict state, int count)
{
    fillHoles(claims, number, state, count);
}

template <typename State>
void fitRows(std::vector<cv::Mat>& masks, const std::vector<cv::Mat>& wholeMasks, const std::vector<cv::Point>& corners,
             const cv::Rect& canvas)
{
    tbb::task_group_context context(tbb::task_group_context::isolated);
    const auto fitSome = [&](const tbb::blocked_range<int>& rows) {
        std::vector<State> state(static_cast<std::size_t>(canvas.width));
        for (int y = rows.begin(); y < rows.end(); ++y) {
            std::fill(state.begin(), state.end(), kNobody<State>);
            const auto forEachPicture = [&](const auto& body) {
                for (std::size_t i = 0; i < masks.size(); ++i) {
                    const int row = y - corners[i].y;
                    if (row >= 0 && row < masks[i].rows)
                        body(i, row, static_cast<State>(i + 1), state.data() + (corners[i].x - canvas.x));
                }
            };
            forEachPicture([&](std::size_t i, int row, State number, State* there) {
                visitRow(masks[i].ptr(row), wholeMasks[i].ptr(row), number, there, masks[i].cols);
            });
            forEachPicture([&](std::size_t i, int row, State number, const State* there) {
                fillRow(masks[i].ptr(row), number, there, masks[i].cols);
            });
        }
    };
    parallelFor(tbb::blocked_range<int>(canvas.y, canvas.y + canvas.height), fitSome, tbb::auto_partitioner(), context);
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

    if (masks.size() < kClaimed<std::uint8_t>)
        fitRows<std::uint8_t>(masks, wholeMasks, corners, canvas);
    else
        fitRows<std::uint32_t>(masks, wholeMasks, corners, canvas);
}

} // namespace orvo
