/// The true panorama of a sphere scene, and the error of a rendered one.
#pragma once

#include "sphere_sets.hpp"

#include <orvo_core/color_profile.hpp>
#include <orvo_core/parallel.hpp>

#include <opencv2/imgproc.hpp>

#include <numbers>

namespace orvo::test {

constexpr std::int32_t kSphericalKind = 2;

/// Four views in a row that overlap by half, small enough to stitch in well under a second.
inline scenes::SphereView smallView()
{
    scenes::SphereView view;
    view.size = {400, 300};
    view.focal = 400.0;
    view.noise = 0.004;
    return view;
}

inline std::vector<scenes::SphereView> smallRow(const scenes::SphereView& like = smallView())
{
    return scenes::rowOfViews(4, 21.0, 3.0, like, 1.0, 7);
}

inline bool never() { return false; }

/// True from the `last`-th call on.
struct CancelAt
{
    int last;
    int* calls;
    bool operator()() const { return ++*calls >= last; }
};

inline cv::Mat matrixOf(const _ImageData<PixelRGB<float>>& picture)
{
    cv::Mat out(picture.height(), picture.width(), CV_32FC3);
    for (int y = 0; y < out.rows; ++y)
        std::copy_n(&picture.row(y)->r, 3 * out.cols, out.ptr<float>(y));
    return out;
}

inline cv::Mat maskOf(const _ImageData<float>& mask)
{
    cv::Mat out(mask.height(), mask.width(), CV_8UC1);
    for (int y = 0; y < out.rows; ++y)
        for (int x = 0; x < out.cols; ++x)
            out.at<std::uint8_t>(y, x) = mask.row(y)[x] > 0.0f ? 255 : 0;
    return out;
}

/// The rotation from the scene's directions to the panorama's: cameras are known up to a common rotation.
inline cv::Matx33d panoramaFromScene(const PanoramaStitcher& stitcher, const std::vector<scenes::SphereView>& views)
{
    cv::Matx33d sum = cv::Matx33d::zeros();
    for (std::size_t i = 0; i < stitcher.usedCameras().size(); ++i) {
        const auto& truth = views[static_cast<std::size_t>(stitcher.usedIndices()[i])].rotation;
        const cv::Matx33d sceneFromCamera(truth.data());
        const cv::Matx33d panoramaFromCamera = cv::Matx33f(stitcher.usedCameras()[i].R);
        sum += panoramaFromCamera * sceneFromCamera.t();
    }
    cv::Matx33d u;
    cv::Matx33d vt;
    cv::Matx31d w;
    cv::SVD::compute(sum, w, u, vt);
    cv::Matx33d turn = u * vt;
    if (cv::determinant(turn) < 0)
        turn = u * cv::Matx33d::diag(cv::Vec3d(1, 1, -1)) * vt;
    return turn;
}

/// The part `rect` of a projection, in plane units, drawn at `size` under a view rotation.
struct Drawing
{
    std::int32_t kind = kSphericalKind;
    cv::Rect rect;
    cv::Size size;
    cv::Matx33d view = cv::Matx33d::eye();
};

/// The true picture of that part: CV_32FC3, red first, sRGB-encoded.
inline cv::Mat truthOf(const scenes::SphereScene& scene, const PanoramaStitcher& stitcher,
                       const std::vector<scenes::SphereView>& views, const Drawing& drawing)
{
    const float scale = stitcher.getWarpedImageScale() / stitcher.getWorkScale();
    const auto warper = makeWarper(scale, drawing.kind);
    const cv::Matx33d sceneFromView = panoramaFromScene(stitcher, views).t() * drawing.view.t();
    const double finest = 3.0 * std::atan(1.0 / views[0].focal) * 180.0 / std::numbers::pi;
    cv::Mat out(drawing.size, CV_32FC3);
    forEachRow(out.rows, [&](int row) {
        for (int column = 0; column < out.cols; ++column) {
            float x = 0;
            float y = 0;
            float z = 0;
            warper->mapBackward(
                static_cast<float>(drawing.rect.x + column * 1.0 * drawing.rect.width / drawing.size.width),
                static_cast<float>(drawing.rect.y + row * 1.0 * drawing.rect.height / drawing.size.height), x, y, z);
            const cv::Vec3d direction = sceneFromView * cv::normalize(cv::Vec3d(x, y, z));
            const auto light = scene.light(direction[0], direction[1], direction[2], finest);
            out.at<cv::Vec3f>(row, column) = {srgbCurveFromLinear(light.r), srgbCurveFromLinear(light.g),
                                              srgbCurveFromLinear(light.b)};
        }
    });
    return out;
}

struct Agreement
{
    double psnr = 0.0;      ///< dB, of encoded values
    double worstMean = 0.0; ///< the largest difference of the means of 9 by 9 pixels: steps, shifts, ghosts
    int pixels = 0;         ///< number of compared pixels
};

/// Inside the mask, `margin` pixels away from its rim.
inline Agreement agreementOf(const cv::Mat& picture, const cv::Mat& mask, const cv::Mat& truth, int margin)
{
    cv::Mat bordered;
    cv::copyMakeBorder(mask, bordered, 1, 1, 1, 1, cv::BORDER_CONSTANT, cv::Scalar::all(0));
    cv::erode(bordered, bordered, cv::Mat(), cv::Point(-1, -1), margin, cv::BORDER_CONSTANT, cv::Scalar::all(0));
    const cv::Mat inner = bordered(cv::Rect(1, 1, mask.cols, mask.rows));
    const cv::Mat difference = picture - truth;
    Agreement result;
    result.pixels = cv::countNonZero(inner);
    const double error = cv::norm(difference, cv::NORM_L2SQR, inner) / (3.0 * std::max(result.pixels, 1));
    result.psnr = error > 0.0 ? -10.0 * std::log10(error) : 100.0;
    cv::Mat mean;
    cv::blur(difference, mean, cv::Size(9, 9));
    result.worstMean = cv::norm(mean, cv::NORM_INF, inner);
    return result;
}

} // namespace orvo::test
