// Deghosting of rendered brackets: a still scene stays, what moves goes.
#include "bracket/deghosting.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_extensions/hdr.hpp>
#include <scenes/bracket_files.hpp>
#include <scenes/mef_ssim.hpp>
#include <scenes/metrics.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iostream>

using namespace orvo;
using namespace orvo::test;
using scenes::Bracket;
using scenes::BracketRecipe;
using scenes::Picture;

namespace {

constexpr DeghostAmount kAmounts[] = {DeghostAmount::Lowest, DeghostAmount::Highest};

/// A small sensor: raised by four stops, its dark tones are mostly noise.
BracketRecipe noisy(std::vector<double> evs)
{
    BracketRecipe recipe;
    recipe.scene.size = {600, 400};
    recipe.evs = std::move(evs);
    recipe.camera.response = scenes::ResponseCurve::Filmic;
    recipe.camera.noise = scenes::SensorNoise{6000.0, 8.0};
    return recipe;
}

/// As camera files hold them: in 8 bits.
std::vector<HDRFrame> framesOf(const Bracket& bracket)
{
    std::vector<HDRFrame> frames;
    for (std::size_t i = 0; i < bracket.size(); ++i) {
        HDRFrame frame;
        frame.image = bracket.frame(i).picture;
        float* const samples = &frame.image->data()->r;
        for (std::size_t k = 0; k < 3 * frame.image->pixelCount(); ++k)
            samples[k] = std::round(samples[k] * 255.0f) / 255.0f;
        frames.push_back(std::move(frame));
    }
    return frames;
}

double shareChanged(const Picture& before, const Picture& after)
{
    std::size_t changed = 0;
    for (std::size_t i = 0; i < before.pixelCount(); ++i) {
        const auto& p = before.data()[i];
        const auto& q = after.data()[i];
        changed += std::max({std::abs(p.r - q.r), std::abs(p.g - q.g), std::abs(p.b - q.b)}) > 0.01f ? 1 : 0;
    }
    return static_cast<double>(changed) / static_cast<double>(before.pixelCount());
}

std::shared_ptr<const Picture> merged(const std::vector<std::filesystem::path>& paths,
                                      std::optional<DeghostAmount> amount)
{
    HDRSettings settings;
    settings.ghostReduction = amount.has_value();
    settings.deghostAmount = amount.value_or(DeghostAmount::Lowest);
    settings.ghostRefImageIdx = -1; // the middle frame
    const auto image = make_HDR(paths, settings, {}, nullptr).first;
    return image ? image->developedOriginalImageData({}) : nullptr;
}

} // namespace

TEST(StillScene, FramesOfANoisyBracketStay)
{
    const Bracket bracket(noisy({-4.0, -2.0, 0.0, 2.0, 4.0}));
    const auto before = framesOf(bracket);
    for (const auto& [reference, amount] : {std::pair{2, DeghostAmount::Lowest},
                                            {1, DeghostAmount::Highest},
                                            {2, DeghostAmount::Highest},
                                            {3, DeghostAmount::Highest}}) {
        auto frames = framesOf(bracket);
        processDeghosting(frames, amount, reference);
        for (std::size_t i = 0; i < frames.size(); ++i)
            EXPECT_LT(shareChanged(*before[i].image, *frames[i].image), 0.03)
                << "frame " << i << ", reference " << reference << ", amount " << static_cast<int>(amount);
    }
}

TEST(StillScene, DeghostingCostsTheMergeNothing)
{
    const TemporaryFolder folder;
    for (const auto& evs : {std::vector<double>{-2.5, 0.0, 2.5}, {-4.5, -3.0, -1.5, 0.0, 1.5, 3.0, 4.5}}) {
        const Bracket bracket(noisy(evs));
        std::vector<std::shared_ptr<const Picture>> frames;
        for (const scenes::Frame& frame : bracket.frames())
            frames.push_back(frame.picture);
        for (const bool exif : {true, false}) {
            scenes::BracketFileSettings settings;
            settings.exif = exif;
            settings.prefix = std::to_string(evs.size()) + (exif ? "exif" : "bare");
            const auto paths = scenes::writeBracket(bracket, folder.path(), settings);
            const auto without = merged(paths, std::nullopt);
            ASSERT_TRUE(without);
            const double best = scenes::mefSsim(frames, *without);
            for (const DeghostAmount amount : kAmounts) {
                const auto with = merged(paths, amount);
                ASSERT_TRUE(with);
                EXPECT_GT(scenes::mefSsim(frames, *with), best - 0.02) << settings.prefix;
                EXPECT_LT(shareChanged(*without, *with), 0.05) << settings.prefix;
            }
        }
    }
}

TEST(StillScene, AWalkerInANoisyBracketStandsOnlyWhereTheReferenceHasHim)
{
    auto recipe = noisy({-2.0, 0.0, 2.0});
    recipe.scene.size = {1200, 800};
    recipe.subjects = {{330.0, 760.0, 420.0, 0.6}, {640.0, 760.0, 420.0, 1.2}, {930.0, 760.0, 420.0, 0.3}};
    const Bracket bracket(recipe);
    auto still = recipe;
    still.subjects.assign(3, recipe.subjects[1]);
    still.camera.noise.reset();
    const Bracket truth(still);
    for (const DeghostAmount amount : {DeghostAmount::Medium, DeghostAmount::Highest}) {
        auto frames = framesOf(bracket);
        processDeghosting(frames, amount, 1);
        for (const std::size_t k : {0u, 2u}) {
            // Where the frame had him: that must be gone. Noise of the reference, raised by two stops, is no ghost.
            const auto mask = bracket.frame(k).subject;
            const auto expected = truth.frame(k).picture;
            for (std::size_t i = 0; i < mask->pixelCount(); ++i) {
                const auto& r = frames[1].image->data()[i];
                if ((r.r + r.g + r.b) / 3.0f > 0.9f)
                    mask->data()[i] = 0.0f;
            }
            const double wrong = scenes::wrongShare(*frames[k].image, *expected, *mask, 0.15f);
            std::cout << "wrong in frame " << k << ": " << 100.0 * wrong << " percent\n";
            EXPECT_LT(wrong, 0.01) << "frame " << k << ", amount " << static_cast<int>(amount);
        }
    }
}
