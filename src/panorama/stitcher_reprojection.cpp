// Rendering in other projections and views: a second mapping of the sphere.
#include "frame/image_bridge.hpp"
#include "frame/managed_mat.hpp"
#include "panorama/map_box.hpp"
#include "panorama/panorama_stitcher.hpp"
#include "panorama/projection_warpers.hpp"
#include "panorama/sampled_box.hpp"
#include "panorama/sphere_maps.hpp"

#include <orvo_common/memory_manager.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace orvo {
namespace {

constexpr float kRotateScale = 0.2f; // of the sphere used during a drag, relative to sphere units

// The rectangle between two corners, both included; empty if they cross.
cv::Rect between(int x0, int y0, int x1, int y1)
{
    if (x1 < x0 || y1 < y0)
        return {};
    return {x0, y0, x1 - x0 + 1, y1 - y0 + 1};
}

int floorInt(double value) { return static_cast<int>(std::floor(value)); }
int ceilInt(double value) { return static_cast<int>(std::ceil(value)); }

// Truncation limited to the range of int: a pole maps to infinity in some projections.
int limited(double value) { return static_cast<int>(std::clamp(value, -1e9, 1e9)); }

// A rectangle of the panorama, its size in pixels, and the scale between them.
struct Request
{
    cv::Rect rect; // in units of the target projection
    cv::Size size;

    [[nodiscard]] float unitsPerColumn() const
    {
        return static_cast<float>(rect.width) / static_cast<float>(size.width);
    }
    [[nodiscard]] float unitsPerRow() const
    {
        return static_cast<float>(rect.height) / static_cast<float>(size.height);
    }
};

// The warper of a projection under a view rotation, and that of the sphere, which everything is drawn from.
struct Reprojection
{
    std::shared_ptr<PanoramaWarper> target;
    std::shared_ptr<PanoramaWarper> sphere;
    float scale;
    cv::Mat viewRotation;

