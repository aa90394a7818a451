#include "filling/seam_colours.hpp"

#include "filling/ballot.hpp"
#include "filling/gentle_shading.hpp"
#include "filling/membrane.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace orvo::details {
namespace {

// Unit of the stored steps, as a fraction of full scale; a step above 1 is no seam.
constexpr float kUnit = 1.0f / 30000.0f;
// A step of this size has half weight: larger ones are mismatched edges, and evening them out would smear them.
constexpr float kEdge = 0.12f;
// The same where there is no structure that could be an edge.
constexpr float kGentleEdge = 0.3f;
constexpr float kMostGentle = 255.0f; // unit of the stored gentleness
// Where a known pixel beside the hole differs by more from its surroundings, it is less likely light to continue than
// the rest of a wire or of an outline that the mask does not cover.
constexpr float kStray = 0.1f;

PixelRGB<float> operator-(const PixelRGB<float>& a, const PixelRGB<float>& b)
{
    return {a.r - b.r, a.g - b.g, a.b - b.b};
}

PixelRGB<float> operator+(const PixelRGB<float>& a, const PixelRGB<float>& b)
{
    return {a.r + b.r, a.g + b.g, a.b + b.b};
}

// `share` of b, the rest of a.
PixelRGB<float> mixed(const PixelRGB<float>& a, const PixelRGB<float>& b, float share)
{
    const PixelRGB<float> d = b - a;
    return {a.r + share * d.r, a.g + share * d.g, a.b + share * d.b};
}

float greatest(const PixelRGB<float>& p) { return std::max({std::abs(p.r), std::abs(p.g), std::abs(p.b)}); }

// How surely a pixel does not belong to its surroundings, from 0 to 1.
float strayness(const PixelRGB<float>& difference)
{
    const float size = greatest(difference) / kStray;
    const float fourth = size * size * size * size;
    return fourth / (1.0f + fourth);
}

// Of each channel, the value nearest to zero from a to b.
PixelRGB<float> leastBetween(const PixelRGB<float>& a, const PixelRGB<float>& b)
{
    const auto least = [](float from, float to) { return std::clamp(0.0f, std::min(from, to), std::max(from, to)); };
    return {least(a.r, b.r), least(a.g, b.g), least(a.b, b.b)};
}

// What the votes for a pixel say about it and its neighbours.
class Sources
{
public:
    Sources(const FillLevel& level_, const _Rect<int>& window_, const _ImageData<PixelRGB<float>>& painted_,
            const GentleShading& shading_)
        : level(level_), window(window_), painted(painted_), shading(shading_)
    {}

    struct Mean
    {
        PixelRGB<float> colour; // without grain and fine texture
        float gentleness = 0.0f;
    };
    [[nodiscard]] Mean meanOf(const Ballot& ballot) const
    {
        float sum = 0.0f;
        Mean mean;
        for (const Ballot::Vote& vote : ballot.votes()) {
            const auto [x, y] = placeOf(vote);
            add(mean.colour, vote.weight, shading.colourAt(x, y));
            mean.gentleness += vote.weight * shading.at(x, y).gentleness;
            sum += vote.weight;
        }
        return {divided(mean.colour, sum), mean.gentleness / sum};
    }

