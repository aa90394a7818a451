// The bracket operations against rendered scenes whose truth is known.
#include "bracket/align_frames.hpp"
#include "bracket/deghosting.hpp"
#include "bracket/estimate_pair.hpp"
#include "bracket/load_frames.hpp"
#include "support/temporary_folder.hpp"

#include <orvo/bracket_exposure.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_extensions/bracket.hpp>
#include <orvo_extensions/hdr.hpp>
#include <orvo_image_processing/auto_exposure.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_logger/log_capture.hpp>
#include <scenes/bracket_files.hpp>
#include <scenes/metrics.hpp>
#include <scenes/sharpness.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <numeric>

using namespace orvo;
using namespace orvo::test;
using scenes::Bracket;
using scenes::BracketRecipe;
using scenes::CameraView;
using scenes::Homography;
using scenes::Picture;

namespace {

// A practised hand at 1536 pixels of width. More than 0.3 percent of a side is where the aligner's outlier cut begins
// to keep the tenth of the matches that moved least, which costs accuracy at the corners.
CameraView steadyHand()
{
    CameraView amplitude;
    amplitude.rotationDegrees = 0.12;
    amplitude.shiftX = 4;
    amplitude.shiftY = 3;
    amplitude.zoom = 1.0005;
    return amplitude;
}

BracketRecipe handheld(std::size_t frames, std::uint64_t seed)
{
    BracketRecipe recipe;
    recipe.scene.size = {1536, 1024};
    recipe.evs.clear();
    for (std::size_t i = 0; i < frames; ++i)
        recipe.evs.push_back(-2.0 + 2.0 * static_cast<double>(i));
    recipe.camera.response = scenes::ResponseCurve::Filmic;
    recipe.camera.noise = scenes::SensorNoise{};
    recipe.views = scenes::handShake(frames, frames / 2, steadyHand(), seed);
    return recipe;
}

std::vector<HDRFrame> framesOf(const Bracket& bracket)
{
    std::vector<HDRFrame> frames;
    for (std::size_t i = 0; i < bracket.size(); ++i) {
        HDRFrame frame;
        frame.image = bracket.frame(i).picture;
        frame.image->convertTo(ColorProfileType::melissaRGB());
        frames.push_back(std::move(frame));
    }
    return frames;
}

cv::Mat eightBit(const Picture& picture)
{
    cv::Mat mat;
    cv::Mat(picture.height(), picture.width(), CV_32FC3, const_cast<PixelRGB<float>*>(picture.data()))
        .convertTo(mat, CV_8UC3, 255.0);
    return mat;
}

double meanSharpness(const Picture& picture)
{
    const auto measure = scenes::sumModifiedLaplacian(picture, 1, 5);
    return std::accumulate(measure->data(), measure->data() + measure->pixelCount(), 0.0) /
           static_cast<double>(measure->pixelCount());
}

// How far the frames that were aligned are from what their cameras would have shown from the position of the reference,
// and their sharpness as a share of what it was before; the worst of all frames.
struct Fidelity
{
    double decibels = 1e9;
    double sharpness = 1e9;
    double sharpest = 0.0;
};

Fidelity fidelityOf(const std::vector<HDRFrame>& aligned, const BracketRecipe& recipe,
                    const std::shared_ptr<const scenes::RadianceScene>& scene)
{
    BracketRecipe still = recipe;
    still.views.clear();
    const Bracket truth(still, scene);
    const std::size_t reference = aligned.size() / 2;
    const Picture& middle = *aligned[reference].image;
    Fidelity worst;
    _Point<int> place{0, 0}; // of the common rectangle; the reference moves by a part of a pixel at most
    double best = 0.0;
    const auto truthOfReference = framesOf(truth)[reference].image;
    for (int y = 0; y <= truthOfReference->height() - middle.height(); ++y)
        for (int x = 0; x <= truthOfReference->width() - middle.width(); ++x) {
            const auto part = truthOfReference->copy({x, y, middle.width(), middle.height()});
            const double decibels = scenes::psnr(middle, *part);
            if (decibels > best) {
                best = decibels;
                place = {x, y};
            }
        }
    const auto frames = framesOf(truth);
    const auto moving = framesOf(Bracket(recipe, scene));
    for (std::size_t i = 0; i < aligned.size(); ++i) {
        if (i == reference)
            continue;
        const auto part = frames[i].image->copy({place.x, place.y, middle.width(), middle.height()});
        worst.decibels = std::min(worst.decibels, scenes::psnr(*aligned[i].image, *part));
        const auto before = moving[i].image->copy({place.x, place.y, middle.width(), middle.height()});
        const double sharpness = meanSharpness(*aligned[i].image) / meanSharpness(*before);
        worst.sharpness = std::min(worst.sharpness, sharpness);
        worst.sharpest = std::max(worst.sharpest, sharpness);
    }
    return worst;
}

// The aligner's steps for two neighbours, to check the homography itself.
Homography estimated(const Bracket& bracket, std::size_t first, std::size_t second)
{
    const auto frames = framesOf(bracket);
    const auto a = frames[first].image->copy({});
    autoExposureAdjustRGB(frames[second].image->data(), a->data(), a->width(), a->height());
    const cv::Mat a8 = eightBit(*a);
    const cv::Mat b8 = eightBit(*frames[second].image);
    auto keypoints1 = detectKeypoints(a8);
    auto keypoints2 = detectKeypoints(b8);
    cv::Mat found;
    EXPECT_TRUE(estimatePair(a8, keypoints1, b8, keypoints2, found, 1.0, a->width(), a->height()));
    Homography result{};
    std::copy(found.begin<double>(), found.end<double>(), result.begin());
    return result;
}

} // namespace

