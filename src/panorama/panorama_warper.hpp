/// Maps camera images to the plane of a projection and back.
///
/// Rays are directions (x right, y down, z ahead) of any length, in the space of all cameras. Plane units are pixels at
/// scale 1 of the warper: a rectangle of the plane can be drawn at any resolution, so all maps take the rectangle, in
/// plane units, and its size in pixels.
///
/// Invalid inputs give an empty rectangle; nothing is logged, and only allocators and OpenCV throw. The creator owns a
/// warper; its const functions may be called from many threads at once. Maps are parallel over rows and give the same
/// bytes for any number of threads.
#pragma once

#include <orvo_extensions/warp_type.hpp>

#include <opencv2/core.hpp>

#include <memory>

namespace orvo {

/// One projection with a camera, and optionally a second one behind a rotation. The base class is the plane.
class PanoramaWarper
{
public:
    using Matrix = cv::Matx33f; ///< row after row

    /// `scale`: pixels per radian, or per unit of the plane. The camera is the identity until set.
    explicit PanoramaWarper(float scale);
    PanoramaWarper(const PanoramaWarper&) = delete;
    PanoramaWarper& operator=(const PanoramaWarper&) = delete;

    /// Outer rectangle of the whole projection, in plane units, each value truncated.
    [[nodiscard]] virtual cv::Rect outputBounds() const;

    /// The position of an image of `src` pixels in the drawing of `rect` at `size`, in pixels of the drawing and
    /// cropped to it; computed on a grid of 100 by 100 of its pixels. Empty if it is outside.
    [[nodiscard]] virtual cv::Rect detectResultRoi(const cv::Size& src, const cv::Rect& rect,
                                                   const cv::Size& size) const;

    /// From a ray to the plane, and from the plane to a ray (of length 1 except for the plane and the cylinder).
    virtual void mapForward(float x, float y, float z, float& u, float& v) const = 0;
    virtual void mapBackward(float u, float v, float& x, float& y, float& z) const = 0;

    virtual ~PanoramaWarper();

    /// Camera matrix and rotation. Does nothing unless both are 3x3 and CV_32F.
    void setCameraParams(cv::InputArray K, cv::InputArray R);

    /// The source position of each pixel of the drawing in an image of `src` pixels; (-1, -1) behind the camera. `xmap`
    /// and `ymap` become CV_32F of the size of the returned rectangle: the tight box, in pixels of the drawing, of
    /// those that map into the image. Empty if there are none; the maps are then unchanged. Peak: the maps twice.
    cv::Rect buildMaps(const cv::Size& src, const cv::Rect& rect, const cv::Size& size, cv::OutputArray xmap,
                       cv::OutputArray ymap) const;

    /// Draws `src` as the camera K, R sees it: buildMaps(), then `dst` (the type of `src`; bilinear, edges mirrored;
    /// skipped for cv::noArray()),
    /// `dstMask` from `mask` (its type; nearest, 0 outside; unchanged if `mask` is empty) and `radius` (CV_32F: the
    /// distance from the image's centre, 1 in its corners and at most; skipped for cv::noArray()), all of the returned
    /// rectangle's size. Empty, and nothing drawn, if `src` is empty or `mask` has another size. On the CPU it works on
    /// 64 rows at a time, and the results are parts of matrices of detectResultRoi()'s size. Peak: these, and two
    /// floats for each pixel of 64 rows; on an OpenCL device the results and the maps twice.
    cv::Rect warp(cv::InputArray src, cv::InputArray mask, cv::OutputArray dst, cv::OutputArray dstMask,
                  cv::OutputArray radius, const cv::Rect& rect, const cv::Size& size, cv::InputArray K,
                  cv::InputArray R);

    /// From a pixel of the camera's image to the plane.
    void mapImageToPlane(float x, float y, float& u, float& v) const;
    /// The inverse; (-1, -1) for points sideways or behind the camera.
    void mapPlaneToImage(float u, float v, float& x, float& y) const;

    /// Puts `rotation` (3x3, CV_32F; others are ignored) between `intermediate` and this projection, and sets the
    /// cameras of both to the identity. Without `intermediate` this projection is used on both sides.
    void setIntermediate(cv::InputArray rotation, std::shared_ptr<PanoramaWarper> intermediate);

    /// From this plane to that of the intermediate projection, and back.
    void mapToIntermediate(float u, float v, float& x, float& y) const;
    void mapFromIntermediate(float x, float y, float& u, float& v) const;

protected:
    friend class WarpRows;

    float scale;
    Matrix k = Matrix::eye();
    Matrix rinv = Matrix::eye();
    Matrix r_kinv = Matrix::eye(); ///< from image pixels to rays
    Matrix k_rinv = Matrix::eye(); ///< from rays to image pixels
    Matrix midRotation = Matrix::eye();
    Matrix midRotationInv = Matrix::eye();
    std::shared_ptr<PanoramaWarper> intermediate;
};

/// The stitcher's number of a projection; that of the sphere for a value that is not a WarpType.
[[nodiscard]] int warpNumberOf(WarpType type);

/// Creates the warper for that number, 0 to 5; empty for any other.
[[nodiscard]] std::shared_ptr<PanoramaWarper> makeWarper(float scale, int internalNumber);

} // namespace orvo
