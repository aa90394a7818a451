#include "panorama/panorama_warper.hpp"

#include "panorama/bilinear_remap.hpp"
#include "panorama/map_box.hpp"
#include "panorama/projection_warpers.hpp"
#include "panorama/projections.hpp"
#include "panorama/ray.hpp"
#include "panorama/sampled_box.hpp"
#include "panorama/warp_rows.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <opencv2/core/ocl.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <optional>
#include <vector>

namespace orvo {
namespace {

bool isMatrix3(const cv::Mat& mat) { return mat.rows == 3 && mat.cols == 3 && mat.type() == CV_32F; }

// Values far outside any picture are limited: unbounded numbers cannot be converted to integers.
int truncatedPosition(float value)
{
    constexpr float kFar = 1e9f;
    return static_cast<int>(std::clamp(value, -kFar, kFar));
}

// A drawing of the plane in pixels, and the part of it where an image may be.
struct Drawing
{
    cv::Rect rect;
    cv::Size size;
    cv::Rect roi;
};

WarpRows rowsOf(const PanoramaWarper& warper, const Drawing& drawing)
{
    const float stepX = static_cast<float>(drawing.rect.width) / static_cast<float>(drawing.size.width);
    return {warper, drawing.roi.x, drawing.roi.width, stepX, static_cast<float>(drawing.rect.x)};
}

// Fills the rows of both maps from `first` on, relative to the drawing's roi, and the columns of each that are inside
// the image.
void fillMaps(const WarpRows& rows, const cv::Size& src, const Drawing& drawing, int first, cv::Mat x, cv::Mat y,
              std::vector<ColumnRange>& inside)
{
    const float stepY = static_cast<float>(drawing.rect.height) / static_cast<float>(drawing.size.height);
    forEachRow(x.rows, [&](int r) {
        auto* const xs = x.ptr<float>(r);
        auto* const ys = y.ptr<float>(r);
        const auto row = static_cast<float>(drawing.roi.y + first + r);
        rows.toImage(row * stepY + static_cast<float>(drawing.rect.y), xs, ys);
        inside[static_cast<std::size_t>(first + r)] = columnsInside(xs, ys, x.cols, src);
    });
}

// Two matrices of floats in one plane.
struct MapPlanes
{
    explicit MapPlanes(const cv::Size& size)
        : plane(2 * pixels(size)), x(size, CV_32F, plane.data()), y(size, CV_32F, plane.data() + pixels(size))
    {}

    static std::size_t pixels(const cv::Size& size)
    {
        return static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
    }

    ManagedPlane<float> plane;
    cv::Mat x;
    cv::Mat y;
};

ORVO_VECTOR_CLONES void radiusRow(const float* __restrict x, const float* __restrict y, float centreX, float centreY,
                                  float corner, float* __restrict radius, int count)
{
    for (int i = 0; i < count; ++i) {
        const float dx = x[i] - centreX;
        const float dy = y[i] - centreY;
        const float r = std::sqrt(dx * dx + dy * dy) / corner;
        radius[i] = r < 1.0f ? r : 1.0f;
    }
}

void fillRadius(const cv::Size& src, const cv::Mat& x, const cv::Mat& y, cv::Mat radius)
{
    const float centreX = static_cast<float>(src.width) * 0.5f;
    const float centreY = static_cast<float>(src.height) * 0.5f;
    const float corner = std::sqrt(centreX * centreX + centreY * centreY);
    forEachRow(radius.rows, [&](int r) {
        radiusRow(x.ptr<float>(r), y.ptr<float>(r), centreX, centreY, corner, radius.ptr<float>(r), radius.cols);
    });
}

void remapPicture(cv::InputArray src, cv::OutputArray dst, const cv::Mat& x, const cv::Mat& y)
{
    cv::remap(src, dst, x, y, cv::INTER_AREA, cv::BORDER_REFLECT); // treats INTER_AREA as bilinear
}

void remapMask(cv::InputArray mask, cv::OutputArray dst, const cv::Mat& x, const cv::Mat& y)
{
    cv::remap(mask, dst, x, y, cv::INTER_NEAREST, cv::BORDER_CONSTANT, cv::Scalar::all(0));
}

// A matrix that the CPU fills, and that is passed on without a copy if the receiver can share it.
class Filled
{
public:
    Filled(const cv::Size& size, int type) : whole(size, type), mapped(whole.getMat(cv::ACCESS_WRITE)) {}

    [[nodiscard]] cv::Mat rows(int first, int last) const { return mapped.rowRange(first, last); }

