/// The pictures of one camera, in the order of capture.
#pragma once

#include "grouping/framing.hpp"
#include "grouping/picture_facts.hpp"

#include <cstddef>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace orvo {

struct Shot
{
    PictureFacts facts;
    Thumbnail thumbnail;
};

/// Compares the framings of shots, each pair once.
class Shots
{
public:
    explicit Shots(std::vector<Shot> shots_) : shots(std::move(shots_)) {}

    [[nodiscard]] std::size_t size() const { return shots.size(); }
    [[nodiscard]] const Shot& operator[](std::size_t i) const { return shots[i]; }
    [[nodiscard]] const PictureFacts& facts(std::size_t i) const { return shots[i].facts; }

    [[nodiscard]] const Framing& framing(std::size_t first, std::size_t second)
    {
        const auto [at, isNew] = known.try_emplace({first, second});
        if (isNew)
            at->second = compareFramings(shots[first].thumbnail, shots[second].thumbnail);
        return at->second;
    }

    /// Of the tiles that both show; pictures whose framings cannot be compared are taken to lie on each other.
    [[nodiscard]] std::optional<TileChange> change(std::size_t first, std::size_t second)
    {
        return tileChange(shots[first].thumbnail.tiles, shots[second].thumbnail.tiles,
                          framing(first, second).firstFromSecond);
    }

    /// The exposure of a picture without exposure data, once its view is known.
    void setMeasuredEv(std::size_t i, double ev) { shots[i].facts.ev = ev; }

private:
    std::vector<Shot> shots;
    std::map<std::pair<std::size_t, std::size_t>, Framing> known;
};

} // namespace orvo