    // The point of the sphere, in sphere units, that is a pole of the target projection.
    [[nodiscard]] cv::Point2f poleOnTheSphere(std::size_t pole) const
    {
        const cv::Matx33f turnBack = cv::Matx33f(viewRotation).t();
        const cv::Vec3f ray = turnBack * cv::Vec3f(0.0f, SampledArea::kPoleHeights[pole], 0.0f);
        cv::Point2f point;
        sphere->mapForward(ray[0], ray[1], ray[2], point.x, point.y);
        return point;
    }
};

// The part of the output that the content of the sphere, `roi` at the seam scale, can reach.
cv::Rect outputRectangle(const Reprojection& way, const cv::Rect& roi, double seamScale, const Request& request)
{
    const cv::Rect sphere = way.sphere->outputBounds();
    const double f = 1.0 / seamScale;
    const int x0 = floorInt(roi.x * f);
    const int y0 = floorInt(roi.y * f);
    const int x1 = ceilInt((roi.x + roi.width) * f);
    const int y1 = ceilInt((roi.y + roi.height) * f);
    const int dx = ceilInt((x1 - x0) / (SampledArea::kSide - 1.0));
    const int dy = ceilInt((y1 - y0) / (SampledArea::kSide - 1.0));
    SampledArea area(projectionOf(*way.target), way.scale);
    for (int j = 0; j < SampledArea::kSide; ++j) {
        for (int i = 0; i < SampledArea::kSide; ++i) {
            const int x = std::min(x0 + i * dx, x1);
            const int y = std::min(y0 + j * dy, y1);
            float u = 0;
            float v = 0;
            way.target->mapFromIntermediate(static_cast<float>(x + sphere.x), static_cast<float>(y + sphere.y), u, v);
            area.set(i, j, u, v);
        }
    }
    // One step more on each side, as the points can miss a pole beside the content.
    const cv::Rect_<float> around(static_cast<float>(x0 + sphere.x - dx), static_cast<float>(y0 + sphere.y - dy),
                                  static_cast<float>(x1 - x0 + 2 * dx), static_cast<float>(y1 - y0 + 2 * dy));
    for (std::size_t pole = 0; pole < SampledArea::kPoleHeights.size(); ++pole)
        if (around.contains(way.poleOnTheSphere(pole)))
            area.addPole(pole);
    const SampledArea::Box box = area.box();
    const float columnsPerUnit = static_cast<float>(request.size.width) / static_cast<float>(request.rect.width);
    const float rowsPerUnit = static_cast<float>(request.size.height) / static_cast<float>(request.rect.height);
    const auto column = [&](float u) { return (u - static_cast<float>(request.rect.x)) * columnsPerUnit; };
    const auto row = [&](float v) { return (v - static_cast<float>(request.rect.y)) * rowsPerUnit; };
    return between(limited(std::max(0.0f, std::floor(column(box.u.low)))),
                   limited(std::max(0.0f, std::floor(row(box.v.low)))),
                   limited(std::min(static_cast<float>(request.size.width - 1), std::ceil(column(box.u.high)))),
                   limited(std::min(static_cast<float>(request.size.height - 1), std::ceil(row(box.v.high)))));
}

// The part of the sphere that the maps refer to.
cv::Rect sphereRectangle(const SphereMaps& maps, const cv::Rect& sphere)
{
    const cv::Size size = maps.size();
    std::vector<Span> xs(static_cast<std::size_t>(size.height));
    std::vector<Span> ys(static_cast<std::size_t>(size.height));
    maps.forEachStrip({0, size.height}, [&](const cv::Range& strip, const cv::Mat& mapX, const cv::Mat& mapY) {
        for (int r = 0; r < strip.size(); ++r) {
            const float* const x = mapX.ptr<float>(r);
            const float* const y = mapY.ptr<float>(r);
            Span xOfRow;
            Span yOfRow;
            for (int column = 0; column < size.width; ++column) {
                xOfRow.take(x[column]);
                yOfRow.take(y[column]);
            }
            xs[static_cast<std::size_t>(strip.start + r)] = xOfRow;
            ys[static_cast<std::size_t>(strip.start + r)] = yOfRow;
        }
    });
    Span x;
    Span y;
    for (std::size_t row = 0; row < xs.size(); ++row) {
        x.take(xs[row]);
        y.take(ys[row]);
    }
    return between(std::max(limited(std::floor(x.low)), sphere.x), std::max(limited(std::floor(y.low)), sphere.y),
                   std::min(limited(std::ceil(x.high)), sphere.x + sphere.width - 1),
                   std::min(limited(std::ceil(y.high)), sphere.y + sphere.height - 1)) &
           sphere;
}

// The size at which a part of the sphere is drawn: the output's resolution, but no side above the limit.
cv::Size partSize(const cv::Rect& part, const Request& request)
{
    const double g = std::max(1.0 / request.unitsPerRow(), 1.0 / request.unitsPerColumn());
    const int w = limited(part.width * g);
    const int h = limited(part.height * g);
    constexpr double kLongest = PanoramaStitcher::kLongestSide;
    double k = 1.0;
    if (w > kLongest)
        k = kLongest / w;
    if (h > kLongest && kLongest / h <= k)
        k = kLongest / h;
    return {static_cast<int>(w * k), static_cast<int>(h * k)};
}

// The pixels that map into a picture of this size.
cv::Rect coveredRectangle(const SphereMaps& maps, const cv::Size& picture)
{
    const cv::Size size = maps.size();
    std::vector<ColumnRange> rows(static_cast<std::size_t>(size.height));
    maps.forEachStrip({0, size.height}, [&](const cv::Range& strip, const cv::Mat& x, const cv::Mat& y) {
        for (int r = 0; r < strip.size(); ++r)
            rows[static_cast<std::size_t>(strip.start + r)] =
                columnsInside(x.ptr<float>(r), y.ptr<float>(r), size.width, picture);
    });
    return boxOf(rows);
}

} // namespace

void PanoramaStitcher::prepareRotateImage()
{
    if (!rotateSphere.rotateImageDirty)
        return;
    RotateSphere made;
    const cv::Rect bounds = projectionBounds(kSpherical);
    const cv::Size size(static_cast<int>(static_cast<float>(bounds.width) * kRotateScale),
                        static_cast<int>(static_cast<float>(bounds.height) * kRotateScale));
    made.rotateRect = makePanoramaRaw(bounds, size, made.rotateImage, made.rotateMask, [] { return false; });
    made.rotateImageDirty = false;
    rotateSphere = std::move(made);
}

