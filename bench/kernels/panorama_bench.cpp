// The loops of every panorama render, on pictures of 6 and 24 megapixels. Each result is checked once.
#include "frame/image_bridge.hpp"
#include "measure.hpp"
#include "panorama/panorama_devignette.hpp"
#include "panorama/panorama_warper.hpp"
#include "panorama/warp_rows.hpp"

#include <opencv2/calib3d.hpp>

#include <memory>

namespace {

using namespace orvo::bench;
using orvo::PixelRGB;
using Picture = orvo::_ImageData<PixelRGB<float>>;

const std::vector<std::int64_t> kSizes = {6, 24};
const std::vector<std::int64_t> kProjections = {0, 1, 2, 3, 4, 5};

std::shared_ptr<Picture> picture(Extent extent, const std::shared_ptr<orvo::ColorProfile>& profile)
{
    auto made = std::make_shared<Picture>(orvo::_Size<int>(extent.width, extent.height), profile);
    fill(&made->data()->r, 3 * extent.pixels(), 3 * static_cast<std::size_t>(extent.width));
    return made;
}

cv::Mat matrix(Extent extent, int type)
{
    const cv::Mat working = orvo::cvMatFromImageData(picture(extent, orvo::ColorProfileType::sRGB()));
    cv::Mat made;
    working.convertTo(made, type, CV_MAT_DEPTH(type) == CV_8U ? 255.0 / 16383.0 : 1.0);
    return made;
}

cv::Mat camera(Extent extent)
{
    const auto focal = static_cast<float>(extent.width); // 53 degrees across
    return (cv::Mat_<float>(3, 3) << focal, 0, static_cast<float>(extent.width) / 2, 0, focal,
            static_cast<float>(extent.height) / 2, 0, 0, 1);
}

cv::Mat rotation()
{
    cv::Mat turned;
    cv::Rodrigues(cv::Vec3f(0.1f, 0.2f, 0.05f), turned);
    return turned;
}

void pictureToMatrix(benchmark::State& state, const std::shared_ptr<orvo::ColorProfile>& profile)
{
    const Extent extent = extentOf(state);
    const std::shared_ptr<const Picture> source = picture(extent, profile);
    cv::Mat result;
    measure(state, extent, 9 * extent.pixels(), [&] { result = orvo::cvMatFromImageData(source); });
    require(state, result.at<cv::Vec3s>(7, 9)[0] > 0 && result.at<cv::Vec3s>(7, 9)[0] < 16383);
}

void srgbToMatrix(benchmark::State& state) { pictureToMatrix(state, orvo::ColorProfileType::sRGB()); }
BENCHMARK(srgbToMatrix)->ArgsProduct({kSizes})->UseManualTime()->Unit(benchmark::kMillisecond);

void melissaToMatrix(benchmark::State& state) { pictureToMatrix(state, orvo::ColorProfileType::melissaRGB()); }
BENCHMARK(melissaToMatrix)->ArgsProduct({kSizes})->UseManualTime()->Unit(benchmark::kMillisecond);

void workingToPicture(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    const cv::Mat source = matrix(extent, CV_16SC3);
    std::shared_ptr<Picture> result;
    measure(state, extent, 9 * extent.pixels(), [&] { result = orvo::imageDataFromCVMat(source); });
    require(state,
            std::abs(result->row(7)[9].b - static_cast<float>(source.at<cv::Vec3s>(7, 9)[0]) / 16383.5f) < 1e-6f);
}
BENCHMARK(workingToPicture)->ArgsProduct({kSizes})->UseManualTime()->Unit(benchmark::kMillisecond);

void bytesToPicture(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    const cv::Mat source = matrix(extent, CV_8UC3);
    std::shared_ptr<Picture> result;
    measure(state, extent, 15 * extent.pixels() / 2, [&] { result = orvo::imageDataFromCVMat(source); });
    require(state, std::abs(result->row(7)[9].b - static_cast<float>(source.at<cv::Vec3b>(7, 9)[0]) / 255.0f) < 1e-6f);
}
BENCHMARK(bytesToPicture)->ArgsProduct({kSizes})->UseManualTime()->Unit(benchmark::kMillisecond);

void maskToPlane(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    const cv::Mat source(extent.height, extent.width, CV_8UC1, cv::Scalar(255));
    std::shared_ptr<orvo::_ImageData<float>> result;
    measure(state, extent, 5 * extent.pixels() / 2, [&] { result = orvo::ImageDataGrayFromCVMat(source); });
    require(state, result->row(7)[9] == 1.0f);
}
BENCHMARK(maskToPlane)->ArgsProduct({kSizes})->UseManualTime()->Unit(benchmark::kMillisecond);

/// A third of a small sphere, enlarged, as during a drag.
void enlargePart(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    const cv::Mat source = matrix({2400, 1200}, CV_16SC3);
    cv::Mat result;
    measure(state, extent, 3 * extent.pixels(), [&] {
        orvo::copyPart(source, result, cv::Rect2f(300.5f, 200.25f, 1200, 700), cv::Size(extent.width, extent.height));
    });
    require(state, result.at<cv::Vec3s>(extent.height / 2, extent.width / 2)[1] > 0);
}
BENCHMARK(enlargePart)->ArgsProduct({kSizes})->UseManualTime()->Unit(benchmark::kMillisecond);

/// A part of the projection entirely covered by one camera, drawn at the size of the camera's picture.
struct View
{
    std::shared_ptr<orvo::PanoramaWarper> warper;
    cv::Rect rect;
};

View viewOf(int number, Extent extent)
{
    View view;
    view.warper = orvo::makeWarper(static_cast<float>(extent.width), number);
    view.warper->setCameraParams(camera(extent), rotation());
    float u = 0.0f;
    float v = 0.0f;
    view.warper->mapImageToPlane(static_cast<float>(extent.width) / 2, static_cast<float>(extent.height) / 2, u, v);
    view.rect = {static_cast<int>(u) - extent.width / 4, static_cast<int>(v) - extent.height / 4, extent.width / 2,
                 extent.height / 2};
    return view;
}

void projectionMaps(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    const View view = viewOf(static_cast<int>(state.range(1)), extent);
    const cv::Size size(extent.width, extent.height);
    cv::Mat x;
    cv::Mat y;
    cv::Rect roi;
    measure(state, extent, 4 * extent.pixels(), [&] { roi = view.warper->buildMaps(size, view.rect, size, x, y); });
    require(state, roi.area() > size.area() / 2 && x.at<float>(roi.height / 2, roi.width / 2) > 0);
}
BENCHMARK(projectionMaps)->ArgsProduct({kSizes, kProjections})->UseManualTime()->Unit(benchmark::kMillisecond);

/// From each projection to the sphere behind it, as makePanorama() needs it.
void intermediateMaps(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    const auto scale = static_cast<float>(extent.width);
    const auto warper = orvo::makeWarper(scale, static_cast<int>(state.range(1)));
    warper->setIntermediate(rotation(), orvo::makeWarper(scale, 2));
    cv::Mat x(extent.height, extent.width, CV_32F);
    cv::Mat y(extent.height, extent.width, CV_32F);
    measure(state, extent, 4 * extent.pixels(), [&] {
        const orvo::WarpRows rows(*warper, 0, extent.width, 1.0f, -scale / 2);
        orvo::forEachRow(extent.height,
                         [&](int r) { rows.toIntermediate(static_cast<float>(r), x.ptr<float>(r), y.ptr<float>(r)); });
    });
    require(state, y.at<float>(7, 9) > 0 && y.at<float>(7, 9) < 3.15f * scale);
}
BENCHMARK(intermediateMaps)->ArgsProduct({kSizes, kProjections})->UseManualTime()->Unit(benchmark::kMillisecond);

void warp(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    const View view = viewOf(2, extent);
    const cv::Mat source = matrix(extent, CV_16SC3);
    const cv::Mat mask(source.size(), CV_8UC1, cv::Scalar(255));
    cv::Mat result;
    cv::Mat resultMask;
    cv::Mat radius;
    measure(state, extent, 9 * extent.pixels(), [&] {
        (void)view.warper->warp(source, mask, result, resultMask, radius, view.rect, source.size(), camera(extent),
                                rotation());
    });
    require(state, result.at<cv::Vec3s>(result.rows / 2, result.cols / 2)[1] > 0);
}
BENCHMARK(warp)->ArgsProduct({kSizes})->UseManualTime()->Unit(benchmark::kMillisecond);

/// Radii from the centre of a picture to its corners.
cv::Mat radii(cv::Size size)
{
    cv::Mat radius(size, CV_32F);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            radius.at<float>(y, x) =
                std::hypot(static_cast<float>(2 * x - size.width), static_cast<float>(2 * y - size.height)) /
                std::hypot(static_cast<float>(size.width), static_cast<float>(size.height));
    return radius;
}

/// Two views of one flat wall that overlap by half.
struct Pair
{
    std::vector<cv::Mat> images, masks, radiusMaps;
    std::vector<cv::Point> corners;

