/// Small values that layers, an image processor and a view exchange.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <array>
#include <cstdint>
#include <memory>

namespace orvo {

/// How to process a layer. Only passed on here.
struct ORVO_EXPORT ProcessConfig
{
    std::int32_t mode = 1;
    std::uint64_t first = 0;
    std::uint64_t second = 0;
};

/// A rendered picture. A record; copies share the pictures.
struct ORVO_EXPORT RenderResult
{
    std::shared_ptr<const _ImageData<PixelRGB<float>>> image;
    std::shared_ptr<const _ImageData<PixelRGB<float>>> unedited; ///< before any edit; may be empty
    bool final = false;                                          ///< the last result of this render
};

/// How to render a picture. Only passed on here.
struct ORVO_EXPORT RenderConfig
{
    bool flag = false;
};

/// The count of each value in an 8-bit picture, per channel. A plain block of memory.
struct ORVO_EXPORT ImageHistogram
{
    static constexpr int _numBins = 256;
    static constexpr int _countChannel = 4; ///< red, green, blue, luminance
    static constexpr int _kScale = 1;
    static constexpr int _maxPixelValue = 255;

    std::array<std::array<std::uint32_t, _numBins>, _countChannel> counts{};
};

} // namespace orvo
