#include "focus_scene.hpp"

#include "focus_painter.hpp"
#include "spline.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace orvo::scenes {

namespace {

// How far everything is painted beyond the reference frame, for frames that moved: a share of its shorter side, plus
// pixels for the blur, which is equally wide in a small picture.
constexpr double kMargin = 0.06;
constexpr int kMarginPixels = 16;
constexpr std::uint32_t kTextureSeed = 0x5bd1e995u; // the texture differs from the noise that things are painted with
constexpr int kSplineReach = 2;                     // coefficients that the spline needs beyond the last position used

// The composition covers the picture, centred.
struct Placing
{
    double pixel;
    double u; // of the middle of pixel (0, 0)
    double v;
    explicit Placing(_Size<int> size)
        : pixel(1.0 / std::max<double>(size.height, size.width / static_cast<double>(kFocusCompositionWidth))),
          u(0.5 * static_cast<double>(kFocusCompositionWidth) - 0.5 * (size.width - 1) * pixel),
          v(0.5 - 0.5 * (size.height - 1) * pixel)
    {}
};

_Rect<int> gridRect(const Thing& thing, const Placing& placing, _Size<int> size)
{
    const int margin =
        static_cast<int>(std::ceil(kMargin * std::min(size.width, size.height))) + kMarginPixels + kSplineReach;
    int left = -margin;
    int top = -margin;
    int right = size.width + margin;
    int bottom = size.height + margin;
    if (!thing.endless) {
        // one pixel for the rim of the coverage, and zero coefficients around it
        constexpr int kRim = 1 + kSplineReach;
        const auto place = [&](float at, double origin) { return (static_cast<double>(at) - origin) / placing.pixel; };
        left = std::max(left, static_cast<int>(std::floor(place(thing.bounds.left, placing.u))) - kRim);
        right = std::min(right, static_cast<int>(std::ceil(place(thing.bounds.right, placing.u))) + kRim + 1);
        top = std::max(top, static_cast<int>(std::floor(place(thing.bounds.top, placing.v))) - kRim);
        bottom = std::min(bottom, static_cast<int>(std::ceil(place(thing.bounds.bottom, placing.v))) + kRim + 1);
    }
    return {left, top, std::max(right - left, 0), std::max(bottom - top, 0)};
}

// -1..1, random from pixel to pixel, mixed with the neighbours as a good lens does: what remains above the limit of the
// pixels would be shown differently by frames whose pixels lie elsewhere, and no resampling could bring it back.
float textureAt(int x, int y, std::uint32_t seed)
{
    constexpr float kWeights[] = {1.0f / 6.0f, 4.0f / 6.0f, 1.0f / 6.0f};
    float sum = 0.0f;
    for (int j = 0; j < 3; ++j)
        for (int k = 0; k < 3; ++k)
            sum += kWeights[j] * kWeights[k] * chance(x + k - 1, y + j - 1, seed);
    return 2.0f * sum - 1.0f;
}

FocusLayer painted(const Thing& thing, const Placing& placing, const _Rect<int>& rect, std::uint32_t seed,
                   float texture)
{
    const double far = static_cast<double>(dioptresOf(0.0f));
    const double range = static_cast<double>(dioptresOf(1.0f)) - far;
    const auto& [atOrigin, perU, perV] = thing.nearness;
    const DepthPlane plane{far + range * (static_cast<double>(atOrigin) + static_cast<double>(perU) * placing.u +
                                          static_cast<double>(perV) * placing.v),
                           range * static_cast<double>(perU) * placing.pixel,
                           range * static_cast<double>(perV) * placing.pixel};
    auto grid = std::make_shared<_ImageData<PixelRGBA<float>>>(rect.size(), ColorProfileType::None());
    const auto px = static_cast<float>(placing.pixel);
    const auto paintRow = [&](int y) {
        const auto v = static_cast<float>(placing.v + (rect.y + y) * placing.pixel);
        PixelRGBA<float>* row = grid->row(y);
        for (int x = 0; x < rect.width; ++x) {
            const Spot spot{static_cast<float>(placing.u + (rect.x + x) * placing.pixel), v, px};
            const bool inReach = thing.endless || thing.bounds.near(spot);
            const Patch patch = inReach ? thing.paint(spot, seed) : Patch{{}, 0.0f};
            const float grain = texture > 0.0f ? texture * patch.texture * textureAt(x, y, seed ^ kTextureSeed) : 0.0f;
            const Light light = patch.light * (patch.cover * (1.0f + grain));
            row[x] = {light.r, light.g, light.b, patch.cover};
        }
    };
    forEachRow(rect.height, paintRow);
    return {grid, rect.x, rect.y, thing.endless, plane};
}

// Smallest integer rectangle around the mapped corners of `rect`.
_Rect<int> mappedBounds(const Homography& map, const _Rect<double>& rect)
{
    double left = HUGE_VAL, top = HUGE_VAL, right = -HUGE_VAL, bottom = -HUGE_VAL;
    for (const double x : {rect.x, rect.x + rect.width})
        for (const double y : {rect.y, rect.y + rect.height}) {
            const auto corner = mapPoint(map, {x, y});
            left = std::min(left, corner.x);
            right = std::max(right, corner.x);
            top = std::min(top, corner.y);
            bottom = std::max(bottom, corner.y);
        }
    const int x = static_cast<int>(std::floor(left));
    const int y = static_cast<int>(std::floor(top));
    return {x, y, static_cast<int>(std::ceil(right)) - x + 1, static_cast<int>(std::ceil(bottom)) - y + 1};
}

// A map along one row, prepared once: every pixel of every layer needs its position.
class RowPlaces
{
public:
    RowPlaces(const Homography& map, int y)
        : h(map), startX(map[1] * y + map[2]), startY(map[4] * y + map[5]), startW(map[7] * y + map[8])
    {}
    [[nodiscard]] _Point<double> operator()(int x) const
    {
        const double scale = 1.0 / (h[6] * x + startW);
        return {(h[0] * x + startX) * scale, (h[3] * x + startY) * scale};
    }

private:
    const Homography& h;
    double startX;
    double startY;
    double startW;
};

_Rect<int> grown(const _Rect<int>& rect, int by)
{
    return {rect.x - by, rect.y - by, rect.width + 2 * by, rect.height + 2 * by};
}

_Rect<int> common(const _Rect<int>& a, const _Rect<int>& b)
{
    const int left = std::max(a.x, b.x);
    const int top = std::max(a.y, b.y);
    return {left, top, std::max(std::min(a.x + a.width, b.x + b.width) - left, 0),
            std::max(std::min(a.y + a.height, b.y + b.height) - top, 0)};
}

float blurRadius(const FocusSetting& setting, const DepthPlane& plane, const _Point<double>& place)
{
    return static_cast<float>(0.5 * setting.perDioptre * std::abs(plane(place.x, place.y) - setting.focus));
}

// The distance to the focus is largest at a corner, because 1/distance is linear over the plane.
double widestRadius(const FocusSetting& setting, const DepthPlane& plane, const Homography& sceneFromFrame,
                    const _Rect<int>& rect)
{
    double widest = 0.0;
    for (const int x : {rect.x, rect.x + rect.width - 1})
        for (const int y : {rect.y, rect.y + rect.height - 1}) {
            const auto place = mapPoint(sceneFromFrame, {static_cast<double>(x), static_cast<double>(y)});
            widest = std::max(widest, static_cast<double>(blurRadius(setting, plane, place)));
        }
    return widest;
}

void checkLens(const FocusLens& lens, double focus, double distance)
{
    const auto checkPositive = [](const char* what, double value) {
        if (!(value > 0.0) || !std::isfinite(value))
            throw std::invalid_argument(std::string(what) + " is " + std::to_string(value) + ", it must be above 0");
    };
    checkPositive("FocusLens.focalLength", lens.focalLength);
    checkPositive("FocusLens.aperture", lens.aperture);
    checkPositive("FocusLens.pixelPitch", lens.pixelPitch);
    checkPositive("circleOfConfusion: the distance", distance);
    if (!(focus * 1000.0 > lens.focalLength) || !std::isfinite(focus))
        throw std::invalid_argument("the lens is focused at " + std::to_string(focus) +
                                    " m, which must be beyond its focal length of " + std::to_string(lens.focalLength) +
                                    " mm");
}

// The part of a layer that a frame shows.
struct LayerView
{
    const FocusLayer* layer;
    _Rect<int> target; // frame pixels that it may cover
    double widest;     // radius of its widest disc there
};

LayerView viewOf(const FocusLayer& layer, const Homography& sceneFromFrame, const FocusSetting& setting,
                 _Size<int> size)
{
    const auto widestIn = [&](const _Rect<int>& rect) {
        return widestRadius(setting, layer.dioptres, sceneFromFrame, rect);
    };
    _Rect<int> target{0, 0, size.width, size.height};
    if (!layer.endless) {
        const _Rect<int> place = mappedBounds(inverse(sceneFromFrame), layer.bounds());
        // A slanted plane blurs more beyond the layer than in it; spread by the disc of the wider position.
        const double spread = widestIn(grown(place, static_cast<int>(std::ceil(widestIn(place))) + 1));
        target = common(target, grown(place, static_cast<int>(std::ceil(spread)) + 1));
    }
    return {&layer, target, target.width > 0 && target.height > 0 ? widestIn(target) : 0.0};
}

void lay(const LayerView& view, const Homography& sceneFromFrame, const FocusSetting& setting, const DiscKernels& discs,
         Picture& picture)
{
    const FocusLayer& layer = *view.layer;
    const _Rect<int>& target = view.target;
    const int reach = discs.reach(static_cast<float>(view.widest));
    const _Rect<int> seen = grown(target, reach);
    _ImageData<PixelRGBA<float>> sharp(seen.size(), ColorProfileType::None());
    const auto sampleRow = [&](int y) {
        const RowPlaces places(sceneFromFrame, seen.y + y);
        for (int x = 0; x < seen.width; ++x) {
            const auto place = places(seen.x + x);
            sharp.row(y)[x] = layer.sample(place.x, place.y);
        }
    };
    forEachRow(seen.height, sampleRow);
    const auto layRow = [&](int y) {
        PixelRGB<float>* row = picture.row(target.y + y) + target.x;
        const PixelRGBA<float>* middle = sharp.row(y + reach) + reach;
        const RowPlaces places(sceneFromFrame, target.y + y);
        for (int x = 0; x < target.width; ++x) {
            const float radius = blurRadius(setting, layer.dioptres, places(target.x + x));
            const auto over = discs.mean(middle + x, seen.width, radius);
            const float rest = 1.0f - over.a;
            row[x] = {row[x].r * rest + over.r, row[x].g * rest + over.g, row[x].b * rest + over.b};
        }
    };
    forEachRow(target.height, layRow);
}

} // namespace