    explicit Pair(cv::Size size)
    {
        for (int i = 0; i < 2; ++i) {
            radiusMaps.push_back(radii(size));
            cv::Mat gray;
            radiusMaps.back().convertTo(gray, CV_16S, -3000.0, 9000.0);
            cv::Mat image;
            cv::merge(std::vector<cv::Mat>(3, gray), image);
            images.push_back(image);
            masks.emplace_back(size, CV_8UC1, cv::Scalar(0));
            masks.back()(cv::Rect(1, 1, size.width - 2, size.height - 2)).setTo(255);
            corners.emplace_back(i * size.width / 2, 0);
        }
    }
};

void devignetteFit(benchmark::State& state)
{
    const Extent extent{387, 258}; // a tenth of a megapixel, as the stitcher fits it
    const Pair pair(cv::Size(extent.width, extent.height));
    orvo::devignette_t model;
    measure(state, extent, 6 * extent.pixels(), [&] {
        orvo::PanoramaDevignette devignette;
        devignette.fit(pair.images, {}, pair.masks, pair.corners, pair.radiusMaps);
        model = devignette.model();
    });
    require(state, model.gain(1.0f) > 1.1f);
}
BENCHMARK(devignetteFit)->UseManualTime()->Unit(benchmark::kMillisecond);

void devignetteProcess(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    const Pair small(cv::Size(387, 258));
    orvo::PanoramaDevignette devignette;
    devignette.fit(small.images, {}, small.masks, small.corners, small.radiusMaps);
    const Pair pair(cv::Size(extent.width, extent.height));
    const cv::Mat original = pair.images[0].clone();
    std::vector<cv::Mat> image = {pair.images[0]};
    // In place, repeatedly: the time does not depend on the values.
    measure(state, extent, 17 * extent.pixels() / 2,
            [&] { devignette.process(image, {}, {pair.masks[0]}, {pair.corners[0]}, {pair.radiusMaps[0]}); });
    require(state, image[0].at<cv::Vec3s>(9, 9)[0] > original.at<cv::Vec3s>(9, 9)[0]);
}
BENCHMARK(devignetteProcess)->ArgsProduct({kSizes})->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
