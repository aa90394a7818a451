/// Points of the plane in a binary tree, so that distant groups can be treated as one point.
#pragma once

#include <cstdint>
#include <vector>

namespace orvo::detail {

/// A group of consecutive points. Nodes are in depth-first order: the first child follows its parent, and `next` is the
/// node to continue with when the children are skipped.
struct PlaceNode
{
    float x; ///< mean of the points
    float y;
    float radius; ///< of a circle around (x, y) that contains all points
    int first;    ///< points first up to but excluding last
    int last;
    int next;
    bool leaf;
};

/// Sort key that keeps close points together: the interleaved bits of x and y (Morton order).
[[nodiscard]] constexpr std::uint64_t nearnessKey(std::uint32_t x, std::uint32_t y)
{
    const auto spread = [](std::uint64_t v) {
        v = (v | v << 16) & 0x0000FFFF0000FFFFULL;
        v = (v | v << 8) & 0x00FF00FF00FF00FFULL;
        v = (v | v << 4) & 0x0F0F0F0F0F0F0F0FULL;
        v = (v | v << 2) & 0x3333333333333333ULL;
        return (v | v << 1) & 0x5555555555555555ULL;
    };
    return spread(x) | spread(y) << 1;
}

/// Appends the tree over the points from `first` up to but excluding `last`, at most `leafSize` per leaf, to `nodes`.
/// `placeAt(i)` returns an object with floats x and y; neighbours in the order should be close in the plane.
template <typename PlaceAt>
void growPlaceTree(std::vector<PlaceNode>& nodes, int first, int last, int leafSize, const PlaceAt& placeAt);

} // namespace orvo::detail

#include <algorithm>
#include <cmath>

template <typename PlaceAt>
void orvo::detail::growPlaceTree(std::vector<PlaceNode>& nodes, int first, int last, int leafSize,
                                 const PlaceAt& placeAt)
{
    double x = 0.0;
    double y = 0.0;
    for (int i = first; i < last; ++i) {
        x += static_cast<double>(placeAt(i).x);
        y += static_cast<double>(placeAt(i).y);
    }
    PlaceNode node = {};
    node.x = static_cast<float>(x / (last - first));
    node.y = static_cast<float>(y / (last - first));
    for (int i = first; i < last; ++i)
        node.radius = std::max(node.radius, std::hypot(placeAt(i).x - node.x, placeAt(i).y - node.y));
    node.first = first;
    node.last = last;
    node.leaf = last - first <= leafSize;
    const std::size_t self = nodes.size();
    nodes.push_back(node);
    if (!node.leaf) {
        const int middle = first + (last - first) / 2;
        growPlaceTree(nodes, first, middle, leafSize, placeAt);
        growPlaceTree(nodes, middle, last, leafSize, placeAt);
    }
    nodes[self].next = static_cast<int>(nodes.size());
}