FocusSetting focusSetting(const FocusLens& lens, double focusDistance)
{
    checkLens(lens, focusDistance, focusDistance);
    const double focalLength = lens.focalLength / 1000.0; // m
    const double opening = focalLength / lens.aperture;   // m across
    const double imageDistance = focalLength * focusDistance / (focusDistance - focalLength);
    return {1.0 / focusDistance, opening * imageDistance / (lens.pixelPitch / 1000.0)};
}

double circleOfConfusion(const FocusLens& lens, double focus, double distance)
{
    checkLens(lens, focus, distance);
    const FocusSetting setting = focusSetting(lens, focus);
    return setting.perDioptre * std::abs(1.0 / distance - setting.focus);
}

PixelRGBA<float> FocusLayer::sample(double x, double y) const
{
    double gridX = x - left;
    double gridY = y - top;
    const double lastX = grid->width() - 1 - kSplineReach;
    const double lastY = grid->height() - 1 - kSplineReach;
    if (endless) {
        gridX = std::clamp(gridX, 1.0, lastX);
        gridY = std::clamp(gridY, 1.0, lastY);
    } else if (!(gridX >= 1.0 && gridX <= lastX && gridY >= 1.0 && gridY <= lastY)) {
        return {};
    }
    const int column = static_cast<int>(gridX);
    const int line = static_cast<int>(gridY);
    const SplineWeights across(static_cast<float>(gridX - column));
    const SplineWeights down(static_cast<float>(gridY - line));
    float sum[4] = {};
    for (int j = 0; j < 4; ++j) {
        const float* row = &(grid->row(line - 1 + j) + (column - 1))->r;
        for (int k = 0; k < 4; ++k)
            sum[k] += down.w[j] * ((across.w[0] * row[k] + across.w[1] * row[k + 4]) +
                                   (across.w[2] * row[k + 8] + across.w[3] * row[k + 12]));
    }
    return {sum[0], sum[1], sum[2], sum[3]};
}