TEST(SceneTruth, HandheldNeighboursRegisterToHalfAPixel)
{
    std::vector<double> errors;
    for (const std::uint64_t seed : {1u, 2u, 3u}) {
        const Bracket bracket(handheld(3, seed));
        for (const std::size_t second : {1u, 2u})
            errors.push_back(scenes::cornerError(estimated(bracket, second - 1, second),
                                                 bracket.frameFromFrame(second - 1, second), {1536, 1024}));
    }
    std::nth_element(errors.begin(), errors.begin() + 3, errors.end());
    EXPECT_LT(errors[3], 0.5) << testing::PrintToString(errors);
    RecordProperty("median_corner_error_px", std::to_string(errors[3]));
}

TEST(SceneTruth, AlignedFramesShowTheSamePlaces)
{
    const Bracket bracket(handheld(3, 5));
    auto frames = framesOf(bracket);
    alignFrames(frames, 1, true);
    // Against the same scene from a tripod, aligned to the middle frame, whose view is the tripod's.
    auto steady = handheld(3, 5);
    steady.views.clear();
    steady.camera.noise.reset();
    auto truth = framesOf(Bracket(steady));
    const auto size = frames[0].image->size();
    EXPECT_GT(size.width, 1536 * 9 / 10);
    const int left = (1536 - size.width) / 2;
    // The common rectangle need not be centred: find the offset with the middle frame, which was only cropped.
    double best = 1e9;
    _Point<int> offset;
    for (int dy = 0; dy <= 1024 - size.height; ++dy)
        for (int dx = 0; dx <= 1536 - size.width; ++dx) {
            double sum = 0;
            for (int k = 0; k < 200; ++k) {
                const int x = 40 + (k * 67) % (size.width - 80);
                const int y = 40 + (k * 41) % (size.height - 80);
                sum +=
                    static_cast<double>(std::abs(frames[1].image->row(y)[x].g - truth[1].image->row(y + dy)[x + dx].g));
            }
            if (sum < best) {
                best = sum;
                offset = {dx, dy};
            }
        }
    EXPECT_NEAR(offset.x, left, 20);
    for (const std::size_t k : {0u, 2u}) {
        double error = 0;
        double unaligned = 0;
        for (int y = 8; y < size.height - 8; y += 3)
            for (int x = 8; x < size.width - 8; x += 3) {
                const float expected = truth[k].image->row(y + offset.y)[x + offset.x].g;
                error += static_cast<double>(std::abs(frames[k].image->row(y)[x].g - expected));
                unaligned +=
                    static_cast<double>(std::abs(truth[k].image->row(y + offset.y)[x + offset.x + 8].g - expected));
            }
        EXPECT_LT(error, 0.35 * unaligned) << "far less than eight pixels off";
    }
}

