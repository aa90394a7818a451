#include "filling/seam_colours.hpp"

#include "filling/ballot.hpp"
#include "filling/membrane.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>

namespace orvo::details {
namespace {

// Unit of the stored steps, as a fraction of full scale; a step above 1 is no seam.
constexpr float kUnit = 1.0f / 30000.0f;
// A step of this size has half weight: larger ones are mismatched edges, and evening them out would smear them.
constexpr float kEdge = 0.12f;

PixelRGB<float> operator-(const PixelRGB<float>& a, const PixelRGB<float>& b)
{
    return {a.r - b.r, a.g - b.g, a.b - b.b};
}

float greatest(const PixelRGB<float>& p) { return std::max({std::abs(p.r), std::abs(p.g), std::abs(p.b)}); }

// The step to a neighbour at (dx, dy) that the votes for a pixel expect.
class ExpectedStep
{
public:
    ExpectedStep(const FillLevel& level_, const _Rect<int>& window_, const _ImageData<PixelRGB<float>>& painted_)
        : level(level_), window(window_), painted(painted_)
    {}

    // False if no vote covers both pixels.
    bool operator()(const Ballot& ballot, int dx, int dy, PixelRGB<float>& step) const
    {
        float sum = 0.0f;
        PixelRGB<float> mean;
        for (const Ballot::Vote& vote : ballot.votes()) {
            if (vote.column + dx >= kPatch || vote.row + dy >= kPatch)
                continue;
            const int x = vote.source % level.width() - FillLevel::kMargin + window.x;
            const int y = vote.source / level.width() - FillLevel::kMargin + window.y;
            const PixelRGB<float> d = painted.row(y + dy)[x + dx] - painted.row(y)[x];
            sum += vote.weight;
            mean.r += vote.weight * d.r;
            mean.g += vote.weight * d.g;
            mean.b += vote.weight * d.b;
        }
        if (sum <= 0.0f)
            return false;
        step = {mean.r / sum, mean.g / sum, mean.b / sum};
        return true;
    }

private:
    const FillLevel& level;
    const _Rect<int>& window;
    const _ImageData<PixelRGB<float>>& painted;
};

} // namespace

std::size_t SeamSteps::at(int x, int y) const
{
    return static_cast<std::size_t>(y - hole.bounds().y + 1) * static_cast<std::size_t>(hole.bounds().width + 1) +
           static_cast<std::size_t>(x - hole.bounds().x + 1);
}

SeamSteps::SeamSteps(const FillLevel& level, const PatchField& field, const PatchFillSettings& settings,
                     const Hole& hole_, const _Rect<int>& window, const _ImageData<PixelRGB<float>>& painted)
    : hole(hole_),
      toRight(static_cast<std::size_t>(hole_.bounds().width + 1) * static_cast<std::size_t>(hole_.bounds().height + 1),
              true),
      below(static_cast<std::size_t>(hole_.bounds().width + 1) * static_cast<std::size_t>(hole_.bounds().height + 1),
            true)
{
    const VoteWeights weights(settings, settings.lastAgreement);
    const ExpectedStep expected(level, window, painted);
    const _Rect<int>& box = hole.bounds();
    const auto inHole = [&](int x, int y) {
        return x < hole.size().width && y < hole.size().height && hole.row(y)[x] != 0;
    };
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
            ballot.gather(level, field, weights, x - window.x + FillLevel::kMargin, y - window.y + FillLevel::kMargin);
            const auto keep = [&](int dx, int dy, Steps& to) {
                PixelRGB<float> step;
                if (!expected(ballot, dx, dy, step))
                    return;
                const PixelRGB<float> seam = step - (painted.row(y + dy)[x + dx] - painted.row(y)[x]);
                const float size = greatest(seam) / kEdge;
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
    Membrane membrane(box.size(), [&](int column, int row) {
        const int x = box.x + column;
        const int y = box.y + row;
        if (!hole.hasContent(x, y))
            return Membrane::Pixel::Beyond;
        return hole.row(y)[x] != 0 ? Membrane::Pixel::Free : Membrane::Pixel::Fixed;
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
