/// Where a picture shows nothing but noise, and how much of it.
#pragma once

#include <orvo_core/image_data.hpp>

#include <array>
#include <atomic>
#include <memory>
#include <vector>

namespace orvo::details {

/// Noise of the blocks of a picture, and what an enlargement made of it. Camera noise differs from place to place (the
/// shadows have more of it once the curve has lifted them), so one figure for a picture would let the noisiest places
/// pass for detail. The same for any number of threads. A block takes some 30 bytes, and there are 2^18 at most.
class NoiseMap
{
public:
    /// Looks at blocks of 16 x 16 all over `source`; a smaller one has none and counts as free of noise.
    explicit NoiseMap(const _ImageData<PixelRGB<float>>& source);

    /// Measures in `enlarged`, `scale` times as wide and high as the source, what became of the noise in the blocks
    /// that showed nothing else. To be called before what follows.
    void measure(const _ImageData<PixelRGB<float>>& enlarged, int scale);

    /// For blendWithCubic(): 0 where bare noise came out of the enlargement stronger than Catmull-Rom leaves it, 1
    /// where it is weaker by a tenth and wherever there is more than noise. Has the size of the source; empty where it
    /// would be 1 all over. From then on the map tells the noise after blending.
    [[nodiscard]] std::shared_ptr<_ImageData<float>> calmingMask();

    /// Deviations of the noise of each channel in row `y` of the enlarged picture, for pixels 0 to `width` - 1. Between
    /// the middles of blocks they are interpolated; blocks with more in them than noise have what is found around them.
    void row(int y, int width, PixelRGB<float>* deviations) const;

private:
    enum class Kind : unsigned char
    {
        Silent, ///< flat without noise, since clipped or drawn
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
