#include "filling/fill_level.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace orvo::details {
namespace {

constexpr std::size_t kMostListedSources = 1 << 20;

std::size_t pixels(int width, int height) { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }

std::uint8_t toByte(float value)
{
    return static_cast<std::uint8_t>(value > 0.0f ? std::min(value, 1.0f) * 255.0f + 0.5f : 0.0f); // NaN gives 0
}

int luma(Texel t) { return (t.r + 2 * t.g + t.b) / 4; }

// Flags of all patches: `rule` combines the flags of the pixels of a row, then those of the rows.
template <typename Rule>
void joinOverPatches(const ManagedPlane<std::uint8_t>& flags, ManagedPlane<std::uint8_t>& out, int width, int height,
                     const Rule& rule)
{
    const ManagedPlane<std::uint8_t> across(pixels(width, height), true);
    const auto rowOf = [&](const ManagedPlane<std::uint8_t>& plane, int y) { return plane.data() + pixels(width, y); };
    forEachRow(height, [&](int y) {
        const std::uint8_t* const in = rowOf(flags, y);
        std::uint8_t* const to = rowOf(across, y);
        for (int x = 0; x + kPatch <= width; ++x) {
            std::uint8_t joined = in[x];
            for (int i = 1; i < kPatch; ++i)
                joined = rule(joined, in[x + i]);
            to[x] = joined;
        }
    });
    forEachRow(height - kPatch + 1, [&](int y) {
        std::uint8_t* const to = rowOf(out, y);
        std::copy_n(rowOf(across, y), width, to);
        for (int i = 1; i < kPatch; ++i) {
            const std::uint8_t* const in = rowOf(across, y + i);
            for (int x = 0; x < width; ++x)
                to[x] = rule(to[x], in[x]);
        }
    });
}

} // namespace

FillLevel::FillLevel(_Size<int> size)
    : texels(pixels(size.width + 2 * kMargin, size.height + 2 * kMargin) + kPatchLoad, true),
      places(pixels(size.width + 2 * kMargin, size.height + 2 * kMargin)),
      sources(pixels(size.width + 2 * kMargin, size.height + 2 * kMargin), true),
      targets(pixels(size.width + 2 * kMargin, size.height + 2 * kMargin), true),
      known(pixels(size.width + 2 * kMargin, size.height + 2 * kMargin), true),
      depth(pixels(size.width + 2 * kMargin, size.height + 2 * kMargin)), stride(size.width + 2 * kMargin),
      rows(size.height + 2 * kMargin)
{
    std::fill_n(places.data(), pixels(stride, rows), Place::Outside);
}

void FillLevel::markPatches()
{
    const ManagedPlane<std::uint8_t> flags(pixels(stride, rows));
    const auto mark = [&](Place place) {
        forEachRow(rows, [&](int y) {
            for (int x = 0; x < stride; ++x)
                flags[static_cast<std::size_t>(at(x, y))] = places[static_cast<std::size_t>(at(x, y))] == place ? 1 : 0;
        });
    };
    mark(Place::Known);
    joinOverPatches(flags, sources, stride, rows, [](std::uint8_t a, std::uint8_t b) { return std::uint8_t(a & b); });
    joinOverPatches(flags, known, stride, rows, [](std::uint8_t a, std::uint8_t b) { return std::uint8_t(a + b); });
    mark(Place::Hole);
    joinOverPatches(flags, targets, stride, rows, [](std::uint8_t a, std::uint8_t b) { return std::uint8_t(a | b); });
    // A margin pixel is painted if a target can cover it; targets meet the hole inside the picture.
    constexpr int kReach = kPatch - 1;
    forEachRow(rows, [&](int y) {
        for (int x = 0; x < stride; ++x) {
            Place& place = places[static_cast<std::size_t>(at(x, y))];
            if (place != Place::Outside)
                continue;
            for (const int fromY : {y - kReach, y})
                for (const int fromX : {x - kReach, x})
                    if (fromX >= 0 && fromY >= 0 && targets[static_cast<std::size_t>(at(fromX, fromY))] != 0)
                        place = Place::Hole;
        }
    });
    targetSpans.assign(static_cast<std::size_t>(rows), {});
    for (int y = 0; y < rows; ++y) {
        Span& span = targetSpans[static_cast<std::size_t>(y)];
        for (int x = 0; x < stride; ++x) {
            if (targets[static_cast<std::size_t>(at(x, y))] == 0)
                continue;
            if (span.end == 0)
                span.first = x;
            span.end = x + 1;
        }
    }
    sourceCount =
        static_cast<std::size_t>(std::count(sources.data(), sources.data() + pixels(stride, rows), std::uint8_t{1}));
    const std::size_t step = sourceCount / kMostListedSources + 1;
    std::size_t seen = 0;
    someSources.clear();
    for (int i = 0; i < stride * rows; ++i)
        if (sources[static_cast<std::size_t>(i)] != 0 && seen++ % step == 0)
            someSources.push_back(i);
    measureDepth();
}

