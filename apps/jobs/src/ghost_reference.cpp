#include "ghost_reference.hpp"

#include "sorted_frames.hpp"

#include <orvo_core/image.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_io/image_reader.hpp>

#include <algorithm>
#include <optional>

namespace orvo::jobs {
namespace {

constexpr int kThumbnailSide = 256;
// Encoded values: from the first up a channel is as good as clipped, and below the second a pixel has a dozen steps of
// 8 bits or fewer, which a brighter exposure turns into noise.
constexpr float kClipped = 0.98f;
constexpr float kNoisy = 0.05f;
// A frame beside the middle has to be better by this share of the pixels: subjects move least from the middle frame to
// the others, and it is the one that the others need to be raised or lowered to least.
constexpr double kBetter = 0.05;

double shareWithoutContent(const _ImageData<PixelRGB<float>>& picture)
{
    std::size_t lost = 0;
    for (std::size_t i = 0; i < picture.pixelCount(); ++i) {
        const auto& p = picture.data()[i];
        const float brightest = std::max({p.r, p.g, p.b});
        lost += brightest >= kClipped || brightest < kNoisy ? 1 : 0;
    }
    return static_cast<double>(lost) / static_cast<double>(std::max<std::size_t>(1, picture.pixelCount()));
}

} // namespace

std::size_t ghostReferenceOf(const std::vector<BracketFrame>& frames)
{
    const std::size_t middle = frames.size() / 2;
    std::vector<std::size_t> candidates; // the first of the best is chosen
    for (const std::size_t i : {middle, middle > 0 ? middle - 1 : frames.size(), middle + 1})
        if (i < frames.size())
            candidates.push_back(i);
    std::vector<std::optional<double>> lost(candidates.size()); // empty without a thumbnail
    forEachItem(candidates.size(), [&](std::size_t i) {
        const auto thumbnail =
            ImageReader::instance().getThumbnailBySide(frames[candidates[i]].path, kThumbnailSide, false, nullptr, {});
        if (thumbnail)
            lost[i] = shareWithoutContent(*thumbnail) + (candidates[i] == middle ? 0.0 : kBetter);
    });
    std::size_t best = middle;
    double least = 1.0 + kBetter;
    for (std::size_t i = 0; i < candidates.size(); ++i)
        if (lost[i] && *lost[i] < least) {
            least = *lost[i];
            best = candidates[i];
        }
    return best;
}

std::vector<std::filesystem::path> withGhostReferenceFirst(std::vector<std::filesystem::path> bracket)
{
    const std::vector<BracketFrame> frames = sortedFrames(bracket, bracket);
    if (frames.empty())
        return bracket;
    const auto reference = static_cast<std::ptrdiff_t>(frames[ghostReferenceOf(frames)].number) - 1;
    std::rotate(bracket.begin(), bracket.begin() + reference, bracket.begin() + reference + 1);
    return bracket;
}

} // namespace orvo::jobs
