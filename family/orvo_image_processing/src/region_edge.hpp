/// A region of a plane, its parts and its edge. The region may continue beyond the plane.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/pixel.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvo::detail {

enum class Place : std::uint8_t
{
    Outside,
    Inside, ///< all eight neighbours belong to the region
    Known,  ///< on the edge, with a value
    Open,   ///< on the border of the plane, or on the edge with an unusable value
};

/// Pixels of one row, from `first` up to but excluding `last`, in one part of the region.
struct RegionRun
{
    int first;
    int last;
    int part;
};

struct EdgePixel
{
    int x;
    int y;
    int part;
    Place place; ///< Known or Open
};

/// One unit of the polygon through the edge pixels. Seen from the inside, (x, y) to (x + dx, y + dy) runs clockwise on
/// the screen about the region and anticlockwise about its holes.
struct EdgeUnit
{
    int x;
    int y;
    std::int8_t dx;
    std::int8_t dy;
    int part;
};

class RegionEdge
{
public:
    RegionEdge(int width, int height, const unsigned char* region, const PixelRGB<float>* values,
               const std::vector<bool>& ignored);

    [[nodiscard]] int width() const { return columns; }
    [[nodiscard]] int height() const { return rows; }
    [[nodiscard]] const Place* row(int y) const { return places.data() + static_cast<std::ptrdiff_t>(y) * columns; }
    /// The number of parts: connected components by pixel sides.
    [[nodiscard]] int parts() const { return partCount; }
    /// The run of a pixel of the region.
    [[nodiscard]] RegionRun runAt(int x, int y) const;
    /// All edge pixels, row by row.
    [[nodiscard]] std::vector<EdgePixel> pixels() const;
    /// All units of the polygon, row by row. It encloses the squares of four neighbouring pixels of the region.
    [[nodiscard]] std::vector<EdgeUnit> units() const;

private:
    void classify(const unsigned char* region, const PixelRGB<float>* values, const std::vector<bool>& ignored);
    void findRuns();
    void joinRuns();
    [[nodiscard]] bool inRegion(int x, int y) const;
    [[nodiscard]] bool squareAt(int x, int y) const;
    template <typename Take>
    void eachEdgePixel(const Take& take) const;

    int columns;
    int rows;
    ManagedPlane<Place> places;
    std::vector<std::size_t> rowStart; ///< index of each row's first run, and of the end
    std::vector<RegionRun> runs;
    int partCount = 0;
};

} // namespace orvo::detail
