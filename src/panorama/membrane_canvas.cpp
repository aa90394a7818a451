#include "panorama/membrane_canvas.hpp"

#include "panorama/bit_plane.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_extensions/panorama_mblender.hpp>
#include <orvo_image_processing/dilate_fast.hpp>
#include <orvo_image_processing/fast_blur.hpp>
#include <orvo_image_processing/interpolate_mvc.hpp>

#include <algorithm>
#include <limits>
#include <optional>

namespace orvo {

namespace {

// In pixels: growth into empty canvas, distance kept from disagreements, and width of the feather.
constexpr int kReach = 16;
// Square of the smallest channel difference, of full scale 1, that counts as a disagreement.
constexpr float kDisagreement = 0.25f;
// Zero in planes of half differences, which are centred in the scale.
constexpr float kNoDifference = 0.5f;

float squared(float v) { return v * v; }

void fillWith(PixelRGB<float>* plane, std::size_t count, float value)
{
    forEachRange(count, [&](std::size_t first, std::size_t last) {
        std::fill(plane + first, plane + last, PixelRGB<float>{value, value, value});
    });
}

/// Full scale of a colour sample is 16383; a float of 1 is half of the 16-bit range.
short workingSample(float value)
{
    constexpr float kLowest = std::numeric_limits<short>::min();
    constexpr float kHighest = std::numeric_limits<short>::max();
    return static_cast<short>(std::clamp(value * 32767.0f * 0.5f, kLowest, kHighest));
}

} // namespace

MembraneCanvas::MembraneCanvas(_Size<int> size)
    : pixels(std::make_shared<_ImageData<PixelRGB<float>>>(size, PixelRGB<float>{}, ColorProfileType::None())),
      covered(pixels->pixelCount(), true)
{}

/// Calls body(index on the canvas, index in the picture), parallel over the rows of the picture.
template <typename Body>
void MembraneCanvas::eachPixel(const MembranePicture& picture, int width, const Body& body)
{
    forEachRow(picture.pixels->height(), [&](int y) {
        const auto columns = static_cast<std::size_t>(picture.pixels->width());
        const std::size_t own = static_cast<std::size_t>(y) * columns;
        const std::size_t start = static_cast<std::size_t>(picture.corner.y + y) * static_cast<std::size_t>(width) +
                                  static_cast<std::size_t>(picture.corner.x);
        for (std::size_t x = 0; x < columns; ++x)
            body(start + x, own + x);
    });
}

void MembraneCanvas::add(const MembranePicture& picture)
{
    const int width = pixels->width();
    const int height = pixels->height();
    const Bytes effective(count(), true);
    findEffective(picture, effective.data());

    const Colours membrane(count());
    fillWith(membrane.data(), count(), kNoDifference);
    {
        std::vector<bool> hardPixels(count());
        {
            const Floats conflict(count(), true);
            findConflict(picture, effective.data(), conflict.data());
            findHardPixels(effective.data(), conflict.data(), hardPixels);
        }
        const Colours boundary(count());
        fillWith(boundary.data(), count(), kNoDifference);
        findBoundary(picture, effective.data(), boundary.data());
        interpolate_mvc(width, height, boundary.data(), membrane.data(), effective.data(), hardPixels);
    }

    const Floats alpha(count(), true);
    const Floats sharp(count(), true);
    eachPixel(picture, width, [&](std::size_t at, std::size_t) { sharp[at] = effective[at] != 0 ? 1.0f : 0.0f; });
    grfx_fast_blur_gray(alpha.data(), sharp.data(), width, height, kReach);
    lay(picture, effective.data(), membrane.data(), alpha.data());
}

/// The mask where the canvas has data; elsewhere the mask grown by kReach, within the region.
void MembraneCanvas::findEffective(const MembranePicture& picture, unsigned char* effective) const
{
    const int width = pixels->width();
    eachPixel(picture, width, [&](std::size_t at, std::size_t own) { effective[at] = picture.mask[own] ? 1 : 0; });
    dilationRLE<unsigned char>(effective, width, pixels->height(), kReach);
    // Growth across the picture's border has no pixels to write.
    const cv::Rect own(picture.corner, cv::Size(picture.pixels->width(), picture.pixels->height()));
    forEachRow(pixels->height(), [&](int y) {
        unsigned char* const row = effective + static_cast<std::ptrdiff_t>(y) * width;
        const bool within = y >= own.y && y < own.y + own.height;
        std::fill(row, row + (within ? own.x : width), static_cast<unsigned char>(0));
        if (within)
            std::fill(row + own.x + own.width, row + width, static_cast<unsigned char>(0));
    });
    eachPixel(picture, width, [&](std::size_t at, std::size_t index) {
        if (covered[at] != 0)
            effective[at] = picture.mask[index] ? 1 : 0;
        else if (!picture.region[index])
            effective[at] = 0;
    });
}

/// 1 within kReach of pixels where canvas and picture both have data and disagree; else 0.
void MembraneCanvas::findConflict(const MembranePicture& picture, const unsigned char* effective, float* conflict) const
{
    const PixelRGB<float>* const canvas = pixels->data();
    eachPixel(picture, pixels->width(), [&](std::size_t at, std::size_t own) {
        if (effective[at] == 0 || covered[at] == 0)
            return;
        const PixelRGB<float>& a = canvas[at];
        const PixelRGB<float>& b = picture.pixels->data()[own];
        const float most = std::max({squared(a.r - b.r), squared(a.g - b.g), squared(a.b - b.b)});
        conflict[at] = most >= kDisagreement ? 1.0f : 0.0f;
    });
    dilateFast(conflict, pixels->size(), kReach, nullptr);
    eachPixel(picture, pixels->width(), [&](std::size_t at, std::size_t own) {
        if (!picture.region[own] || covered[at] == 0)
            conflict[at] = 0.0f;
    });
}

/// Pixels that do not constrain the membrane: disagreements, and the border of the picture over empty canvas. There the
/// difference is unknown, and a difference of 0 would fade out the one at the joint.
void MembraneCanvas::findHardPixels(const unsigned char* effective, const float* conflict,
                                    std::vector<bool>& hardPixels) const
{
    setBits(hardPixels,
            [&](std::size_t at) { return effective[at] != 0 && (covered[at] == 0 || conflict[at] > 0.5f); });
}

/// Half of the difference of canvas and picture, centred on kNoDifference.
void MembraneCanvas::findBoundary(const MembranePicture& picture, const unsigned char* effective,
                                  PixelRGB<float>* boundary) const
{
    const PixelRGB<float>* const canvas = pixels->data();
    eachPixel(picture, pixels->width(), [&](std::size_t at, std::size_t own) {
        if (effective[at] == 0 || covered[at] == 0)
            return;
        const PixelRGB<float>& a = canvas[at];
        const PixelRGB<float>& b = picture.pixels->data()[own];
        boundary[at] = {(a.r - b.r) * 0.5f + kNoDifference, (a.g - b.g) * 0.5f + kNoDifference,
                        (a.b - b.b) * 0.5f + kNoDifference};
    });
}

/// Writes the picture with the membrane added; over data it fades in from its edge.
void MembraneCanvas::lay(const MembranePicture& picture, const unsigned char* effective,
                         const PixelRGB<float>* membrane, const float* alpha)
{
    PixelRGB<float>* const canvas = pixels->data();
    eachPixel(picture, pixels->width(), [&](std::size_t at, std::size_t own) {
        if (effective[at] == 0)
            return;
        const PixelRGB<float>& colour = picture.pixels->data()[own];
        const PixelRGB<float>& lift = membrane[at];
        const float t = covered[at] != 0 ? std::clamp(2.0f * (alpha[at] - 0.5f), 0.0f, 1.0f) : 1.0f;
        const auto mix = [t](float below, float above, float half) {
            return below + (above + 2.0f * (half - kNoDifference) - below) * t;
        };
        PixelRGB<float>& out = canvas[at];
        out = {mix(out.r, colour.r, lift.r), mix(out.g, colour.g, lift.g), mix(out.b, colour.b, lift.b)};
        covered[at] = 1;
    });
}

void MembraneCanvas::write(cv::Mat& result, cv::Mat& resultMask) const
{
    cv::Mat colour(pixels->height(), pixels->width(), CV_16SC3);
    cv::Mat mask(pixels->height(), pixels->width(), CV_8UC1);
    forEachRow(pixels->height(), [&](int y) {
        const PixelRGB<float>* const from = pixels->row(y);
        const unsigned char* const data = covered.data() + static_cast<std::ptrdiff_t>(y) * pixels->width();
        auto* const to = colour.ptr<cv::Vec3s>(y);
        auto* const bits = mask.ptr<unsigned char>(y);
        for (int x = 0; x < pixels->width(); ++x) {
            to[x] = {workingSample(from[x].b), workingSample(from[x].g), workingSample(from[x].r)};
            bits[x] = data[x] != 0 ? 255 : 0;
        }
    });
    result = colour;
    resultMask = mask;
}

} // namespace orvo
