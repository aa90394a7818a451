/// Finds where a picture has nothing but noise, and how much.
#pragma once

#include <orvo_core/image_data.hpp>

#include <array>
#include <atomic>
#include <memory>
#include <vector>

namespace orvo::details {

/// Noise of the blocks of a picture, and of its enlargement. Camera noise varies over a picture (the shadows have more
/// once the curve has lifted them), so with one figure for a picture the noisiest places would pass for detail. The
/// same for any number of threads. A block takes about 30 bytes, and there are at most 2^18.
class NoiseMap
{
public:
    /// Measures blocks of 16 x 16 all over `source`; a smaller picture has none and counts as noise-free.
    explicit NoiseMap(const _ImageData<PixelRGB<float>>& source);

    /// Measures the noise in `enlarged`, `scale` times as wide and high as the source, in the blocks of pure noise.
    /// Call before the members below.
    void measure(const _ImageData<PixelRGB<float>>& enlarged, int scale);

    /// For blendWithCubic(): 0 where pure noise is stronger in the enlargement than Catmull-Rom leaves it, 1 where it
    /// is weaker by a tenth and wherever there is more than noise. Has the size of the source; empty if it would be 1
    /// everywhere. Afterwards the map contains the noise after blending.
    [[nodiscard]] std::shared_ptr<_ImageData<float>> calmingMask();

    /// Deviations of the noise of each channel in row `y` of the enlarged picture, for pixels 0 to `width` - 1.
    /// Interpolated between the centres of blocks; blocks with more than noise use the values around them.
    void row(int y, int width, PixelRGB<float>* deviations) const;

private:
    enum class Kind : unsigned char
    {
        Silent, ///< flat without noise: clipped or synthetic
        Bare,   ///< nothing but noise
        Busy    ///< anything else
    };
    struct Block
    {
        Kind kind = Kind::Silent;
        float before = 0.0f;        ///< deviation in the source, mean square of the channels
        PixelRGB<float> after = {}; ///< deviations in the enlarged picture
    };
    struct Place
    {
        int first;    ///< block at or before the pixel
        float second; ///< share of the block after it
    };

    [[nodiscard]] Block& at(int i, int j);
    [[nodiscard]] const Block& at(int i, int j) const;
    [[nodiscard]] int leftOf(int i) const;
    [[nodiscard]] int topOf(int j) const;
    /// Blocks on both sides of a pixel, or a row, of the source.
    [[nodiscard]] static Place placeOf(float position, int length, int count);
    void fillBusyBlocks();

    _Size<int> size; ///< of the source
    int across = 0;
    int down = 0;
    int scale = 1;
    std::vector<Block> blocks;
};

} // namespace orvo::details