void FillLevel::measureDepth()
{
    constexpr int kMost = 255;
    const auto centre = kPatch / 2;
    const auto start = [&](int x, int y) {
        const bool inside = x + centre < stride && y + centre < rows;
        return inside && places[static_cast<std::size_t>(at(x + centre, y + centre))] == Place::Known ? 0 : kMost;
    };
    const auto get = [&](int x, int y) -> int {
        return x < 0 || y < 0 || x >= stride || y >= rows ? kMost : depth[static_cast<std::size_t>(at(x, y))];
    };
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < stride; ++x) {
            const int before = std::min({get(x - 1, y), get(x - 1, y - 1), get(x, y - 1), get(x + 1, y - 1)});
            depth[static_cast<std::size_t>(at(x, y))] =
                static_cast<std::uint8_t>(std::min({start(x, y), before + 1, kMost}));
        }
    for (int y = rows - 1; y >= 0; --y)
        for (int x = stride - 1; x >= 0; --x) {
            const int after = std::min({get(x + 1, y), get(x + 1, y + 1), get(x, y + 1), get(x - 1, y + 1)});
            auto& value = depth[static_cast<std::size_t>(at(x, y))];
            value = static_cast<std::uint8_t>(std::min<int>(value, after + 1));
        }
}

namespace {

// Writes the mean luma gradient around each known pixel, times `gain`, to the texture of the texels.
void measureTexture(FillLevel& level, int radius, float gain)
{
    const int width = level.width();
    const int height = level.height();
    // Sums along the row, of gradients and their count: at most (2 * 16 + 1) * 510, so 16 bits suffice.
    const ManagedPlane<std::uint16_t> sums(pixels(width, height), true);
    const ManagedPlane<std::uint16_t> counts(pixels(width, height), true);
    forEachRow(height - 1, [&](int y) {
        std::vector<std::uint16_t> gradient(static_cast<std::size_t>(width));
        std::vector<std::uint16_t> there(static_cast<std::size_t>(width));
        for (int x = 0; x + 1 < width; ++x) {
            const auto i = static_cast<std::size_t>(level.at(x, y));
            const std::size_t below = i + static_cast<std::size_t>(width);
            if (level.places[i] != Place::Known || level.places[i + 1] != Place::Known ||
                level.places[below] != Place::Known)
                continue;
            const int here = luma(level.texels[i]);
            gradient[static_cast<std::size_t>(x)] = static_cast<std::uint16_t>(
                std::abs(luma(level.texels[i + 1]) - here) + std::abs(luma(level.texels[below]) - here));
            there[static_cast<std::size_t>(x)] = 1;
        }
        int sum = 0;
        int count = 0;
        for (int x = -radius; x < width; ++x) {
            if (x + radius < width) {
                sum += gradient[static_cast<std::size_t>(x + radius)];
                count += there[static_cast<std::size_t>(x + radius)];
            }
            if (x - radius - 1 >= 0) {
                sum -= gradient[static_cast<std::size_t>(x - radius - 1)];
                count -= there[static_cast<std::size_t>(x - radius - 1)];
            }
            if (x >= 0) {
                sums[static_cast<std::size_t>(level.at(x, y))] = static_cast<std::uint16_t>(sum);
                counts[static_cast<std::size_t>(level.at(x, y))] = static_cast<std::uint16_t>(count);
            }
        }
    });
    forEachRow(height, [&](int y) {
        std::vector<int> sum(static_cast<std::size_t>(width));
        std::vector<int> count(static_cast<std::size_t>(width));
        for (int from = std::max(0, y - radius); from <= std::min(height - 1, y + radius); ++from) {
            const std::uint16_t* const s = sums.data() + pixels(width, from);
            const std::uint16_t* const c = counts.data() + pixels(width, from);
            for (std::size_t x = 0; x < static_cast<std::size_t>(width); ++x) {
                sum[x] += s[x];
                count[x] += c[x];
            }
        }
        Texel* const row = level.texels.data() + pixels(width, y);
        for (std::size_t x = 0; x < static_cast<std::size_t>(width); ++x) {
            const float mean = count[x] == 0 ? 0.0f : static_cast<float>(sum[x]) / static_cast<float>(count[x]);
            row[x].texture = toByte(gain * mean / 255.0f);
        }
    });
}

} // namespace

