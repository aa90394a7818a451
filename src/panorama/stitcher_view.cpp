// The projection and the rotation set by the user.
#include "panorama/panorama_stitcher.hpp"
#include "panorama/rotation_vector.hpp"

#include <orvo_common/text.hpp>

#include <cmath>

namespace orvo {

cv::Rect PanoramaStitcher::projectionBounds(std::optional<std::int32_t> kind) const
{
    const auto warper = makeWarper(sphereScale(), kind.value_or(view.warpKind));
    return warper ? warper->outputBounds() : cv::Rect();
}

void PanoramaStitcher::beginViewAdjust()
{
    view.viewRotationBase = view.viewRotation.clone();
    view.fastRender = true;
}

void PanoramaStitcher::endViewAdjust() { view.fastRender = false; }

void PanoramaStitcher::setViewShift(const _Point<float>& shift)
{
    const cv::Rect bounds = projectionBounds();
    const float unit = registered.workScale / registered.warpedImageScale;
    const cv::Mat turn = rotationOf(-shift.y * static_cast<float>(bounds.height) * unit,
                                    shift.x * static_cast<float>(bounds.width) * unit, 0.0f);
    view.viewRotation = turn * view.viewRotationBase;
}

void PanoramaStitcher::setViewRotation(float angle, const _Point<float>& centre)
{
    const auto warper = makeWarper(sphereScale(), view.warpKind);
    if (!warper)
        return;
    const cv::Rect bounds = warper->outputBounds();
    const int u = static_cast<int>(static_cast<float>(bounds.x) + static_cast<float>(bounds.width) * centre.x);
    const int v = static_cast<int>(static_cast<float>(bounds.y) + static_cast<float>(bounds.height) * centre.y);
    float x = 0;
    float y = 0;
    float z = 0;
    warper->mapBackward(static_cast<float>(u), static_cast<float>(v), x, y, z);
    const float length = std::sqrt(x * x + y * y + z * z);
    view.viewRotation =
        rotationOf(-x * angle / length, -y * angle / length, -z * angle / length) * view.viewRotationBase;
}

void PanoramaStitcher::resetView()
{
    view.viewRotation = cv::Mat::eye(3, 3, CV_32F);
    view.viewRotationBase = cv::Mat::eye(3, 3, CV_32F);
    view.fastRender = false;
    rotateSphere.rotateImageDirty = true;
    prepareRotateImage();
}

bool PanoramaStitcher::reprojectionNeeded() const
{
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            if (!isFloatEqual(view.viewRotation.at<float>(row, column), row == column ? 1.0f : 0.0f))
                return true;
    return view.warpKind != kSpherical;
}

} // namespace orvo
