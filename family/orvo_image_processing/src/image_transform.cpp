#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/image_transform.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace orvo {
namespace {

// Samples per side of a pixel's area: a stronger reduction comes from an already reduced picture.
constexpr int kMostSamples = 64;

// `outer` after `inner`.
AffineTransform composed(const AffineTransform& outer, const AffineTransform& inner)
{
    AffineTransform both;
    both.xx = outer.xx * inner.xx + outer.xy * inner.yx;
    both.xy = outer.xx * inner.xy + outer.xy * inner.yy;
    both.yx = outer.yx * inner.xx + outer.yy * inner.yx;
    both.yy = outer.yx * inner.xy + outer.yy * inner.yy;
    const _Point<double> origin = outer.map(inner.x0, inner.y0);
    both.x0 = origin.x;
    both.y0 = origin.y;
    return both;
}

AffineTransform ofRect(double x, double y, double scaleX, double scaleY)
{
    AffineTransform transform;
    transform.xx = scaleX;
    transform.yy = scaleY;
    transform.x0 = x;
    transform.y0 = y;
    return transform;
}

double ratio(double part, int whole) { return whole > 0 ? part / whole : 1.0; }

// Keys, "Cubic convolution interpolation for digital image processing", IEEE ASSP 29(6), 1981, with a = -0.5.
std::array<float, 4> cubicWeights(float t)
{
    const float t2 = t * t;
    const float t3 = t2 * t;
    return {0.5f * (2.0f * t2 - t3 - t), 0.5f * (3.0f * t3 - 5.0f * t2 + 2.0f), 0.5f * (4.0f * t2 - 3.0f * t3 + t),
            0.5f * (t3 - t2)};
}

// Adds `weight` times a pixel; outside pixels have the colour of the edge and no alpha.
void add(PixelRGB<float>& sum, const PixelRGB<float>& pixel, float weight, bool /*isInside*/)
{
    sum.r += weight * pixel.r;
    sum.g += weight * pixel.g;
    sum.b += weight * pixel.b;
}

void add(PixelRGBA<float>& sum, const PixelRGBA<float>& pixel, float weight, bool isInside)
{
    sum.r += weight * pixel.r;
    sum.g += weight * pixel.g;
    sum.b += weight * pixel.b;
    sum.a += isInside ? weight * pixel.a : 0.0f;
}

constexpr PixelRGB<float> nothingLike(const PixelRGB<float>*) { return {1.0f, 1.0f, 1.0f}; }
constexpr PixelRGBA<float> nothingLike(const PixelRGBA<float>*) { return {1.0f, 1.0f, 1.0f, 0.0f}; }

// The picture at a position; integers are sample positions.
template <typename Pixel>
Pixel sampleAt(const _ImageData<Pixel>& picture, double x, double y)
{
    const int width = picture.width();
    const int height = picture.height();
    if (!(x > -1.0 && y > -1.0 && x < width && y < height))
        return nothingLike(static_cast<const Pixel*>(nullptr));
    const int left = static_cast<int>(std::floor(x));
    const int top = static_cast<int>(std::floor(y));
    const auto tx = static_cast<float>(x - left);
    const auto ty = static_cast<float>(y - top);
    if (tx == 0.0f && ty == 0.0f && left >= 0 && top >= 0)
        return picture.row(top)[left];
    const std::array<float, 4> wx = cubicWeights(tx);
    const std::array<float, 4> wy = cubicWeights(ty);
    Pixel sum{};
    for (int j = 0; j < 4; ++j) {
        const int row = top - 1 + j;
        const bool rowIsInside = row >= 0 && row < height;
        const Pixel* const pixels = picture.row(std::clamp(row, 0, height - 1));
        for (int i = 0; i < 4; ++i) {
            const int column = left - 1 + i;
            add(sum, pixels[std::clamp(column, 0, width - 1)],
                wy[static_cast<std::size_t>(j)] * wx[static_cast<std::size_t>(i)],
                rowIsInside && column >= 0 && column < width);
        }
    }
    return sum;
}

// Samples per side of a pixel whose side has this length in the picture.
int samplesOf(double dx, double dy)
{
    constexpr double kRounding = 1e-6; // the side of a rotated pixel is 1 only up to rounding
    return std::clamp(static_cast<int>(std::ceil(std::hypot(dx, dy) - kRounding)), 1, kMostSamples);
}

} // namespace

