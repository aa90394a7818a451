/// The cheapest cut of a grid into two sides.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <vector>

namespace orvo::details {

/// Minimum cut between a source and a sink over nodes that have up to four neighbours: search trees from both ends,
/// grown and mended as paths fill up (Boykov, Kolmogorov, PAMI 2004).
///
/// cv::detail::GCGraph does the same, but leaves a node that neither tree reaches at the end on the side where it was
/// last, so that its cut is not always the cheapest. Here such nodes stay with the source.
class GridCut
{
public:
    enum Direction : std::uint8_t
    {
        Right,
        Left,
        Down,
        Up
    };

    explicit GridCut(std::size_t nodes);

    /// Adds `cost` for being on the side of the sink; a negative one counts against the side of the source.
    void addSinkCost(int node, float cost) { nodeAt(node).terminal += cost; }
    /// Makes `to` the neighbour of `from` in `direction`, Right or Down. `cost` >= 0 counts where `from` is on the side
    /// of the source and `to` on that of the sink.
    void connect(int from, Direction direction, int to, float cost);

    /// Call once, before onSinkSide().
    void cut();
    [[nodiscard]] bool onSinkSide(int node) const { return nodes[static_cast<std::size_t>(node)].tree == Tree::Sink; }

private:
    enum class Tree : std::uint8_t
    {
        None,
        Source,
        Sink
    };
    static constexpr std::int8_t kNone = -1;     // no parent: free or an orphan
    static constexpr std::int8_t kTerminal = -2; // the source or the sink itself

    struct Node
    {
        std::array<int, 4> neighbours = {-1, -1, -1, -1};
        std::array<float, 4> room{}; // what can still flow to each neighbour
        float terminal = 0.0f;       // the same from the source; negative: to the sink
        Tree tree = Tree::None;
        std::int8_t parent = kNone; // direction
        bool active = false;
    };

    static std::size_t opposite(std::size_t direction) { return direction ^ 1u; }

    Node& nodeAt(int i) { return nodes[static_cast<std::size_t>(i)]; }
    // What can flow along a branch of `tree` from a node towards its neighbour, away from the root.
    float& roomAway(Tree tree, int node, std::size_t direction);
    int parentOf(int node) { return nodeAt(node).neighbours[static_cast<std::size_t>(nodeAt(node).parent)]; }
    void activate(int node);
    void grow(int node);
    void augment(int sourceNode, std::size_t direction);
    float roomToRoot(int node);
    void takeToRoot(int node, float flow);
    void makeOrphan(int node);
    void adoptOrphans();
    bool findParent(int node);
    [[nodiscard]] bool reachesRoot(int node);

    std::vector<Node> nodes;
    std::deque<int> activeNodes;
    std::vector<int> orphans;
};

} // namespace orvo::details
