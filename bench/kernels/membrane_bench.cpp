// The membrane between a known picture and its new surroundings: the interpolation alone, and the whole blender.
#include "measure.hpp"

#include <orvo_extensions/panorama_mblender.hpp>
#include <orvo_image_processing/interpolate_mvc.hpp>

#include <opencv2/core.hpp>

#include <cmath>
#include <vector>

namespace {

using namespace orvo::bench;
using orvo::ManagedPlane;
using orvo::PixelRGB;

/// 1, 6 or 24 megapixels at 3 : 2. From 6 to 24 the edge doubles and the area grows fourfold.
Extent megapixels(const benchmark::State& state)
{
    const double side = std::sqrt(static_cast<double>(state.range(0)) * 1e6 / 6.0);
    return {static_cast<int>(3.0 * side), static_cast<int>(2.0 * side)};
}

/// The known picture covers the middle three fifths of each side.
bool known(Extent extent, int x, int y)
{
    return x >= extent.width / 5 && x < extent.width * 4 / 5 && y >= extent.height / 5 && y < extent.height * 4 / 5;
}

void membrane(benchmark::State& state)
{
    const Extent extent = megapixels(state);
    const auto width = static_cast<std::size_t>(extent.width);
    const ManagedPlane<PixelRGB<float>> boundary(extent.pixels());
    const ManagedPlane<PixelRGB<float>> result(extent.pixels(), true);
    const ManagedPlane<unsigned char> effective(extent.pixels());
    fill(&boundary[0].r, 3 * extent.pixels(), 3 * width);
    orvo::forEachRow(extent.height, [&](int y) {
        for (int x = 0; x < extent.width; ++x)
            effective[static_cast<std::size_t>(y) * width + static_cast<std::size_t>(x)] = known(extent, x, y) ? 0 : 1;
    });
    const PeakMemory peak;
    measure(state, extent, 12 * extent.pixels(), [&] {
        orvo::interpolate_mvc(extent.width, extent.height, boundary.data(), result.data(), effective.data(), {});
    });
    peak.report(state);
    require(state, result[0].g > 0.02f && result[0].g < 0.98f && result[extent.pixels() / 2 + width / 2].g == 0.0f);
}
BENCHMARK(membrane)->Arg(1)->Arg(6)->Arg(24)->UseManualTime()->Unit(benchmark::kMillisecond);

void membraneBlender(benchmark::State& state)
{
    const Extent extent = megapixels(state);
    const cv::Rect inside(extent.width / 5, extent.height / 5, extent.width * 3 / 5, extent.height * 3 / 5);
    cv::Mat around(extent.height, extent.width, CV_16SC3);
    for (int y = 0; y < around.rows; ++y)
        for (int x = 0; x < 3 * around.cols; ++x)
            around.ptr<short>(y)[x] = static_cast<short>(
                12000.0f * sample(static_cast<std::size_t>(y) * static_cast<std::size_t>(3 * around.cols) +
                                      static_cast<std::size_t>(x),
                                  static_cast<std::size_t>(3 * around.cols)));
    const cv::Mat middle = around(inside) + cv::Scalar::all(1000);
    const cv::Mat all(extent.height, extent.width, CV_8UC1, cv::Scalar(255));
    cv::Mat mask = all.clone();
    mask(cv::Rect(inside.x + 2, inside.y + 2, inside.width - 4, inside.height - 4)) = cv::Scalar(0);
    cv::Mat joined, joinedMask;
    const PeakMemory peak;
    measure(state, extent, 6 * extent.pixels(), [&] {
        orvo::PanoramaMBlender blender;
        blender.feed(middle, all(inside), all(inside), inside.tl());
        blender.feed(around, mask, all, {0, 0});
        blender.blend(joined, joinedMask);
    });
    peak.report(state);
    const int lift = joined.at<cv::Vec3s>(3, 3)[1] - around.at<cv::Vec3s>(3, 3)[1];
    require(state, std::abs(lift - 1000) <= 3 && cv::countNonZero(joinedMask) == joinedMask.rows * joinedMask.cols);
}
BENCHMARK(membraneBlender)->Arg(1)->Arg(6)->Arg(24)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
