/// Enlarging by Catmull-Rom, a row at a time: what upscaling does where it must not be clever.
#pragma once

#include <orvo_core/image_data.hpp>

#include <atomic>
#include <vector>

namespace orvo::details {

/// Rows of a picture enlarged by a whole number, as _ImageData::resize() makes them: sample centres stay where they
/// are, the picture repeats its edge. A row can be asked for from any thread.
template <typename T>
class CubicRows
{
public:
    /// `source` must outlive this.
    CubicRows(const _ImageData<T>& source, int scale);
    /// Writes row `y` of the enlarged picture, source.width() * scale samples. `scratch` holds source.width() samples.
    void write(int y, T* scratch, T* row) const;

private:
    struct Place
    {
        int first; // of the four samples; may lie before the picture
        float weights[4];
    };
    const _ImageData<T>& source;
    int scale;
    std::vector<Place> places; // of the `scale` samples that a sample becomes, told from that sample
};

extern template class CubicRows<PixelRGB<float>>;
extern template class CubicRows<float>;

/// The whole enlarged picture into `target`. Parallel. False on cancel.
[[nodiscard]] bool enlargeByCubic(const _ImageData<PixelRGB<float>>& source, int scale,
                                  _ImageData<PixelRGB<float>>& target, const std::atomic<bool>* cancel);

/// Puts `source`, enlarged by Catmull-Rom, into `target` where `mask`, enlarged alike, is 0; leaves `target` where it
/// is 1; mixes between. The mask has the size of `source`, its values are limited to 0..1, what is no number counts as
/// 0. Parallel over bands; some rows of scratch for each thread. False on cancel.
[[nodiscard]] bool blendWithCubic(const _ImageData<PixelRGB<float>>& source, const _ImageData<float>& mask, int scale,
                                  _ImageData<PixelRGB<float>>& target, const std::atomic<bool>* cancel);

} // namespace orvo::details
