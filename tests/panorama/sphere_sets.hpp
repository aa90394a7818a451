/// Panorama sets with known truth, and the error of a registration.
#pragma once

#include "frame/image_bridge.hpp"
#include "panorama/panorama_stitcher.hpp"

#include <scenes/sphere_scene.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace orvo::test {

inline std::vector<cv::Mat> seen(const scenes::SphereScene& scene, const std::vector<scenes::SphereView>& views)
{
    std::vector<cv::Mat> images;
    for (std::size_t i = 0; i < views.size(); ++i)
        images.push_back(cvMatFromImageData(scene.see(views[i], i + 1)));
    return images;
}

inline scenes::Rotation rotationOfCamera(const cv::Mat& r)
{
    scenes::Rotation out{};
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            out[static_cast<std::size_t>(row * 3 + column)] = static_cast<double>(r.at<float>(row, column));
    return out;
}

/// Of all pairs of pictures in use the median error of their relative rotation, in degrees.
inline double medianRotationError(const PanoramaStitcher& stitcher, const std::vector<scenes::SphereView>& views)
{
    std::vector<double> errors;
    const auto& cameras = stitcher.usedCameras();
    const auto& indices = stitcher.usedIndices();
    for (std::size_t i = 0; i < cameras.size(); ++i)
        for (std::size_t j = i + 1; j < cameras.size(); ++j) {
            const auto found = scenes::relative(rotationOfCamera(cameras[i].R), rotationOfCamera(cameras[j].R));
            const auto truth = scenes::relative(views[static_cast<std::size_t>(indices[i])].rotation,
                                                views[static_cast<std::size_t>(indices[j])].rotation);
            errors.push_back(scenes::angleBetween(found, truth));
        }
    std::sort(errors.begin(), errors.end());
    return errors.empty() ? 180.0 : errors[errors.size() / 2];
}

/// The largest relative error of a focal length.
inline double worstFocalError(const PanoramaStitcher& stitcher, const std::vector<scenes::SphereView>& views)
{
    double worst = 0.0;
    for (std::size_t i = 0; i < stitcher.usedCameras().size(); ++i) {
        const double truth = views[static_cast<std::size_t>(stitcher.usedIndices()[i])].focal;
        const double found = stitcher.usedCameras()[i].focal / static_cast<double>(stitcher.getWorkScale());
        worst = std::max(worst, std::abs(found / truth - 1.0));
    }
    return worst;
}

} // namespace orvo::test