TEST(SceneTruth, AMovedSubjectLeavesLessThanOnePercentWrong)
{
    BracketRecipe recipe;
    recipe.scene.size = {1200, 800};
    recipe.camera.response = scenes::ResponseCurve::Srgb;
    recipe.evs = {-1.5, 0.0, 1.5};
    recipe.subjects = {{330.0, 760.0, 420.0, 0.6}, {640.0, 760.0, 420.0, 1.2}, {930.0, 760.0, 420.0, 0.3}};
    const Bracket bracket(recipe);
    auto frames = framesOf(bracket);
    // Truth: each frame with the walker at the position in the reference.
    auto still = recipe;
    still.subjects.assign(3, recipe.subjects[1]);
    const auto truth = framesOf(Bracket(still));
    processDeghosting(frames, DeghostAmount::Highest, 1);
    for (const std::size_t k : {0u, 2u}) {
        // Only where the reference can be shifted to the frame's exposure: neither blown out nor black in it.
        const auto mask = bracket.frame(k).subject;
        const auto there = bracket.frame(1).subject;
        for (int y = 0; y < mask->height(); ++y)
            for (int x = 0; x < mask->width(); ++x) {
                const auto& r = frames[1].image->row(y)[x];
                const float mean = (r.r + r.g + r.b) / 3;
                const bool judged = mean < 0.95f;
                mask->row(y)[x] = judged ? std::max(mask->row(y)[x], there->row(y)[x]) : 0.0f;
            }
        const double wrong = scenes::wrongShare(*frames[k].image, *truth[k].image, *mask, 0.08f);
        std::cout << "wrong in frame " << k << ": " << 100.0 * wrong << " percent\n";
        EXPECT_LT(wrong, 0.01) << "frame " << k;
    }
}

TEST(SceneTruth, AShuffledBracketComesOutInOrder)
{
    const TemporaryFolder folder;
    BracketRecipe recipe;
    recipe.scene.size = {320, 240};
    recipe.evs = {2.0, -4.0, 0.0, 4.0, -2.0};
    recipe.camera.noise = scenes::SensorNoise{};
    const Bracket bracket(recipe);
    for (const bool exif : {true, false}) {
        for (const auto format : {scenes::BracketFileFormat::Jpeg, scenes::BracketFileFormat::Tiff16}) {
            scenes::BracketFileSettings settings;
            settings.exif = exif;
            settings.format = format;
            settings.prefix = exif ? "exif" : "bare";
            const auto paths = scenes::writeBracket(bracket, folder.path(), settings);
            const auto [sorted, evs] = getSortedPathsAndEVsFromPaths(paths);
            EXPECT_THAT(sorted, testing::ElementsAre(paths[1], paths[4], paths[2], paths[0], paths[3])) << exif;
            ASSERT_EQ(evs.size(), 5u);
            EXPECT_EQ(evs[2], 0.0f);
            for (std::size_t i = 0; exif && i < 5; ++i)
                EXPECT_NEAR(evs[i], -4.0f + 2.0f * static_cast<float>(i), 0.02f);
        }
    }
}

TEST(SceneTruth, RawFramesLoadSequentiallyAndMerge)
{
    const TemporaryFolder folder;
    BracketRecipe recipe;
    recipe.scene.size = {480, 320};
    recipe.camera.noise = scenes::SensorNoise{};
    scenes::BracketFileSettings settings;
    settings.format = scenes::BracketFileFormat::Dng;
    const auto paths = scenes::writeBracket(Bracket(recipe), folder.path(), settings);
    EXPECT_TRUE(areAllRaw(paths));
    for (const bool chromatic : {false, true}) {
        HDRSettings merge;
        merge.alignment = true;
        merge.chromaticAberrations = chromatic; // aligns after development
        std::vector<int> phases;
        const LogCapture capture;
        const auto [merged, middle] =
            make_HDR(paths, merge, {}, [&](HDRMergingPhaseName phase) { phases.push_back(static_cast<int>(phase)); });
        const auto lines = capture.lines();
        const auto at = [&lines](const std::string& start) {
            return std::find_if(lines.begin(), lines.end(),
                                [&](const auto& line) { return line.text.rfind(start, 0) == 0; });
        };
        ASSERT_NE(at("[Alignment]"), lines.end());
        ASSERT_NE(at("isRaw 1"), lines.end());
        EXPECT_EQ(at("[Alignment]") > at("isRaw 1"), chromatic);
        ASSERT_TRUE(merged);
        EXPECT_FALSE(merged->metadata()->isRaw);
        EXPECT_TRUE(merged->metadata()->isFinished);
        EXPECT_TRUE(merged->metadata()->isDeveloped);
        EXPECT_TRUE(*middle->colorProfile() == *ColorProfileType::melissaRGB()) << "developed";
        EXPECT_THAT(phases, testing::ElementsAre(0, 1, 2, 3, 4, 5, 6));
    }
}

