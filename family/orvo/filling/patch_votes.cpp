#include "filling/patch_votes.hpp"

#include "filling/ballot.hpp"

#include <orvo_core/parallel.hpp>

#include <array>
#include <cstddef>

namespace orvo::details {
void vote(FillLevel& level, const PatchField& field, const PatchFillSettings& settings)
{
    const VoteWeights weights(settings, settings.agreement);
    forEachRow(level.height(), [&](int y) {
        Ballot ballot;
        for (int x = 0; x < level.width(); ++x) {
            const auto i = static_cast<std::size_t>(level.at(x, y));
            if (level.places[i] != Place::Hole)
                continue;
            ballot.gather(level, field, weights, x, y);
            float sum = 0.0f;
            std::array<float, 4> mean{};
            for (const Ballot::Vote& one : ballot.votes()) {
                const Texel t = level.texels[static_cast<std::size_t>(one.source)];
                const float w = one.weight;
                sum += w;
                mean[0] += w * static_cast<float>(t.r);
                mean[1] += w * static_cast<float>(t.g);
                mean[2] += w * static_cast<float>(t.b);
                mean[3] += w * static_cast<float>(t.texture);
            }
            const auto byte = [&](float v) { return static_cast<std::uint8_t>(v / sum + 0.5f); };
            level.texels[i] = {byte(mean[0]), byte(mean[1]), byte(mean[2]), byte(mean[3])};
        }
    });
}

void voteInFull(const FillLevel& level, const PatchField& field, const PatchFillSettings& settings, const Hole& hole,
                const _Rect<int>& window, _ImageData<PixelRGB<float>>& result)
{
    const VoteWeights weights(settings, settings.lastAgreement);
    constexpr int kMargin = FillLevel::kMargin;
    forEachRow(window.height, [&](int row) {
        Ballot ballot;
        const std::uint8_t* const inHole = hole.row(window.y + row) + window.x;
        PixelRGB<float>* const out = result.row(window.y + row) + window.x;
        for (int column = 0; column < window.width; ++column) {
            if (inHole[column] == 0)
                continue;
            ballot.gather(level, field, weights, column + kMargin, row + kMargin);
            float sum = 0.0f;
            PixelRGB<float> mean;
            for (const Ballot::Vote& one : ballot.votes()) {
                const int sourceX = one.source % level.width() - kMargin + window.x;
                const int sourceY = one.source / level.width() - kMargin + window.y;
                const PixelRGB<float> p = result.row(sourceY)[sourceX]; // known, so never written
                const float w = one.weight;
                sum += w;
                mean.r += w * p.r;
                mean.g += w * p.g;
                mean.b += w * p.b;
            }
            out[column] = {mean.r / sum, mean.g / sum, mean.b / sum};
        }
    });
}

} // namespace orvo::details
