// The stitcher calls of a panorama composer once the cameras are known: partition of masks, frames of a drag, previews.
#include "frame/image_bridge.hpp"
#include "measure.hpp"
#include "panorama/fit_masks.hpp"
#include "panorama/panorama_stitcher.hpp"

#include <scenes/sphere_scene.hpp>

namespace {

using namespace orvo::bench;
using orvo::PanoramaStitcher;

constexpr int kPreviewSide = 1500; // pixels, the size of a composer's preview
const std::vector<std::int64_t> kProjections = {0, 1, 2, 3, 4, 5};

/// Six pictures in a row that overlap by half, with their seams three pixels off, like those of the seam scale.
void fitMasks(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    constexpr int kPictures = 6;
    const cv::Size size(2 * extent.width / (kPictures + 1), extent.height);
    const cv::Mat whole(size, CV_8UC1, cv::Scalar(255));
    std::vector<cv::Mat> seamed;
    std::vector<cv::Mat> wholes;
    std::vector<cv::Point> corners;
    for (int i = 0; i < kPictures; ++i) {
        cv::Mat mask = cv::Mat::zeros(size, CV_8UC1);
        mask.colRange(size.width / 4 + (i % 2 == 0 ? 3 : -3), 3 * size.width / 4).setTo(255);
        seamed.push_back(mask);
        wholes.push_back(whole);
        corners.emplace_back(i * size.width / 2, 0);
    }
    std::vector<cv::Mat> fitted;
    const auto bytes = static_cast<std::size_t>(size.area()) * kPictures * 3 / 2; // two masks read, one written
    measure(state, extent, bytes, [&] {
        fitted.clear();
        for (const cv::Mat& mask : seamed)
            fitted.push_back(mask.clone());
        orvo::fitMasks(fitted, wholes, corners);
    });
    require(state, cv::countNonZero(fitted[1]) >= size.area() / 2);
}
BENCHMARK(fitMasks)->Arg(6)->Arg(24)->UseManualTime()->Unit(benchmark::kMillisecond);

/// Five pictures of 1.9 megapixels, 140 degrees across.
const std::vector<cv::Mat>& pictures()
{
    static const std::vector<cv::Mat> made = [] {
        orvo::scenes::SphereView view;
        view.size = {1600, 1200};
        view.focal = 1600.0;
        const orvo::scenes::SphereScene scene;
        std::vector<cv::Mat> images;
        for (const auto& one : orvo::scenes::rowOfViews(5, 22.0, 0.0, view, 1.0, 3))
            images.push_back(orvo::cvMatFromImageData(scene.see(one)));
        return images;
    }();
    return made;
}

/// Features, matches and cameras, from scratch.
void registration(benchmark::State& state)
{
    const std::vector<cv::Mat>& images = pictures(); // rendered outside the measured time
    bool found = false;
    for (auto _ : state) {
        PanoramaStitcher stitcher{orvo::PanoSource()};
        found = stitcher.estimateCameras(images);
    }
    require(state, found);
}
BENCHMARK(registration)->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

/// The pictures registered once.
PanoramaStitcher& registered()
{
    static PanoramaStitcher stitcher = [] {
        PanoramaStitcher made{orvo::PanoSource()};
        made.estimateCameras(pictures());
        return made;
    }();
    return stitcher;
}

orvo::_Size<int> previewSize(const cv::Rect& bounds)
{
    return {kPreviewSide, kPreviewSide * bounds.height / bounds.width};
}

void tellFrames(benchmark::State& state)
{
    state.counters["frames/s"] = {1.0, benchmark::Counter::kIsIterationInvariantRate};
}

/// One frame of a drag: the view turns slightly each time.
void dragFrame(benchmark::State& state)
{
    PanoramaStitcher& stitcher = registered();
    stitcher.setWarpType(static_cast<std::int32_t>(state.range(0)));
    stitcher.resetView();
    stitcher.beginViewAdjust();
    const cv::Rect bounds = stitcher.projectionBounds();
    orvo::Panorama panorama;
    float shift = 0.0f;
    for (auto _ : state) {
        shift = shift > 0.05f ? 0.0f : shift + 0.001f;
        stitcher.setViewShift({shift, 0.5f * shift});
        panorama =
            stitcher.makePanorama({0, 0, bounds.width, bounds.height}, previewSize(bounds), true, [] { return false; });
        benchmark::DoNotOptimize(panorama.image.get());
    }
    stitcher.endViewAdjust();
    require(state, panorama.image && panorama.image->width() == kPreviewSide);
    tellFrames(state);
}
BENCHMARK(dragFrame)
    ->ArgsProduct({kProjections})
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);

/// Composes the whole sphere again from the pictures; seams and gains exist already.
void compose(benchmark::State& state, const cv::Size& size)
{
    PanoramaStitcher& stitcher = registered();
    const cv::Rect bounds = stitcher.projectionBounds(PanoramaStitcher::kSpherical);
    cv::Mat picture;
    cv::Mat mask;
    cv::Rect shown = stitcher.makePanoramaRaw(bounds, size, picture, mask, [] { return false; });
    for (auto _ : state)
        shown = stitcher.makePanoramaRaw(bounds, size, picture, mask, [] { return false; });
    require(state, !shown.empty() && picture.size() == shown.size());
    tellFrames(state);
}

void rawPreview(benchmark::State& state)
{
    const orvo::_Size<int> size = previewSize(registered().projectionBounds(PanoramaStitcher::kSpherical));
    compose(state, {size.width, size.height});
}
BENCHMARK(rawPreview)->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

/// At the resolution of the pictures.
void rawFull(benchmark::State& state)
{
    compose(state, registered().projectionBounds(PanoramaStitcher::kSpherical).size());
}
BENCHMARK(rawFull)->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

} // namespace
