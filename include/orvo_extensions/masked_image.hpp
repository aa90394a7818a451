/// A picture with a state for each pixel, as exchanged by the editor's retouching algorithms. The names are global
/// because those algorithms expect them there.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_common/memory_manager.hpp>

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

/// One sample: colour and state. 1.0 is full scale.
struct ORVO_EXPORT pixel_t
{
    /// Values of `mask`.
    static constexpr unsigned char kClear = 0;
    static constexpr unsigned char kMasked = 1;
    static constexpr unsigned char kForbidden = 2;
    static constexpr unsigned char kProcessed = 3;

    /// Initialises nothing, so that a large plane needs no extra pass.
    pixel_t() {} // NOLINT(modernize-use-equals-default): a defaulted one would set zeros in pixel_t{}
    /// Sets the colour; everything else is 0.
    pixel_t(float red, float green, float blue) : r(red), g(green), b(blue), further{0, 0}, mask(kClear) {}

    float r;
    float g;
    float b;
    std::uint32_t further[2]; ///< reserved for the algorithms
    unsigned char mask;       ///< kClear to kProcessed
};

/// A run of pixels.
struct ORVO_EXPORT rle_t
{
    std::int32_t start = 0; ///< index of the first pixel, x + y * width
    std::int16_t length = 0;
};

/// Coefficients of the Walsh transform around a pixel, for a quick comparison of patches.
struct ORVO_EXPORT walsh_t
{
    /// Side of a patch in pixels.
    static constexpr int S = 8;

    /// Sets only `first`, to 0: the algorithms fill the rest.
    walsh_t() : first(0) {} // NOLINT(cppcoreguidelines-pro-type-member-init)

    std::int32_t values[32];
    std::int16_t small[2];
    std::int64_t first;
    std::int64_t second;
};

/// Pixels in rows without gaps, from MemoryManager. Copies are deep. Indices are x + y * width and are not checked;
/// builds without NDEBUG assert them. Reading from several threads is safe.
class ORVO_EXPORT MaskedImage
{
public:
    using Pixels = std::vector<pixel_t, orvo::ManagedAllocator<pixel_t>>;

    /// 0 x 0.
    MaskedImage();
    /// Black, all pixels clear. Throws std::invalid_argument if the size is negative or has more pixels than the 32-bit
    /// start of a run can address, std::bad_alloc.
    MaskedImage(int columns, int rows);
    virtual ~MaskedImage();
    /// Call after changing samples or states, so that derived classes update dependent data. Here: does nothing.
    virtual void commit_changes();

    MaskedImage(const MaskedImage&);
    MaskedImage& operator=(const MaskedImage&);

    [[nodiscard]] int width() const { return imageWidth; }
    [[nodiscard]] int height() const { return imageHeight; }
    /// A number of the algorithms' own, carried by copies; initially 0.
    [[nodiscard]] std::int32_t getTag() const { return tag; }
    void setTag(std::int32_t number) { tag = number; }
    /// The first of width() * height() pixels.
    [[nodiscard]] pixel_t* data() { return pixels.data(); }
    [[nodiscard]] const pixel_t* data() const { return pixels.data(); }

    [[nodiscard]] const pixel_t& getSample(int x, int y) const { return pixels[indexOf(x, y)]; }
    /// Sets all members.
    void setSample(int x, int y, const pixel_t& pixel) { pixels[indexOf(x, y)] = pixel; }
    [[nodiscard]] unsigned char getMask(int x, int y) const { return pixels[indexOf(x, y)].mask; }
    void setMask(int x, int y, unsigned char value) { pixels[indexOf(x, y)].mask = value; }

    [[nodiscard]] bool isClear(int x, int y) const { return getMask(x, y) == pixel_t::kClear; }
    [[nodiscard]] bool isMasked(int x, int y) const { return getMask(x, y) == pixel_t::kMasked; }
    [[nodiscard]] bool isForbidden(int x, int y) const { return getMask(x, y) == pixel_t::kForbidden; }
    [[nodiscard]] bool isProcessed(int x, int y) const { return getMask(x, y) == pixel_t::kProcessed; }

private:
    [[nodiscard]] std::size_t indexOf(int x, int y) const
    {
        assert(x >= 0 && x < imageWidth && y >= 0 && y < imageHeight);
        return static_cast<std::size_t>(x) + static_cast<std::size_t>(y) * static_cast<std::size_t>(imageWidth);
    }

    std::int32_t tag = 0;
    int imageWidth = 0;
    int imageHeight = 0;
    Pixels pixels;
};

/// A MaskedImage with patch comparison data for each pixel.
class ORVO_EXPORT MaskedImageExt : public MaskedImage
{
public:
    /// Full scale of the distance between two patches.
    static constexpr int DSCALE = 65535;

    using Points = std::vector<walsh_t, orvo::ManagedAllocator<walsh_t>>;

    MaskedImageExt();
    MaskedImageExt(int columns, int rows);
    ~MaskedImageExt() override;
    /// Calls init_points().
    void commit_changes() override;

    MaskedImageExt(const MaskedImageExt&);
    MaskedImageExt& operator=(const MaskedImageExt&);

    /// Returns a deep copy.
    [[nodiscard]] std::shared_ptr<MaskedImageExt> copy() const;

    /// Creates a new walsh_t for each pixel and lists the masked pixels as runs, row by row. A run ends at the end of
    /// its row, and is split where its 16-bit length would overflow.
    void init_points();

    /// One per pixel after init_points(), empty before.
    [[nodiscard]] const Points& getPoints() const { return points; }
    /// Sorted by start.
    [[nodiscard]] const std::vector<rle_t>& getRuns() const { return runs; }

private:
    Points points;
    std::vector<rle_t> runs;
};