_Rect<double> FocusLayer::bounds() const
{
    return {left + 1.0, top + 1.0, grid->width() - 2.0 - kSplineReach, grid->height() - 2.0 - kSplineReach};
}

FocusScene::FocusScene(_Size<int> size, std::uint64_t seed, double texture) : extent(size)
{
    const Placing placing(size);
    const auto things = focusThings();
    layers.reserve(things.size());
    std::uint32_t number = 0;
    for (const Thing& thing : things) {
        const _Rect<int> rect = gridRect(thing, placing, size);
        constexpr int kSmallestGrid = 2 + kSplineReach; // smaller: no room for the spline, outside the picture
        if (rect.width < kSmallestGrid || rect.height < kSmallestGrid)
            continue;
        const std::uint32_t own = mixBits(static_cast<std::int32_t>(seed & 0xffffffffu),
                                          static_cast<std::int32_t>(seed >> 32), 131u + number++);
        layers.push_back(painted(thing, placing, rect, own, static_cast<float>(texture)));
    }
}

std::shared_ptr<Picture> FocusScene::light(const Homography& sceneFromFrame, const FocusSetting& setting) const
{
    auto picture = std::make_shared<Picture>(extent, PixelRGB<float>{}, ColorProfileType::linearSRGB());
    std::vector<LayerView> views;
    double widest = 0.0;
    for (const FocusLayer& layer : layers) {
        views.push_back(viewOf(layer, sceneFromFrame, setting, extent));
        widest = std::max(widest, views.back().widest);
    }
    const DiscKernels discs(widest);
    for (const LayerView& view : views)
        if (view.target.width > 0 && view.target.height > 0)
            lay(view, sceneFromFrame, setting, discs, *picture);
    return picture;
}

std::shared_ptr<_ImageData<float>> FocusScene::dioptres(const Homography& sceneFromFrame) const
{
    auto map = std::make_shared<_ImageData<float>>(extent, ColorProfileType::None());
    const auto findRow = [&](int y) {
        const RowPlaces places(sceneFromFrame, y);
        for (int x = 0; x < extent.width; ++x) {
            const auto place = places(x);
            float unseen = 1.0f; // share of the pixel that nothing nearer covers
            float most = -1.0f;
            for (auto layer = layers.rbegin(); layer != layers.rend(); ++layer) {
                const float cover = layer->sample(place.x, place.y).a;
                if (unseen * cover > most) {
                    most = unseen * cover;
                    map->row(y)[x] = static_cast<float>(layer->dioptres(place.x, place.y));
                }
                unseen *= 1.0f - cover;
            }
        }
    };
    forEachRow(extent.height, findRow);
    return map;
}

} // namespace orvo::scenes