// `picture` may refer to `owner`. Both are released before the mask is converted.
Panorama PanoramaStitcher::converted(cv::Mat picture, cv::UMat owner, const cv::Mat& mask, const cv::Rect& shown) const
{
    Panorama result;
    if (isLastDrawing)
        MemoryManager::instance().trim(); // the sphere that was reprojected
    result.image = imageDataFromCVMat(picture);
    picture.release();
    owner.release();
    if (isLastDrawing)
        MemoryManager::instance().trim(); // its plane would be kept for reuse
    result.mask = ImageDataGrayFromCVMat(mask);
    result.roi = shown;
    return result;
}

Panorama PanoramaStitcher::makePanorama(const _Rect<int>& rect, const _Size<int>& size, const bool& keepCanvas,
                                        CancelFunction cancel)
{
    const RunControl run(required(std::move(cancel)));
    const cv::Rect bounds = projectionBounds();
    const Request request{cv::Rect(rect.x + bounds.x, rect.y + bounds.y, rect.width, rect.height),
                          cv::Size(size.width, size.height)};
    cv::UMat drawn; // outlives the matrix that refers to it
    cv::UMat drawnMask;
    cv::Mat picture;
    cv::Mat mask;
    cv::Rect shown;
    if (request.rect.empty() || request.size.empty() || registered.images.empty()) {
        // Nothing to draw.
    } else if (!reprojectionNeeded()) {
        shown = makePanoramaRaw(request.rect, request.size, drawn, drawnMask, [&run] { return run.cancelled(); });
        picture = drawn.getMat(cv::ACCESS_READ);
        mask = drawnMask.getMat(cv::ACCESS_READ);
    } else if (!reproject(request.rect, request.size, picture, mask, shown, run)) {
        return {};
    }
    if (run.cancelled() || shown == cv::Rect())
        return {};
    if (!keepCanvas)
        return converted(std::move(picture), std::move(drawn), mask, shown);
    cv::Mat canvas = cv::Mat::zeros(request.size, CV_16SC3);
    cv::Mat canvasMask = cv::Mat::zeros(request.size, CV_8UC1);
    if (shown.width > 0 && shown.height > 0) {
        picture.copyTo(canvas(shown));
        mask.copyTo(canvasMask(shown));
    }
    return {imageDataFromCVMat(canvas), ImageDataGrayFromCVMat(canvasMask), cv::Rect()};
}

bool PanoramaStitcher::reproject(const cv::Rect& rect, const cv::Size& size, cv::Mat& picture, cv::Mat& mask,
                                 cv::Rect& shown, const RunControl& run)
{
    const Request request{rect, size};
    const auto target = makeWarper(sphereScale(), view.warpKind);
    const auto sphereWarper = makeWarper(sphereScale(), kSpherical);
    if (!target)
        return true;
    target->setIntermediate(view.viewRotation, sphereWarper);
    const cv::Rect sphere = sphereWarper->outputBounds();
    prepareWarpedImages();
    const cv::Rect out = outputRectangle({target, sphereWarper, sphereScale(), view.viewRotation}, warped.resultRoi,
                                         seamScale(), request);
    if (out.empty())
        return true;

    if (run.cancelled())
        return false;
    SphereMaps maps(*target, out, {request.unitsPerColumn(), request.unitsPerRow()},
                    {static_cast<float>(rect.x), static_cast<float>(rect.y)});
    if (run.cancelled())
        return false;
    const cv::Rect part = sphereRectangle(maps, sphere);
    const cv::Size drawnSize = partSize(part, request);
    if (run.cancelled())
        return false;
    if (part.width <= 0 || part.height <= 0)
        return true;

    cv::UMat composed; // outlives the matrix that refers to it
    cv::UMat composedMask;
    cv::Mat drawn;
    cv::Mat drawnMask;
    cv::Rect drawnRect;
    if (view.fastRender) {
        drawnRect = copyFromRotateImage(part, drawnSize, sphere, drawn, drawnMask);
    } else {
        drawnRect = makePanoramaRaw(part, drawnSize, composed, composedMask, [&run] { return run.cancelled(); });
        drawn = composed.getMat(cv::ACCESS_READ);
        drawnMask = composedMask.getMat(cv::ACCESS_READ);
    }
    if (drawnRect.width <= 0 || drawnRect.height <= 0)
        return true;
    if (run.cancelled())
        return false;
    maps.moveInto(part, drawnSize, drawnRect.tl());
    const cv::Rect covered = coveredRectangle(maps, drawnRect.size());
    if (covered.empty())
        return true;
    if (run.cancelled())
        return false;
    picture = managedMat(covered.height, covered.width, CV_16SC3);
    mask = managedMat(covered.height, covered.width, CV_8UC1);
    const cv::Range columns(covered.x, covered.x + covered.width);
    maps.forEachStrip({covered.y, covered.y + covered.height},
                      [&](const cv::Range& strip, const cv::Mat& wholeX, const cv::Mat& wholeY) {
                          const cv::Range rows(strip.start - covered.y, strip.end - covered.y);
                          const cv::Mat x = wholeX.colRange(columns);
                          const cv::Mat y = wholeY.colRange(columns);
                          cv::remap(drawn, picture.rowRange(rows), x, y, cv::INTER_LINEAR, cv::BORDER_REFLECT);
                          cv::remap(drawnMask, mask.rowRange(rows), x, y, cv::INTER_NEAREST, cv::BORDER_CONSTANT);
                      });
    shown = covered + out.tl();
    return true;
}

