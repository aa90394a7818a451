#include "panorama/sphere_maps.hpp"

#include "frame/managed_mat.hpp"

#include <orvo_core/parallel.hpp>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_group.h>

#include <algorithm>
#include <cstdint>

namespace orvo {
namespace {

// In its own task group: cancelling the surrounding tasks does not stop a loop half way.
template <typename Body>
void isolatedRows(int rows, const Body& body)
{
    tbb::task_group_context context(tbb::task_group_context::isolated);
    parallelFor(
        tbb::blocked_range<int>(0, rows),
        [&](const tbb::blocked_range<int>& range) {
            for (int row = range.begin(); row < range.end(); ++row)
                body(row);
        },
        tbb::auto_partitioner(), context);
}

} // namespace

SphereMaps::SphereMaps(const PanoramaWarper& warper, const cv::Rect& out_, const cv::Size2f& step_,
                       const cv::Point2f& start, int keptPixels)
    : out(out_), warpRows(warper, out_.x, out_.width, step_.width, start.x), step(step_.height), top(start.y)
{
    if (std::int64_t{out.width} * out.height > keptPixels)
        return;
    keptX = managedMat(out.height, out.width, CV_32FC1);
    keptY = managedMat(out.height, out.width, CV_32FC1);
    isolatedRows(out.height, [&](int row) { fillRow(row, keptX.ptr<float>(row), keptY.ptr<float>(row)); });
}

void SphereMaps::moveInto(const cv::Rect& part, const cv::Size& partPixels, const cv::Point& origin)
{
    place = {static_cast<float>(part.x),
             static_cast<float>(part.y),
             static_cast<float>(partPixels.width) / static_cast<float>(part.width),
             static_cast<float>(partPixels.height) / static_cast<float>(part.height),
             static_cast<float>(origin.x),
             static_cast<float>(origin.y)};
    isolatedRows(keptX.rows, [&](int row) { moveRow(keptX.ptr<float>(row), keptY.ptr<float>(row)); });
}

void SphereMaps::forEachStrip(const cv::Range& rows, const Use& use) const
{
    constexpr int kRowsAtOnce = 32; // few enough that no thread idles, and their maps stay in the cache
    const int strips = (rows.size() + kRowsAtOnce - 1) / kRowsAtOnce;
    isolatedRows(strips, [&](int i) {
        const int first = rows.start + i * kRowsAtOnce;
        const cv::Range strip(first, std::min(rows.end, first + kRowsAtOnce));
        if (!keptX.empty())
            return use(strip, keptX.rowRange(strip), keptY.rowRange(strip));
        cv::Mat x = managedMat(strip.size(), out.width, CV_32FC1);
        cv::Mat y = managedMat(strip.size(), out.width, CV_32FC1);
        for (int r = 0; r < strip.size(); ++r) {
            fillRow(strip.start + r, x.ptr<float>(r), y.ptr<float>(r));
            if (place)
                moveRow(x.ptr<float>(r), y.ptr<float>(r));
        }
        use(strip, x, y);
    });
}

void SphereMaps::fillRow(int row, float* x, float* y) const
{
    warpRows.toIntermediate(static_cast<float>(out.y + row) * step + top, x, y);
}

void SphereMaps::moveRow(float* x, float* y) const
{
    for (int column = 0; column < out.width; ++column) {
        x[column] = (x[column] - place->left) * place->columnsPerUnit - place->originX;
        y[column] = (y[column] - place->top) * place->rowsPerUnit - place->originY;
    }
}

} // namespace orvo