    struct Step
    {
        PixelRGB<float> whole;
        PixelRGB<float> gentle; // the part of it without grain and fine texture
    };
    // To the neighbour at (dx, dy); nothing if no vote covers both pixels.
    [[nodiscard]] std::optional<Step> stepTo(const Ballot& ballot, int dx, int dy) const
    {
        float sum = 0.0f;
        Step step;
        for (const Ballot::Vote& vote : ballot.votes()) {
            if (vote.column + dx >= kPatch || vote.row + dy >= kPatch)
                continue;
            const auto [x, y] = placeOf(vote);
            const GentleShading::Change& change = shading.at(x, y);
            add(step.whole, vote.weight, painted.row(y + dy)[x + dx] - painted.row(y)[x]);
            add(step.gentle, vote.weight, dx > 0 ? change.right : change.below);
            sum += vote.weight;
        }
        if (sum <= 0.0f)
            return {};
        return Step{divided(step.whole, sum), divided(step.gentle, sum)};
    }

private:
    [[nodiscard]] std::pair<int, int> placeOf(const Ballot::Vote& vote) const
    {
        return {vote.source % level.width() - FillLevel::kMargin + window.x,
                vote.source / level.width() - FillLevel::kMargin + window.y};
    }
    static void add(PixelRGB<float>& sum, float weight, const PixelRGB<float>& p)
    {
        sum.r += weight * p.r;
        sum.g += weight * p.g;
        sum.b += weight * p.b;
    }
    static PixelRGB<float> divided(const PixelRGB<float>& p, float by) { return {p.r / by, p.g / by, p.b / by}; }

    const FillLevel& level;
    const _Rect<int>& window;
    const _ImageData<PixelRGB<float>>& painted;
    const GentleShading& shading;
};

std::size_t planeSize(const Hole& hole)
{
    return static_cast<std::size_t>(hole.bounds().width + 1) * static_cast<std::size_t>(hole.bounds().height + 1);
}

} // namespace

std::size_t SeamSteps::at(int x, int y) const
{
    return static_cast<std::size_t>(y - hole.bounds().y + 1) * static_cast<std::size_t>(hole.bounds().width + 1) +
           static_cast<std::size_t>(x - hole.bounds().x + 1);
}

SeamSteps::SeamSteps(const FillLevel& level, const PatchField& field, const PatchFillSettings& settings,
                     const Hole& hole_, const _Rect<int>& window, const _ImageData<PixelRGB<float>>& painted)
    : hole(hole_), toRight(planeSize(hole_), true), below(planeSize(hole_), true), gentleness(planeSize(hole_), true)
{
    const VoteWeights weights(settings, settings.lastAgreement);
    const GentleShading shading(painted, hole, window);
    const Sources sources(level, window, painted, shading);
    const _Rect<int>& box = hole.bounds();
    const auto inHole = [&](int x, int y) {
        return x < hole.size().width && y < hole.size().height && hole.row(y)[x] != 0;
    };
    const auto gather = [&](Ballot& ballot, int x, int y) {
        ballot.gather(level, field, weights, x - window.x + FillLevel::kMargin, y - window.y + FillLevel::kMargin);
    };
    const ManagedPlane<PixelRGB<float>> means(planeSize(hole));
    forEachRow(box.height, [&](int row) {
        const int y = box.y + row;
        Ballot ballot;
        for (int x = box.x; x < box.x + box.width; ++x) {
            if (!inHole(x, y))
                continue;
            gather(ballot, x, y);
            const Sources::Mean mean = sources.meanOf(ballot);
            means[at(x, y)] = mean.colour;
            gentleness[at(x, y)] =
                static_cast<std::uint8_t>(kMostGentle * std::max(0.0f, 2.0f * mean.gentleness - 1.0f));
        }
    });
    forEachRow(box.height + 1, [&](int row) {
        const int y = box.y - 1 + row;
        Ballot ballot;
        for (int x = std::max(0, box.x - 1); y >= 0 && x < box.x + box.width; ++x) {
            const bool here = inHole(x, y);
            const bool there = hole.hasContent(x, y);
            const bool right = there && hole.hasContent(x + 1, y) && (here || inHole(x + 1, y));
            const bool under = there && hole.hasContent(x, y + 1) && (here || inHole(x, y + 1));
            if (!right && !under)
                continue;
            gather(ballot, x, y);
            const auto keep = [&](int dx, int dy, Steps& to) {
                const auto step = sources.stepTo(ballot, dx, dy);
                if (!step)
                    return;
                const bool beyond = inHole(x + dx, y + dy);
                const float gentle =
                    static_cast<float>(here && beyond ? std::min(gentleness[at(x, y)], gentleness[at(x + dx, y + dy)])
                                                      : gentleness[here ? at(x, y) : at(x + dx, y + dy)]) /
                    kMostGentle;
                const GentleShading::Change& change = shading.at(x, y);
                const PixelRGB<float>& wanted = dx > 0 ? change.right : change.below;
                const PixelRGB<float> present = painted.row(y + dy)[x + dx] - painted.row(y)[x];
                const PixelRGB<float> asCopied = step->whole - present;
                // Steps of grain, summed up over repeated rows, would tint a sky, so means are compared; on the rim the
                // mean of a known pixel says little about the pixel.
                const PixelRGB<float> asContinued = here && beyond
                                                        ? wanted - (means[at(x + dx, y + dy)] - means[at(x, y)])
                                                        : asCopied + wanted - step->gentle;
                PixelRGB<float> seam = mixed(asCopied, asContinued, gentle);
                if (here != beyond) {
                    const int knownX = here ? x + dx : x;
                    const int knownY = here ? y + dy : y;
                    const PixelRGB<float> off = painted.row(knownY)[knownX] - shading.colourAt(knownX, knownY);
                    // Textures are never gentle, and their pixels do not stray.
                    const float stray = std::min(1.0f, 4.0f * gentle) * strayness(off);
                    seam = mixed(seam, leastBetween(seam, here ? seam + off : seam - off), stray);
                }
                const float size = greatest(seam) / (kEdge + gentle * (kGentleEdge - kEdge));
                const float share = 1.0f / (kUnit * (1.0f + size * size * size * size));
                if (!(greatest(seam) < 1.0f)) // false for NaN too
                    return;
                to = {static_cast<std::int16_t>(std::lround(share * seam.r)),
                      static_cast<std::int16_t>(std::lround(share * seam.g)),
                      static_cast<std::int16_t>(std::lround(share * seam.b))};
            };
            if (right)
                keep(1, 0, toRight[at(x, y)]);
            if (under)
                keep(0, 1, below[at(x, y)]);
        }
    });
}

