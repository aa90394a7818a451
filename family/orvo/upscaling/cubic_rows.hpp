/// Enlarges by Catmull-Rom, a row at a time: the plain part of upscaling.
#pragma once

#include <orvo_common/run_control.hpp>
#include <orvo_core/image_data.hpp>

#include <vector>

namespace orvo::details {

/// Rows of a picture enlarged by an integer, equal to _ImageData::resize(): sample centres keep their positions, the
/// picture repeats its edge. Rows can be requested from any thread.
template <typename T>
class CubicRows
{
public:
    /// `source` must outlive this.
    CubicRows(const _ImageData<T>& source, int scale);
    /// Writes row `y` of the enlarged picture, source.width() * scale samples. `scratch` has source.width() samples.
    void write(int y, T* scratch, T* row) const;

private:
    struct Place
    {
        int first; // of the four samples; may be before the picture
        float weights[4];
    };
    const _ImageData<T>& source;
    int scale;
    std::vector<Place> places; // of the `scale` samples that a sample becomes, relative to that sample
};

extern template class CubicRows<PixelRGB<float>>;
extern template class CubicRows<float>;

/// The whole enlarged picture into `target`. Parallel. False on cancel.
[[nodiscard]] bool enlargeByCubic(const _ImageData<PixelRGB<float>>& source, int scale,
                                  _ImageData<PixelRGB<float>>& target, const RunControl& run);

/// Writes `source`, enlarged by Catmull-Rom, into `target` where `mask`, enlarged the same way, is 0; keeps `target`
/// where it is 1; mixes in between. The mask has the size of `source`; its values are clamped to 0..1, NaN counts as 0.
/// Parallel over bands; some rows of scratch per thread. False on cancel.
[[nodiscard]] bool blendWithCubic(const _ImageData<PixelRGB<float>>& source, const _ImageData<float>& mask, int scale,
                                  _ImageData<PixelRGB<float>>& target, const RunControl& run);

} // namespace orvo::details
