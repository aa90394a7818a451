#include "filling/grid_cut.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace orvo::details {

GridCut::GridCut(std::size_t count) : nodes(count) {}

void GridCut::connect(int from, Direction direction, int to, float cost)
{
    nodeAt(from).neighbours[direction] = to;
    nodeAt(from).room[direction] = cost;
    nodeAt(to).neighbours[opposite(direction)] = from;
}

float& GridCut::roomAway(Tree tree, int node, std::size_t direction)
{
    Node& n = nodeAt(node);
    return tree == Tree::Source ? n.room[direction] : nodeAt(n.neighbours[direction]).room[opposite(direction)];
}

void GridCut::activate(int node)
{
    if (nodeAt(node).active)
        return;
    nodeAt(node).active = true;
    activeNodes.push_back(node);
}

void GridCut::cut()
{
    for (int i = 0; i < static_cast<int>(nodes.size()); ++i) {
        Node& node = nodeAt(i);
        if (node.terminal == 0.0f)
            continue;
        node.tree = node.terminal > 0.0f ? Tree::Source : Tree::Sink;
        node.parent = kTerminal;
        activate(i);
    }
    while (!activeNodes.empty()) {
        const int node = activeNodes.front();
        activeNodes.pop_front();
        nodeAt(node).active = false;
        grow(node);
    }
}

void GridCut::grow(int node)
{
    for (std::size_t direction = 0; direction < 4; ++direction) {
        const int other = nodeAt(node).neighbours[direction];
        // Each path fills some part; the node may lose its tree by that.
        while (other >= 0 && nodeAt(node).tree != Tree::None && roomAway(nodeAt(node).tree, node, direction) > 0.0f) {
            const Tree tree = nodeAt(node).tree;
            if (nodeAt(other).tree == tree)
                break;
            if (nodeAt(other).tree == Tree::None) {
                nodeAt(other).tree = tree;
                nodeAt(other).parent = static_cast<std::int8_t>(opposite(direction));
                activate(other);
                break;
            }
            if (tree == Tree::Source)
                augment(node, direction);
            else
                augment(other, opposite(direction));
            adoptOrphans();
        }
    }
}

void GridCut::augment(int sourceNode, std::size_t direction)
{
    const int sinkNode = nodeAt(sourceNode).neighbours[direction];
    float& between = nodeAt(sourceNode).room[direction];
    const float flow = std::min({between, roomToRoot(sourceNode), roomToRoot(sinkNode)});
    between -= flow;
    nodeAt(sinkNode).room[opposite(direction)] += flow;
    takeToRoot(sourceNode, flow);
    takeToRoot(sinkNode, flow);
}

float GridCut::roomToRoot(int node)
{
    const Tree tree = nodeAt(node).tree;
    float room = std::numeric_limits<float>::max();
    while (nodeAt(node).parent != kTerminal) {
        const auto up = static_cast<std::size_t>(nodeAt(node).parent);
        const int parent = parentOf(node);
        room = std::min(room, roomAway(tree, parent, opposite(up)));
        node = parent;
    }
    return std::min(room, std::abs(nodeAt(node).terminal));
}

void GridCut::takeToRoot(int node, float flow)
{
    const Tree tree = nodeAt(node).tree;
    while (nodeAt(node).parent != kTerminal) {
        const auto up = static_cast<std::size_t>(nodeAt(node).parent);
        const int parent = parentOf(node);
        float& room = roomAway(tree, parent, opposite(up));
        room -= flow;
        // Back along the same edge.
        (tree == Tree::Source ? nodeAt(node).room[up] : nodeAt(parent).room[opposite(up)]) += flow;
        if (room <= 0.0f)
            makeOrphan(node);
        node = parent;
    }
    float& terminal = nodeAt(node).terminal;
    terminal -= tree == Tree::Source ? flow : -flow;
    if (terminal == 0.0f)
        makeOrphan(node);
}

void GridCut::makeOrphan(int node)
{
    nodeAt(node).parent = kNone;
    orphans.push_back(node);
}

void GridCut::adoptOrphans()
{
    while (!orphans.empty()) {
        const int node = orphans.back();
        orphans.pop_back();
        if (findParent(node))
            continue;
        const Tree tree = nodeAt(node).tree;
        for (std::size_t direction = 0; direction < 4; ++direction) {
            const int other = nodeAt(node).neighbours[direction];
            if (other < 0 || nodeAt(other).tree != tree)
                continue;
            if (roomAway(tree, other, opposite(direction)) > 0.0f)
                activate(other); // may grow here again
            if (nodeAt(other).parent >= 0 && parentOf(other) == node)
                makeOrphan(other);
        }
        nodeAt(node).tree = Tree::None;
    }
}

bool GridCut::findParent(int node)
{
    const Tree tree = nodeAt(node).tree;
    for (std::size_t direction = 0; direction < 4; ++direction) {
        const int other = nodeAt(node).neighbours[direction];
        if (other < 0 || nodeAt(other).tree != tree || roomAway(tree, other, opposite(direction)) <= 0.0f ||
            !reachesRoot(other))
            continue;
        nodeAt(node).parent = static_cast<std::int8_t>(direction);
        return true;
    }
    return false;
}

bool GridCut::reachesRoot(int node)
{
    while (nodeAt(node).parent >= 0)
        node = parentOf(node);
    return nodeAt(node).parent == kTerminal;
}

} // namespace orvo::details