// A part of the sphere for a drag, from the small sphere that is drawn once.
cv::Rect PanoramaStitcher::copyFromRotateImage(const cv::Rect& part, const cv::Size& size, const cv::Rect& sphere,
                                               cv::Mat& picture, cv::Mat& mask)
{
    prepareRotateImage();
    const cv::Rect_<float> requested(
        static_cast<float>(part.x - sphere.x) * kRotateScale, static_cast<float>(part.y - sphere.y) * kRotateScale,
        static_cast<float>(part.width) * kRotateScale, static_cast<float>(part.height) * kRotateScale);
    const cv::Rect_<float> q = requested & cv::Rect_<float>(rotateSphere.rotateRect);
    if (!(q.width > 1.0f && q.height > 1.0f))
        return {};
    const float fx = static_cast<float>(size.width) / static_cast<float>(part.width);
    const float fy = static_cast<float>(size.height) / static_cast<float>(part.height);
    const auto units = [](float atRotateScale) { return static_cast<int>(atRotateScale / kRotateScale); };
    const auto pixels = [](int sphereUnits, float factor) {
        return static_cast<int>(static_cast<float>(sphereUnits) * factor);
    };
    const cv::Rect drawn(pixels(units(q.x) - part.x + sphere.x, fx), pixels(units(q.y) - part.y + sphere.y, fy),
                         pixels(units(q.width), fx), pixels(units(q.height), fy));
    if (drawn.width <= 0 || drawn.height <= 0)
        return {};
    const cv::Rect_<float> there(q.x - static_cast<float>(rotateSphere.rotateRect.x),
                                 q.y - static_cast<float>(rotateSphere.rotateRect.y), q.width, q.height);
    copyPart(rotateSphere.rotateImage, picture, there, drawn.size());
    copyPart(rotateSphere.rotateMask, mask, there, drawn.size());
    return drawn;
}

Panorama PanoramaStitcher::makePanorama(const _Rect<int>& rect, const _Size<int>& size, CancelFunction cancel,
                                        const _Size<int>& outputSize)
{
    if (reprojectionNeeded())
        return makePanorama(rect, size, false, std::move(cancel));
    const cv::Rect bounds = projectionBounds();
    cv::UMat picture;
    cv::UMat mask;
    const cv::Rect shown =
        makePanoramaRaw(cv::Rect(rect.x + bounds.x, rect.y + bounds.y, rect.width, rect.height),
                        cv::Size(outputSize.width, outputSize.height), picture, mask, std::move(cancel));
    if (shown == cv::Rect())
        return {};
    cv::Mat mapped = picture.getMat(cv::ACCESS_READ);
    return converted(std::move(mapped), std::move(picture), mask.getMat(cv::ACCESS_READ), shown);
}

} // namespace orvo