ImageTransformSettings::ImageTransformSettings(_Size<int> source, _Rect<float> rect, _Size<int> target,
                                               ImageTransformType transformType,
                                               std::variant<AffineTransform> canvasTransform,
                                               CropDescription cropOfCanvas, int optionOfCaller)
    : sourceSize(source), sourceRect(rect), targetSize(target), type(transformType),
      transform(std::move(canvasTransform)), crop(cropOfCanvas), option(optionOfCaller)
{}

TransformComputer::TransformComputer(const ImageTransformSettings& settings) : targetSize(settings.targetSize)
{
    _Rect<float> shown = settings.sourceRect;
    if (shown == _Rect<float>())
        shown = {0.0f, 0.0f, static_cast<float>(settings.sourceSize.width),
                 static_cast<float>(settings.sourceSize.height)};
    const AffineTransform canvasFromTarget = ofRect(static_cast<double>(shown.x), static_cast<double>(shown.y),
                                                    ratio(static_cast<double>(shown.width), targetSize.width),
                                                    ratio(static_cast<double>(shown.height), targetSize.height));
    pictureFromTarget = settings.type == ImageTransformType::Affine
                            ? composed(std::get<AffineTransform>(settings.transform), canvasFromTarget)
                            : canvasFromTarget;
}

ResizeParameters TransformComputer::getWorkingResizeParameters() const
{
    return {targetSize, {0, 0, targetSize.width, targetSize.height}, true};
}

template <typename Pixel>
std::shared_ptr<_ImageData<Pixel>> TransformComputer::transformed(const _ImageData<Pixel>& picture,
                                                                  const ResizeParameters& part) const
{
    if (picture.width() <= 0 || picture.height() <= 0)
        throw std::invalid_argument("createTransformedRoi: the picture has no pixels");
    const _Rect<int> rect =
        part.rect == _Rect<int>() ? _Rect<int>(0, 0, targetSize.width, targetSize.height) : part.rect;
    const _Size<int> size = part.size == _Size<int>() ? rect.size() : part.size;
    const AffineTransform map = composed(
        pictureFromTarget, ofRect(rect.x, rect.y, ratio(rect.width, size.width), ratio(rect.height, size.height)));
    const int columns = samplesOf(map.xx, map.yx);
    const int rows = samplesOf(map.xy, map.yy);
    const float share = 1.0f / static_cast<float>(columns * rows);
    auto result = std::make_shared<_ImageData<Pixel>>(size, picture.colorProfile());
    forEachRow(size.height, [&](int y) {
        Pixel* const out = result->row(y);
        for (int x = 0; x < size.width; ++x) {
            if (columns == 1 && rows == 1) {
                const _Point<double> place = map.map(x + 0.5, y + 0.5);
                out[x] = sampleAt(picture, place.x - 0.5, place.y - 0.5);
                continue;
            }
            Pixel sum{};
            for (int j = 0; j < rows; ++j)
                for (int i = 0; i < columns; ++i) {
                    const _Point<double> place = map.map(x + (i + 0.5) / columns, y + (j + 0.5) / rows);
                    add(sum, sampleAt(picture, place.x - 0.5, place.y - 0.5), share, true);
                }
            out[x] = sum;
        }
    });
    return result;
}

std::shared_ptr<_ImageData<PixelRGB<float>>>
TransformComputer::createTransformedRoi(const _ImageData<PixelRGB<float>>& picture, const ResizeParameters& part) const
{
    return transformed(picture, part);
}

std::shared_ptr<_ImageData<PixelRGBA<float>>>
TransformComputer::createTransformedRoi(const _ImageData<PixelRGBA<float>>& picture, const ResizeParameters& part) const
{
    return transformed(picture, part);
}

} // namespace orvo
