#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/image_transform.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <utility>
#include <vector>

namespace orvo {
namespace {

// Samples per side of a pixel's area: a stronger reduction comes from an already reduced picture.
constexpr int kMostSamples = 64;
constexpr double kRounding = 1e-6; // pixels: the side of a rotated pixel is 1 only up to rounding

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
template <typename Real>
std::array<Real, 4> cubicWeights(Real t)
{
    const Real t2 = t * t;
    const Real t3 = t2 * t;
    return {Real(0.5) * (2 * t2 - t3 - t), Real(0.5) * (3 * t3 - 5 * t2 + 2), Real(0.5) * (4 * t2 - 3 * t3 + t),
            Real(0.5) * (t3 - t2)};
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
    return std::clamp(static_cast<int>(std::ceil(std::hypot(dx, dy) - kRounding)), 1, kMostSamples);
}

// The input samples of each output sample along one axis, with their weights: an unturned transform handles its axes
// one after the other.
class Axis
{
public:
    struct Weight
    {
        float colour; // outside samples count as the edge
        float alpha;  // outside samples count as nothing
    };
    struct Run
    {
        int first;         // input sample, inside the picture
        int count;         // at least 1
        std::size_t start; // of its weights
    };

    // Output samples are `step` input samples long and begin at `origin`; each is the mean of `samples` places.
    Axis(double step, double origin, int outputLength, int samples, int inputLength)
    {
        runs.reserve(static_cast<std::size_t>(outputLength));
        std::vector<ExactWeight> run;
        for (int x = 0; x < outputLength; ++x) {
            const auto place = [&](int i) { return step * (x + (i + 0.5) / samples) + origin - 0.5; };
            const int first = std::clamp(static_cast<int>(std::floor(place(0))) - 1, 0, inputLength - 1);
            const int last = std::clamp(static_cast<int>(std::floor(place(samples - 1))) + 2, 0, inputLength - 1);
            run.assign(static_cast<std::size_t>(last - first) + 1, {});
            for (int i = 0; i < samples; ++i) {
                const double left = std::floor(place(i));
                const std::array<double, 4> weights = cubicWeights(place(i) - left);
                for (int k = 0; k < 4; ++k) {
                    const int index = static_cast<int>(left) - 1 + k;
                    const int inside = std::clamp(index, 0, inputLength - 1);
                    const double weight = weights[static_cast<std::size_t>(k)] / samples;
                    ExactWeight& sum = run[static_cast<std::size_t>(inside - first)];
                    sum.colour += weight;
                    sum.alpha += index == inside ? weight : 0.0;
                }
            }
            append(first, run);
        }
    }

    [[nodiscard]] const Run& run(int x) const { return runs[static_cast<std::size_t>(x)]; }
    [[nodiscard]] const Weight* weights(const Run& run) const { return all.data() + run.start; }

private:
    struct ExactWeight
    {
        double colour = 0.0;
        double alpha = 0.0;
    };

    void append(int first, const std::vector<ExactWeight>& run)
    {
        // Zero weights at the ends would let NaN spread into neighbouring samples.
        const auto isZero = [](const ExactWeight& w) { return w.colour == 0.0 && w.alpha == 0.0; };
        auto begin = run.begin();
        auto end = run.end();
        while (end - begin > 1 && isZero(*begin))
            ++begin;
        while (end - begin > 1 && isZero(*(end - 1)))
            --end;
        runs.push_back({first + static_cast<int>(begin - run.begin()), static_cast<int>(end - begin), all.size()});
        // Each weight's rounding error carries over to the next one, so that a constant stays constant.
        ExactWeight owed;
        for (; begin != end; ++begin) {
            const ExactWeight exact = {begin->colour + owed.colour, begin->alpha + owed.alpha};
            const Weight& rounded =
                all.emplace_back(Weight{static_cast<float>(exact.colour), static_cast<float>(exact.alpha)});
            owed = {exact.colour - static_cast<double>(rounded.colour),
                    exact.alpha - static_cast<double>(rounded.alpha)};
        }
    }

    std::vector<Run> runs;
    std::vector<Weight> all;
};

void add(PixelRGB<float>& sum, const PixelRGB<float>& pixel, const Axis::Weight& weight)
{
    sum.r += weight.colour * pixel.r;
    sum.g += weight.colour * pixel.g;
    sum.b += weight.colour * pixel.b;
}

void add(PixelRGBA<float>& sum, const PixelRGBA<float>& pixel, const Axis::Weight& weight)
{
    sum.r += weight.colour * pixel.r;
    sum.g += weight.colour * pixel.g;
    sum.b += weight.colour * pixel.b;
    sum.a += weight.alpha * pixel.a;
}

// Resamples an unturned picture: rows first, then columns. The cost per output sample grows with the sum of both
// reductions instead of their product.
template <typename Pixel>
void transformUnturned(const _ImageData<Pixel>& picture, const Axis& across, const Axis& down,
                       _ImageData<Pixel>& result)
{
    forEachRow(result.height(), [&](int y) {
        // The columns that the row needs.
        const Axis::Run& leftmost = across.run(0);
        const Axis::Run& rightmost = across.run(result.width() - 1);
        const int begin = leftmost.first;
        const auto length = static_cast<std::size_t>(rightmost.first + rightmost.count - begin);
        std::vector<Pixel> mixed(length);
        const Axis::Run& rows = down.run(y);
        for (int j = 0; j < rows.count; ++j) {
            const Axis::Weight weight = down.weights(rows)[j];
            const Pixel* const row = picture.row(rows.first + j) + begin;
            for (std::size_t i = 0; i < length; ++i)
                add(mixed[i], row[i], weight);
        }
        Pixel* const out = result.row(y);
        for (int x = 0; x < result.width(); ++x) {
            const Axis::Run& columns = across.run(x);
            const Axis::Weight* const weights = across.weights(columns);
            const Pixel* const in = mixed.data() + (columns.first - begin);
            Pixel sum{};
            for (int i = 0; i < columns.count; ++i)
                add(sum, in[i], weights[i]);
            out[x] = sum;
        }
    });
}

// Whether the map turns nothing and every place it reads is inside the picture.
bool isUnturnedInside(const AffineTransform& map, _Size<int> target, _Size<int> picture)
{
    const auto inside = [](double origin, double step, int count, int length) {
        return step > 0.0 && origin >= -kRounding && origin + step * count <= length + kRounding;
    };
    return map.xy == 0.0 && map.yx == 0.0 && inside(map.x0, map.xx, target.width, picture.width) &&
           inside(map.y0, map.yy, target.height, picture.height);
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
    if (isUnturnedInside(map, size, picture.size()) && result->pixelCount() > 0) {
        transformUnturned(picture, Axis(map.xx, map.x0, size.width, columns, picture.width()),
                          Axis(map.yy, map.y0, size.height, rows, picture.height()), *result);
        return result;
    }
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
