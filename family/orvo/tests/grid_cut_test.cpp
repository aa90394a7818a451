// The cheapest cut of a grid, against all cuts of small grids.
#include "filling/grid_cut.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

namespace {

using orvo::details::GridCut;

constexpr int kWidth = 4;
constexpr int kHeight = 3;
constexpr int kNodes = kWidth * kHeight;

struct Edge
{
    int from;
    GridCut::Direction direction;
    int to;
    float cost;
};

struct Problem
{
    std::vector<float> sinkCosts;
    std::vector<Edge> edges;

    // `sides`: a bit for each node, set on the side of the sink.
    [[nodiscard]] float costOf(unsigned sides) const
    {
        float sum = 0.0f;
        for (int node = 0; node < kNodes; ++node)
            if ((sides >> node & 1u) != 0)
                sum += sinkCosts[static_cast<std::size_t>(node)];
        for (const Edge& edge : edges)
            if ((sides >> edge.from & 1u) == 0 && (sides >> edge.to & 1u) != 0)
                sum += edge.cost;
        return sum;
    }

    [[nodiscard]] unsigned cut() const
    {
        GridCut grid(kNodes);
        for (int node = 0; node < kNodes; ++node)
            grid.addSinkCost(node, sinkCosts[static_cast<std::size_t>(node)]);
        for (const Edge& edge : edges)
            grid.connect(edge.from, edge.direction, edge.to, edge.cost);
        grid.cut();
        unsigned sides = 0;
        for (int node = 0; node < kNodes; ++node)
            sides |= grid.onSinkSide(node) ? 1u << node : 0u;
        return sides;
    }
};

// Small whole numbers, so that sums are exact and many cuts cost the same; many are 0, so that some nodes reach neither
// end.
Problem randomProblem(std::mt19937& random)
{
    const auto upTo = [&](int most) { return static_cast<float>(random() % static_cast<unsigned>(most + 1)); };
    Problem problem;
    for (int node = 0; node < kNodes; ++node) {
        problem.sinkCosts.push_back(upTo(1) * (upTo(12) - 6.0f));
        if (node % kWidth + 1 < kWidth)
            problem.edges.push_back({node, GridCut::Right, node + 1, upTo(1) * upTo(5)});
        if (node + kWidth < kNodes)
            problem.edges.push_back({node, GridCut::Down, node + kWidth, upTo(1) * upTo(5)});
    }
    return problem;
}

TEST(GridCut, NoCutIsCheaper)
{
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        const Problem problem = randomProblem(random);
        float least = 0.0f;
        for (unsigned sides = 0; sides < 1u << kNodes; ++sides)
            least = std::min(least, problem.costOf(sides));
        ASSERT_EQ(problem.costOf(problem.cut()), least) << "round " << round;
    }
}

TEST(GridCut, WhatCostsNothingEitherWayStaysWithTheSource)
{
    EXPECT_EQ((Problem{std::vector<float>(kNodes, 0.0f), {}}.cut()), 0u);
}

} // namespace