TEST(SceneTruth, ARawBracketAlignedAfterItsDevelopmentShowsTheSceneAsTheMiddleFrameSawIt)
{
    const TemporaryFolder folder;
    BracketRecipe recipe = handheld(3, 5);
    recipe.scene.size = {768, 512};
    const auto scene = std::make_shared<const scenes::RadianceScene>(recipe.scene);
    BracketRecipe tripod = recipe;
    tripod.views.clear();
    scenes::BracketFileSettings files;
    files.format = scenes::BracketFileFormat::Dng;
    const auto handheldFiles = scenes::writeBracket(Bracket(recipe, scene), folder.path(), files);
    files.prefix = "tripod";
    const auto tripodFiles = scenes::writeBracket(Bracket(tripod, scene), folder.path(), files);
    HDRSettings settings;
    settings.chromaticAberrations = true; // corrected before frames are moved, so they are aligned late
    const auto truth = make_HDR(tripodFiles, settings, {}, nullptr);
    const auto apart = make_HDR(handheldFiles, settings, {}, nullptr);
    settings.alignment = true;
    settings.alignmentQuality = AlignmentQuality::Fine;
    const auto aligned = make_HDR(handheldFiles, settings, {}, nullptr);
    ASSERT_TRUE(truth.first && apart.first && aligned.first);
    EXPECT_GT(scenes::psnr(*aligned.second, *truth.second), 30.0) << "the middle frame stays whole";

    const auto expected = truth.first->developedOriginalImageData({});
    const auto found = aligned.first->developedOriginalImageData({});
    ASSERT_LT(found->width(), expected->width());
    double best = 0.0;
    for (int y = 0; y <= expected->height() - found->height(); ++y)
        for (int x = 0; x <= expected->width() - found->width(); ++x)
            best = std::max(best, scenes::psnr(*found, *expected->copy({x, y, found->width(), found->height()})));
    const double unaligned = scenes::psnr(*apart.first->developedOriginalImageData({}), *expected);
    std::cout << "aligned: " << best << " dB, unaligned: " << unaligned << " dB\n";
    EXPECT_GT(best, 35.0) << "to a fraction of a pixel, where the middle frame saw it";
}

TEST(SceneTruth, ASequentialLoadThatLosesAFileFailsOnStandardError)
{
    const TemporaryFolder folder;
    BracketRecipe recipe;
    recipe.scene.size = {160, 120};
    scenes::BracketFileSettings settings;
    settings.format = scenes::BracketFileFormat::Dng;
    const auto paths = scenes::writeBracket(Bracket(recipe), folder.path(), settings);
    // Truncated in its pixels, so that it still counts as raw.
    std::filesystem::resize_file(paths[1], std::filesystem::file_size(paths[1]) * 3 / 4);
    ASSERT_TRUE(areAllRaw(paths));
    testing::internal::CaptureStderr();
    const auto [merged, middle] = make_HDR(paths, {}, {}, nullptr);
    const std::string complaint = testing::internal::GetCapturedStderr();
    EXPECT_FALSE(merged);
    EXPECT_FALSE(middle);
    EXPECT_THAT(complaint, testing::EndsWith(" make_EFLL: not all images were loaded\n"));
    EXPECT_THAT(complaint, testing::HasSubstr("make_EFLL("));
}

TEST(SceneTruth, AMixOfRawAndOtherFilesMerges)
{
    const TemporaryFolder folder;
    BracketRecipe recipe;
    recipe.scene.size = {240, 160};
    const Bracket bracket(recipe);
    scenes::BracketFileSettings settings;
    auto paths = scenes::writeBracket(bracket, folder.path(), settings);
    settings.format = scenes::BracketFileFormat::Dng;
    paths[1] = scenes::writeFrame(bracket, 1, folder.path(), settings);
    EXPECT_FALSE(areAllRaw(paths));
    EXPECT_TRUE(make_HDR(paths, {}, {}, nullptr).first);
}