void SeamSteps::evenOut(_ImageData<PixelRGB<float>>& painted) const
{
    const _Rect<int>& box = hole.bounds();
    Membrane membrane(
        box.size(),
        [&](int column, int row) {
            const int x = box.x + column;
            const int y = box.y + row;
            if (!hole.hasContent(x, y))
                return Membrane::Pixel::Beyond;
            return hole.row(y)[x] != 0 ? Membrane::Pixel::Free : Membrane::Pixel::Fixed;
        },
        [&](int column, int row) {
            return Membrane::kAnchor * (1.0f - gentleness[at(box.x + column, box.y + row)] / kMostGentle);
        });
    const auto evenChannel = [&](float PixelRGB<float>::*channel, std::int16_t Steps::*step) {
        membrane.solve([&](int column, int row) {
            const int x = box.x + column;
            const int y = box.y + row;
            const int sum = toRight[at(x - 1, y)].*step - toRight[at(x, y)].*step + below[at(x, y - 1)].*step -
                            below[at(x, y)].*step;
            return kUnit * static_cast<float>(sum);
        });
        forEachRow(box.height, [&](int row) {
            for (int column = 0; column < box.width; ++column) {
                if (hole.row(box.y + row)[box.x + column] == 0)
                    continue;
                float& value = painted.row(box.y + row)[box.x + column].*channel;
                const float low = std::min(value, 0.0f);
                const float high = std::max(value, 1.0f);
                value = std::clamp(value + membrane.value(column, row), low, high);
            }
        });
    };
    evenChannel(&PixelRGB<float>::r, &Steps::r);
    evenChannel(&PixelRGB<float>::g, &Steps::g);
    evenChannel(&PixelRGB<float>::b, &Steps::b);
}

} // namespace orvo::details
