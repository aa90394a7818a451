#include "upscaling/cubic_rows.hpp"

#include "common/catmull_rom.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>

namespace orvo::details {
namespace {

constexpr int kBandRows = 32; // share scratch rows

template <typename T>
constexpr int kChannels = static_cast<int>(sizeof(T) / sizeof(float));

// Calls `body(first, last)` for bands of rows; false once `run` is cancelled.
template <typename Body>
bool forEachBand(int height, const RunControl& run, const Body& body)
{
    std::atomic<bool> stopped = false;
    forEachRow((height + kBandRows - 1) / kBandRows, [&](int band) {
        if (run.cancelled()) {
            stopped.store(true, std::memory_order_relaxed);
            return;
        }
        body(band * kBandRows, std::min(height, (band + 1) * kBandRows));
    });
    return !stopped;
}

} // namespace

template <typename T>
CubicRows<T>::CubicRows(const _ImageData<T>& source_, int scale_) : source(source_), scale(scale_)
{
    for (int i = 0; i < scale; ++i) {
        const double at = (i + 0.5) / scale - 0.5;
        const double before = std::floor(at);
        const auto weights = catmullRom(static_cast<float>(at - before));
        places.push_back({static_cast<int>(before) - 1, {weights[0], weights[1], weights[2], weights[3]}});
    }
}

template <typename T>
void CubicRows<T>::write(int y, T* scratch, T* row) const
{
    const int last = source.height() - 1;
    const Place& down = places[static_cast<std::size_t>(y % scale)];
    const auto sourceRow = [&](int i) {
        return reinterpret_cast<const float*>(source.row(std::clamp(y / scale + down.first + i, 0, last)));
    };
    const float* const a = sourceRow(0);
    const float* const b = sourceRow(1);
    const float* const c = sourceRow(2);
    const float* const d = sourceRow(3);
    float* const mixed = reinterpret_cast<float*>(scratch);
    const int samples = source.width() * kChannels<T>;
    for (int i = 0; i < samples; ++i)
        mixed[i] = down.weights[0] * a[i] + down.weights[1] * b[i] + down.weights[2] * c[i] + down.weights[3] * d[i];
    float* out = reinterpret_cast<float*>(row);
    for (int x = 0; x < source.width(); ++x)
        for (const Place& across : places) {
            const auto sample = [&](int i) {
                return mixed + std::clamp(x + across.first + i, 0, source.width() - 1) * kChannels<T>;
            };
            const float* const p = sample(0);
            const float* const q = sample(1);
            const float* const r = sample(2);
            const float* const s = sample(3);
            for (int channel = 0; channel < kChannels<T>; ++channel)
                *out++ = across.weights[0] * p[channel] + across.weights[1] * q[channel] +
                         across.weights[2] * r[channel] + across.weights[3] * s[channel];
        }
}

template class CubicRows<PixelRGB<float>>;
template class CubicRows<float>;

bool enlargeByCubic(const _ImageData<PixelRGB<float>>& source, int scale, _ImageData<PixelRGB<float>>& target,
                    const RunControl& run)
{
    const CubicRows<PixelRGB<float>> rows(source, scale);
    return forEachBand(target.height(), run, [&](int first, int last) {
        const ManagedPlane<PixelRGB<float>> scratch(static_cast<std::size_t>(source.width()));
        for (int y = first; y < last; ++y)
            rows.write(y, scratch.data(), target.row(y));
    });
}

bool blendWithCubic(const _ImageData<PixelRGB<float>>& source, const _ImageData<float>& mask, int scale,
                    _ImageData<PixelRGB<float>>& target, const RunControl& run)
{
    const CubicRows<PixelRGB<float>> plain(source, scale);
    const CubicRows<float> weights(mask, scale);
    return forEachBand(target.height(), run, [&](int first, int last) {
        const auto width = static_cast<std::size_t>(target.width());
        const ManagedPlane<PixelRGB<float>> scratch(static_cast<std::size_t>(source.width()));
        const ManagedPlane<PixelRGB<float>> plainRow(width);
        const ManagedPlane<float> weightScratch(static_cast<std::size_t>(source.width()));
        const ManagedPlane<float> weightRow(width);
        for (int y = first; y < last; ++y) {
            plain.write(y, scratch.data(), plainRow.data());
            weights.write(y, weightScratch.data(), weightRow.data());
            PixelRGB<float>* const row = target.row(y);
            for (std::size_t x = 0; x < width; ++x) {
                const PixelRGB<float> p = plainRow[x];
                const float weight = weightRow[x];
                if (!(weight > 0.0f))
                    row[x] = p;
                else if (weight < 1.0f)
                    row[x] = {p.r + weight * (row[x].r - p.r), p.g + weight * (row[x].g - p.g),
                              p.b + weight * (row[x].b - p.b)};
            }
        }
    });
}

} // namespace orvo::details