TEST(SceneTruth, TheMergeCarriesTheMetadataOfTheMiddleFrame)
{
    const TemporaryFolder folder;
    for (const std::size_t count : {3u, 4u, 5u}) { // four and more frames go into the ladder without their metadata
        BracketRecipe recipe;
        recipe.scene.size = {160, 120};
        recipe.evs.clear();
        for (std::size_t i = 0; i < count; ++i)
            recipe.evs.push_back(-3.0 + 2.0 * static_cast<double>(i));
        const auto paths = scenes::writeBracket(Bracket(recipe), folder.path(), {});
        const auto expected = ImageReader::readMetadata(paths[count / 2]);
        const auto other = ImageReader::readMetadata(paths[0]);
        const auto merged = make_HDR(paths, {}, {}, nullptr).first;
        ASSERT_TRUE(merged);
        ASSERT_NE(expected->shutterSeconds, other->shutterSeconds);
        EXPECT_EQ(merged->metadata()->shutterSeconds, expected->shutterSeconds) << count;
    }
}

TEST(SceneTruth, MergesOpenShadowsAndKeepHighlights)
{
    const TemporaryFolder folder;
    BracketRecipe recipe;
    recipe.scene.size = {600, 400};
    recipe.evs = {-5.0, 0.0, 5.0};
    const auto paths = scenes::writeBracket(Bracket(recipe), folder.path(), {});
    const auto [merged, middle] = make_HDR(paths, {}, {}, nullptr);
    ASSERT_TRUE(merged);
    const auto pixels = merged->developedOriginalImageData({});
    const auto shares = [](const Picture& picture) {
        std::pair<int, int> ends;
        for (std::size_t i = 0; i < picture.pixelCount(); ++i) {
            ends.first += picture.data()[i].g < 0.03f ? 1 : 0;
            ends.second += picture.data()[i].g > 0.995f ? 1 : 0;
        }
        return ends;
    };
    const auto before = shares(*middle);
    const auto after = shares(*pixels);
    EXPECT_LT(after.first, before.first / 2) << "deep shadows of the middle frame are open";
    EXPECT_LT(after.second, before.second / 4) << "its blown highlights are back";
}

TEST(FineAlignment, AnAlignedBracketIsAsSharpAsItsFrames)
{
    BracketRecipe recipe = handheld(3, 5);
    recipe.scene.size = {768, 512};
    const auto scene = std::make_shared<const scenes::RadianceScene>(recipe.scene);
    const Bracket bracket(recipe, scene);
    std::vector<HDRFrame> fast = framesOf(bracket);
    alignFrames(fast, 1, true);
    std::vector<HDRFrame> fine = framesOf(bracket);
    alignFrames(fine, 1, true, AlignmentQuality::Fine);
    const Fidelity ofFast = fidelityOf(fast, recipe, scene);
    const Fidelity ofFine = fidelityOf(fine, recipe, scene);
    std::cout << "fast: " << ofFast.decibels << " dB, fine: " << ofFine.decibels << " dB, sharpness "
              << ofFine.sharpness << " to " << ofFine.sharpest << "\n";
    EXPECT_GT(ofFine.decibels, ofFast.decibels + 5.0);
    EXPECT_GT(ofFine.sharpness, 0.97);
    EXPECT_LT(ofFine.sharpest, 1.03);
}

TEST(FineAlignment, ACancelledRunLeavesTheFramesAsTheyAre)
{
    BracketRecipe recipe = handheld(3, 5);
    recipe.scene.size = {480, 320};
    std::vector<HDRFrame> frames = framesOf(Bracket(recipe));
    const auto before = frames[0].image;
    const RunControl run([] { return true; });
    alignFrames(frames, 1, true, AlignmentQuality::Fine, run);
    EXPECT_EQ(frames[0].image, before);
    EXPECT_TRUE(run.wasCancelled());
}

TEST(FineAlignment, AFrameOfAnotherSizeIsRefused)
{
    BracketRecipe recipe = handheld(2, 5);
    recipe.scene.size = {480, 320};
    std::vector<HDRFrame> frames = framesOf(Bracket(recipe));
    recipe.scene.size = {490, 330};
    frames[1] = framesOf(Bracket(recipe))[1];
    EXPECT_THROW(alignFrames(frames, 1, true, AlignmentQuality::Fine), FailureError);
}