    void handOver(const cv::Rect& box, cv::OutputArray receiver)
    {
        mapped.release();
        if (receiver.isUMat())
            receiver.assign(whole(box));
        else
            whole(box).copyTo(receiver);
    }

private:
    cv::UMat whole;
    cv::Mat mapped;
};

// Warps on the CPU, a few rows at a time: the maps of a picture take more memory than the picture, and those of a
// picture across the back of the sphere as much as those of the whole panorama.
cv::Rect warpByRows(const PanoramaWarper& warper, const cv::Mat& src, const cv::Mat& mask, cv::OutputArray dst,
                    cv::OutputArray dstMask, cv::OutputArray radius, const Drawing& drawing)
{
    constexpr int kRowsAtOnce = 128; // enough for all threads; their maps stay in the cache
    const cv::Size size = drawing.roi.size();
    std::vector<ColumnRange> inside(static_cast<std::size_t>(size.height));
    std::optional<Filled> picture;
    if (dst.needed())
        picture.emplace(size, src.type());
    std::optional<Filled> coverage;
    if (!mask.empty())
        coverage.emplace(size, mask.type());
    cv::Mat distance;
    if (radius.needed())
        distance.create(size, CV_32F);
    const WarpRows rows = rowsOf(warper, drawing);
    const MapPlanes maps(cv::Size(size.width, std::min(kRowsAtOnce, size.height)));
    for (int first = 0; first < size.height; first += kRowsAtOnce) {
        const int last = std::min(size.height, first + kRowsAtOnce);
        const cv::Mat x = maps.x.rowRange(0, last - first);
        const cv::Mat y = maps.y.rowRange(0, last - first);
        fillMaps(rows, src.size(), drawing, first, x, y, inside);
        if (picture)
            remapBilinear(src, picture->rows(first, last), x, y);
        if (coverage)
            remapMask(mask, coverage->rows(first, last), x, y);
        if (!distance.empty())
            fillRadius(src.size(), x, y, distance.rowRange(first, last));
    }
    const cv::Rect box = boxOf(inside);
    if (box.empty())
        return {};
    if (picture)
        picture->handOver(box, dst);
    if (coverage)
        coverage->handOver(box, dstMask);
    if (!distance.empty())
        radius.assign(distance(box));
    return box + drawing.roi.tl();
}

} // namespace

static_assert(std::bit_cast<std::uint32_t>(projections::kAspect) == 0x4002E8BAu,
              "the aspect of the bounds, to the bit");

PanoramaWarper::PanoramaWarper(float scale_) : scale(scale_) {}

PanoramaWarper::~PanoramaWarper() = default;

cv::Rect PanoramaWarper::outputBounds() const { return projections::Plane::bounds(scale); }

cv::Rect PanoramaWarper::detectResultRoi(const cv::Size& src, const cv::Rect& rect, const cv::Size& size) const
{
    if (src.empty() || rect.empty() || size.empty())
        return {};
    constexpr int kGaps = SampledArea::kSide - 1;
    const int dx = (src.width - 1 + kGaps - 1) / kGaps; // rounded up
    const int dy = (src.height - 1 + kGaps - 1) / kGaps;
    SampledArea area(projectionOf(*this), scale);
    forEachRow(SampledArea::kSide, [&](int j) {
        const auto y = static_cast<float>(std::min(j * dy, src.height - 1));
        for (int i = 0; i < SampledArea::kSide; ++i) {
            float u = 0.0f;
            float v = 0.0f;
            mapImageToPlane(static_cast<float>(std::min(i * dx, src.width - 1)), y, u, v);
            area.set(i, j, u, v);
        }
    });
    // One step more on each side: the row beside a pole is nearly as long as the one through it, and the points of an
    // edge that passes there can miss it.
    const cv::Rect_<float> around(static_cast<float>(-dx), static_cast<float>(-dy),
                                  static_cast<float>(src.width + 2 * dx), static_cast<float>(src.height + 2 * dy));
    for (std::size_t pole = 0; pole < SampledArea::kPoleHeights.size(); ++pole) {
        const Ray point = turned(k_rinv.val, 0.0f, SampledArea::kPoleHeights[pole], 0.0f);
        if (point.z > 0.0f && around.contains({point.x / point.z, point.y / point.z}))
            area.addPole(pole);
    }
    const SampledArea::Box box = area.box();
    if (box.u.isEmpty() || box.v.isEmpty())
        return {};
    const auto column = [&](float u) {
        return truncatedPosition((u - static_cast<float>(rect.x)) * static_cast<float>(size.width) /
                                 static_cast<float>(rect.width));
    };
    const auto row = [&](float v) {
        return truncatedPosition((v - static_cast<float>(rect.y)) * static_cast<float>(size.height) /
                                 static_cast<float>(rect.height));
    };
    const int left = column(box.u.low);
    const int top = row(box.v.low);
    const cv::Rect found(left, top, column(box.u.high) - left + 1, row(box.v.high) - top + 1);
    const cv::Rect roi = found & cv::Rect(cv::Point(), size);
    return roi.empty() ? cv::Rect() : roi;
}

void PanoramaWarper::setCameraParams(cv::InputArray K, cv::InputArray R)
{
    const cv::Mat camera = K.getMat();
    const cv::Mat rotation = R.getMat();
    if (!isMatrix3(camera) || !isMatrix3(rotation))
        return;
    // Computes the products in double, so that each entry is rounded once.
    const cv::Matx33d cameraExact = cv::Matx33f(camera);
    const cv::Matx33d rotationExact = cv::Matx33f(rotation);
    k = Matrix(cameraExact);
    rinv = Matrix(rotationExact.t());
    r_kinv = Matrix(rotationExact * cameraExact.inv());
    k_rinv = Matrix(cameraExact * rotationExact.t());
}

cv::Rect PanoramaWarper::buildMaps(const cv::Size& src, const cv::Rect& rect, const cv::Size& size,
                                   cv::OutputArray xmap, cv::OutputArray ymap) const
{
    const Drawing drawing{rect, size, detectResultRoi(src, rect, size)};
    if (drawing.roi.empty())
        return {};
    const MapPlanes maps(drawing.roi.size());
    std::vector<ColumnRange> inside(static_cast<std::size_t>(drawing.roi.height));
    fillMaps(rowsOf(*this, drawing), src, drawing, 0, maps.x, maps.y, inside);
    const cv::Rect box = boxOf(inside);
    if (box.empty())
        return {};
    maps.x(box).copyTo(xmap);
    maps.y(box).copyTo(ymap);
    return box + drawing.roi.tl();
}

cv::Rect PanoramaWarper::warp(cv::InputArray src, cv::InputArray mask, cv::OutputArray dst, cv::OutputArray dstMask,
                              cv::OutputArray radius, const cv::Rect& rect, const cv::Size& size, cv::InputArray K,
                              cv::InputArray R)
{
    if (src.empty() || (!mask.empty() && mask.size() != src.size()))
        return {};
    setCameraParams(K, R);
    if (!dst.isUMat() || !cv::ocl::useOpenCL()) {
        const Drawing drawing{rect, size, detectResultRoi(src.size(), rect, size)};
        return drawing.roi.empty() ? cv::Rect()
                                   : warpByRows(*this, src.getMat(), mask.getMat(), dst, dstMask, radius, drawing);
    }

    cv::Mat x;
    cv::Mat y;
    const cv::Rect roi = buildMaps(src.size(), rect, size, x, y);
    if (roi.empty())
        return {};
    if (radius.needed()) {
        radius.create(roi.size(), CV_32F);
        fillRadius(src.size(), x, y, radius.getMat());
    }
    dst.create(roi.size(), src.type());
    remapPicture(src, dst, x, y);
    if (!mask.empty()) {
        dstMask.create(roi.size(), mask.type());
        remapMask(mask, dstMask, x, y);
    }
    return roi;
}

void PanoramaWarper::mapImageToPlane(float x, float y, float& u, float& v) const
{
    const Ray ray = turned(r_kinv.val, x, y, 1.0f);
    mapForward(ray.x, ray.y, ray.z, u, v);
}

void PanoramaWarper::mapPlaneToImage(float u, float v, float& x, float& y) const
{
    Ray ray{};
    mapBackward(u, v, ray.x, ray.y, ray.z);
    const Ray point = turned(k_rinv.val, ray.x, ray.y, ray.z);
    const bool isAhead = point.z > 0.0f;
    x = isAhead ? point.x / point.z : -1.0f;
    y = isAhead ? point.y / point.z : -1.0f;
}

void PanoramaWarper::setIntermediate(cv::InputArray rotation, std::shared_ptr<PanoramaWarper> newIntermediate)
{
    const cv::Mat turn = rotation.getMat();
    if (isMatrix3(turn)) {
        const cv::Matx33d exact = cv::Matx33f(turn);
        midRotation = Matrix(exact);
        midRotationInv = Matrix(exact.t());
    }
    intermediate = std::move(newIntermediate);
    const cv::Mat eye = cv::Mat::eye(3, 3, CV_32F);
    setCameraParams(eye, eye);
    if (intermediate)
        intermediate->setCameraParams(eye, eye);
}

void PanoramaWarper::mapToIntermediate(float u, float v, float& x, float& y) const
{
    Ray ray{};
    mapBackward(u, v, ray.x, ray.y, ray.z);
    ray = turned(midRotationInv.val, ray.x, ray.y, ray.z);
    (intermediate ? *intermediate : *this).mapForward(ray.x, ray.y, ray.z, x, y);
}

void PanoramaWarper::mapFromIntermediate(float x, float y, float& u, float& v) const
{
    Ray ray{};
    (intermediate ? *intermediate : *this).mapBackward(x, y, ray.x, ray.y, ray.z);
    ray = turned(midRotation.val, ray.x, ray.y, ray.z);
    mapForward(ray.x, ray.y, ray.z, u, v);
}

} // namespace orvo