FillLevel finestLevel(const _ImageData<PixelRGB<float>>& picture, const Hole& hole, const _Rect<int>& window,
                      int textureRadius, float textureGain)
{
    FillLevel level(window.size());
    constexpr int kMargin = FillLevel::kMargin;
    forEachRow(window.height, [&](int y) {
        const PixelRGB<float>* const in = picture.row(window.y + y) + window.x;
        const std::uint8_t* const inHole = hole.row(window.y + y) + window.x;
        const auto first = static_cast<std::size_t>(level.at(kMargin, kMargin + y));
        for (int x = 0; x < window.width; ++x) {
            const std::size_t i = first + static_cast<std::size_t>(x);
            level.places[i] = inHole[x] != 0                                ? Place::Hole
                              : hole.hasContent(window.x + x, window.y + y) ? Place::Known
                                                                            : Place::Outside;
            level.texels[i] = {toByte(in[x].r), toByte(in[x].g), toByte(in[x].b), 0};
        }
    });
    if (textureGain > 0.0f)
        measureTexture(level, textureRadius, textureGain);
    level.markPatches();
    return level;
}

FillLevel coarserLevel(const FillLevel& fine)
{
    const _Size<int> from = fine.inner();
    FillLevel level({(from.width + 1) / 2, (from.height + 1) / 2});
    constexpr int kMargin = FillLevel::kMargin;
    constexpr int kTaps[] = {1, 3, 3, 1};
    forEachRow(level.inner().height, [&](int y) {
        for (int x = 0; x < level.inner().width; ++x) {
            int weight = 0;
            int r = 0;
            int g = 0;
            int b = 0;
            int texture = 0;
            Place place = Place::Known;
            for (int dy = 0; dy < 4; ++dy)
                for (int dx = 0; dx < 4; ++dx) {
                    const auto i = static_cast<std::size_t>(
                        fine.at(kMargin + 2 * x - 1 + dx, kMargin + 2 * y - 1 + dy)); // the margin is wide enough
                    const bool inBlock = (dx == 1 || dx == 2) && (dy == 1 || dy == 2);
                    const bool inPicture = 2 * x - 1 + dx < from.width && 2 * y - 1 + dy < from.height;
                    if (fine.places[i] != Place::Known) {
                        if (inBlock && inPicture && place != Place::Hole)
                            place = fine.places[i];
                        continue;
                    }
                    const int w = kTaps[dx] * kTaps[dy];
                    const Texel t = fine.texels[i];
                    weight += w;
                    r += w * t.r;
                    g += w * t.g;
                    b += w * t.b;
                    texture += w * t.texture;
                }
            const auto to = static_cast<std::size_t>(level.at(kMargin + x, kMargin + y));
            level.places[to] = place;
            if (weight == 0)
                continue;
            const auto mean = [&](int sum) { return static_cast<std::uint8_t>((sum + weight / 2) / weight); };
            level.texels[to] = {mean(r), mean(g), mean(b), mean(texture)};
        }
    });
    level.markPatches();
    return level;
}

} // namespace orvo::details
