#include "frame/image_bridge.hpp"
#include "sources/panorama_hdr_provider.hpp"
#include "sources/panorama_images_provider.hpp"
#include "sources/panorama_video_provider.hpp"
#include "support/files.hpp"
#include "support/matrices.hpp"
#include "support/raw_discs.hpp"
#include "support/temporary_folder.hpp"
#include "videos.hpp"

#include <orvo/lens_correction.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_logger/log_capture.hpp>
#include <scenes/dng.hpp>
#include <scenes/radiance_scene.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <utility>

using namespace orvo;
using namespace orvo::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace {

using Paths = std::vector<std::filesystem::path>;

bool never() { return false; }

double greenOf(const cv::Mat& matrix) { return cv::mean(matrix)[1]; }

class Providers : public testing::Test
{
protected:
    TemporaryFolder folder;
    std::vector<float> reported;
    int polls = 0;

    std::function<void(float)> record()
    {
        return [this](float share) { reported.push_back(share); };
    }

    std::function<bool()> cancelAt(int call)
    {
        return [this, call] { return ++polls >= call; };
    }

    // Three gray pictures, the darkest first by its name.
    Paths grays()
    {
        Paths paths;
        for (const float value : {0.2f, 0.4f, 0.6f})
            paths.push_back(
                writtenTo(folder / ("gray" + std::to_string(paths.size()) + ".tif"), *plain(24, 16, value)));
        return paths;
    }
};

using ImagesProvider = Providers;
using HdrProvider = Providers;

PanoSource sourceOf(Paths files)
{
    PanoSource source;
    source.files = std::move(files);
    return source;
}

} // namespace

TEST_F(ImagesProvider, GivesOneWorkingMatrixForEachFileInOrderOfTheirPaths)
{
    Paths files = grays();
    PanoramaImagesProvider sorted(sourceOf(files));
    std::reverse(files.begin(), files.end());
    PanoramaImagesProvider reversed(sourceOf(files));
    const auto a = sorted.load(never);
    const auto b = reversed.load(never);
    ASSERT_THAT(a, SizeIs(3));
    ASSERT_THAT(b, SizeIs(3));
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(a[i].type(), CV_16SC3);
        EXPECT_EQ(a[i].size(), cv::Size(24, 16));
        EXPECT_TRUE(sameBytes(a[i], b[i])) << i;
        EXPECT_EQ(a[i].data, sorted.getImages()[i].data) << "shared with the provider";
        // Gray is neutral in any profile, and both curves are those of sRGB.
        EXPECT_NEAR(greenOf(a[i]), (0.2 + 0.2 * static_cast<double>(i)) * 16383.0, 3.0);
    }
}

TEST_F(ImagesProvider, ReportsItsProgressAndLoadsAgain)
{
    PanoramaImagesProvider provider(sourceOf(grays()));
    ASSERT_THAT(provider.load(never), SizeIs(3)) << "without a callback";
    provider.setLoadCallback(record());
    ASSERT_THAT(provider.load(never), SizeIs(3));
    EXPECT_THAT(reported, ElementsAre(1.0f * (1.0f / 3.0f), 2.0f * (1.0f / 3.0f), 3.0f * (1.0f / 3.0f)));
}

TEST_F(ImagesProvider, IsCancelledAfterTheReportOfAFile)
{
    PanoramaImagesProvider provider(sourceOf(grays()));
    provider.setLoadCallback(record());
    EXPECT_THAT(provider.load(cancelAt(2)), IsEmpty());
    EXPECT_THAT(reported, SizeIs(2));
    EXPECT_EQ(polls, 2);
    ASSERT_THAT(provider.getImages(), SizeIs(3));
    EXPECT_FALSE(provider.getImages()[1].empty()) << "pictures already read remain";
    EXPECT_TRUE(provider.getImages()[2].empty());
}

TEST_F(ImagesProvider, WithoutFilesGivesNothingAndReportsNothing)
{
    PanoramaImagesProvider provider(sourceOf({}));
    provider.setLoadCallback(record());
    EXPECT_THAT(provider.load(cancelAt(1)), IsEmpty());
    EXPECT_THAT(reported, IsEmpty());
    EXPECT_EQ(polls, 0);
}

TEST_F(ImagesProvider, ReportsOnStandardErrorWhichFileCannotBeRead)
{
    Paths files = grays();
    files.push_back(folder / "gray1_none.jpg");
    std::ofstream(files.back()) << "no picture";
    PanoramaImagesProvider provider(sourceOf(files));
    provider.setLoadCallback(record());
    const LogCapture capture;
    testing::internal::CaptureStderr();
    const auto images = provider.load(never);
    const std::string errorOutput = testing::internal::GetCapturedStderr();
    EXPECT_THAT(images, IsEmpty());
    EXPECT_THAT(reported, SizeIs(2));
    const std::string message = " Image " + files.back().string() + " could not be loaded\n";
    ASSERT_GT(errorOutput.size(), message.size());
    EXPECT_EQ(errorOutput.substr(errorOutput.size() - message.size()), message);
    const std::string signature = errorOutput.substr(0, errorOutput.size() - message.size());
    EXPECT_THAT(signature, HasSubstr("orvo::PanoramaImagesProvider::load(")) << "starts with the function";
    EXPECT_THAT(capture.texts(LogMessageType::Warning), testing::Contains(StartsWith("Can't open image at path: ")));
}

// Raw files of one small scene.
class RawImagesProvider : public Providers
{
protected:
    std::filesystem::path raw(const std::string& name, double ev)
    {
        static const scenes::RadianceScene scene({{192, 128}, 1, 0.06});
        scenes::Shot shot;
        shot.exposure = scenes::exposedBy({}, ev);
        scenes::ExifValues exif;
        exif.exposure = shot.exposure;
        scenes::writeDng(folder / name, scene, {}, shot, exif);
        return folder / name;
    }

    // Changes the entry of AsShotNeutral in a raw file's bytes.
    static void changeNeutral(const std::filesystem::path& path,
                              const std::function<void(std::string& bytes, std::size_t entry)>& change)
    {
        std::ifstream in(path, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(in)), {});
        in.close();
        const std::string entry("\x28\xC6\x05\x00\x03\x00\x00\x00", 8); // 50728, three rationals
        const auto at = bytes.find(entry);
        ASSERT_NE(at, std::string::npos);
        change(bytes, at);
        std::ofstream(path, std::ios::binary) << bytes;
    }

    // Removes the white balance from a raw file: its AsShotNeutral gets an unknown tag number.
    static void forgetWhiteBalance(const std::filesystem::path& path)
    {
        changeNeutral(path, [](std::string& bytes, std::size_t entry) {
            bytes[entry] = '\x2A'; // 50730
            bytes[entry + 1] = '\xF6';
        });
    }

    // A raw file whose camera took the light for one with `red` times as much red and as much less blue.
    std::filesystem::path rawSetTo(const char* name, double red)
    {
        const auto path = raw(name, -1.0);
        changeNeutral(path, [red](std::string& bytes, std::size_t entry) {
            std::uint32_t at = 0;
            std::memcpy(&at, &bytes[entry + 8], sizeof at);
            const auto scale = [&](std::size_t channel, double by) {
                std::uint32_t numerator = 0;
                std::memcpy(&numerator, &bytes[at + 8 * channel], sizeof numerator);
                numerator = static_cast<std::uint32_t>(std::lround(numerator * by));
                std::memcpy(&bytes[at + 8 * channel], &numerator, sizeof numerator);
            };
            scale(0, red);
            scale(2, 1.0 / red);
        });
        return path;
    }
};

TEST_F(RawImagesProvider, MediansAreThoseOfAllFiles)
{
    const Paths files = {raw("a.dng", 2.0), raw("b.dng", -2.0), raw("c.dng", 0.0)};
    const SourceMedians medians = computeSourceMedians(files);
    const auto middle = ImageReader::readMetadata(files[2]);
    ASSERT_NE(middle, nullptr);
    const float ev = std::log2(middle->isoSpeed / 100.0f) +
                     std::log2(middle->aperture * middle->aperture / middle->shutterSeconds) + middle->exposureOffset;
    EXPECT_NEAR(medians.ev, ev, 1e-4);
    EXPECT_TRUE(medians.hasWhiteBalance);
    EXPECT_GT(medians.temperature, 2000.0f);
    float temperature = 0;
    float tint = 0;
    ASSERT_TRUE(ImageReader::getTemperatureAndTint(temperature, tint, files[0]));
    EXPECT_EQ(medians.temperature, temperature);
    EXPECT_EQ(medians.tint, tint);
    // For an even number of files the upper middle one.
    EXPECT_NEAR(computeSourceMedians({files[0], files[2]}).ev, ev, 1e-4);
}

TEST_F(RawImagesProvider, OneFileThatIsNotRawSwitchesThemOff)
{
    Paths files = {raw("a.dng", 0.0), raw("b.dng", 0.0)};
    files.push_back(writtenTo(folder / "c.jpg", *plain(24, 16, 0.4f)));
    const SourceMedians medians = computeSourceMedians(files);
    EXPECT_EQ(medians.ev, -1000.0f);
    EXPECT_EQ(medians.temperature, 0.0f);
    EXPECT_EQ(medians.tint, 0.0f);
    EXPECT_FALSE(medians.hasWhiteBalance);
}

TEST_F(RawImagesProvider, AMedianWithoutWhiteBalanceLeavesEachFileItsOwn)
{
    const auto path = raw("a.dng", 0.0);
    const cv::Mat own = loadPanoramaFrame(path, {}, {});
    SourceMedians medians = computeSourceMedians({path});
    EXPECT_TRUE(sameBytes(loadPanoramaFrame(path, {}, medians), own)) << "of one file alone it is its own";
    medians.temperature *= 1.5f;
    const cv::Mat warmer = loadPanoramaFrame(path, {}, medians);
    const auto redToBlue = [](const cv::Mat& m) { return cv::mean(m)[2] / cv::mean(m)[0]; };
    EXPECT_GT(redToBlue(warmer), 1.1 * redToBlue(own)) << "a higher temperature of the light to be taken out";
    medians.hasWhiteBalance = false;
    EXPECT_TRUE(sameBytes(loadPanoramaFrame(path, {}, medians), own));
}

TEST_F(RawImagesProvider, AFileWithoutWhiteBalanceCanBeTheMedian)
{
    const auto path = raw("a.dng", 0.0);
    forgetWhiteBalance(path);
    const SourceMedians medians = computeSourceMedians({path});
    EXPECT_FALSE(medians.hasWhiteBalance);
    EXPECT_GT(medians.ev, -1000.0f) << "it is still raw";
    EXPECT_FALSE(loadPanoramaFrame(path, {}, medians).empty());
}

TEST_F(RawImagesProvider, TheMedianFileDecidesWhetherThereIsAWhiteBalance)
{
    Paths files = {raw("a.dng", 0.0), raw("b.dng", 0.0), raw("c.dng", 0.0)};
    forgetWhiteBalance(files[0]);
    EXPECT_TRUE(computeSourceMedians(files).hasWhiteBalance) << "the one without comes first";
    forgetWhiteBalance(files[1]);
    EXPECT_FALSE(computeSourceMedians(files).hasWhiteBalance);
    const auto images = PanoramaImagesProvider(sourceOf(files)).load(never);
    ASSERT_THAT(images, SizeIs(3));
    for (std::size_t i = 0; i < files.size(); ++i)
        EXPECT_TRUE(sameBytes(images[i], loadPanoramaFrame(files[i], {}, {}))) << "each keeps its own";
}

TEST_F(RawImagesProvider, FilesOfDifferentWhiteBalancesGetThatOfTheMiddleOne)
{
    // The same light on the sensor each time; in the order of their names the middle one is not the second.
    const Paths files = {rawSetTo("a.dng", 1.0), rawSetTo("b.dng", 1.25), rawSetTo("c.dng", 0.8)};
    const auto redToBlue = [](const cv::Mat& m) { return cv::mean(m)[2] / cv::mean(m)[0]; };
    std::vector<double> own;
    for (const auto& file : files)
        own.push_back(redToBlue(loadPanoramaFrame(file, {}, {})));
    ASSERT_GT(own[2], 1.05 * own[0]);
    ASSERT_GT(own[0], 1.05 * own[1]);

    const auto images = PanoramaImagesProvider(sourceOf(files)).load(never);
    ASSERT_THAT(images, SizeIs(3));
    for (const cv::Mat& image : images)
        EXPECT_NEAR(redToBlue(image) / own[0], 1.0, 0.01);
    EXPECT_TRUE(sameBytes(images[0], loadPanoramaFrame(files[0], {}, {}))) << "the one that has it";
}

TEST_F(RawImagesProvider, DevelopsRawFilesWithTheirExposuresLeftAsTheyAre)
{
    PanoramaImagesProvider provider(sourceOf({raw("a.dng", -1.0), raw("b.dng", 0.0)}));
    const auto images = provider.load(never);
    ASSERT_THAT(images, SizeIs(2));
    EXPECT_EQ(images[0].size(), cv::Size(192, 128));
    EXPECT_GT(greenOf(images[1]), 500.0);
    EXPECT_FALSE(sameBytes(images[0], images[1]));
}

TEST_F(RawImagesProvider, NeighboursAgreeWhereTheyOverlap)
{
    // The window, and the same half of it with the dark wall beside it.
    constexpr int kShift = 64;
    constexpr int kZoom = 3;
    const scenes::RadianceScene scene({{384, 256}, 1, 0.06});
    std::vector<std::filesystem::path> files;
    for (const char* const name : {"left.dng", "right.dng"}) {
        scenes::Shot shot;
        shot.exposure = scenes::exposedBy({}, -1.0);
        shot.view.zoom = kZoom;
        shot.view.shiftX = files.empty() ? -kShift : 0.0;
        files.push_back(folder / name);
        scenes::writeDng(files.back(), scene, {}, shot, std::nullopt);
    }
    PanoramaImagesProvider provider(sourceOf(files));
    const auto images = provider.load(never);
    ASSERT_THAT(images, SizeIs(2));
    const int width = images[0].cols;
    const int moved = kZoom * kShift; // pixels of the frames
    const cv::Rect inLeft(moved + 8, 8, width - moved - 16, images[0].rows - 16);
    const cv::Scalar left = cv::mean(images[0](inLeft));
    const cv::Scalar right = cv::mean(images[1](inLeft - cv::Point(moved, 0)));
    const double allLeft = cv::mean(images[0])[1];
    const double allRight = cv::mean(images[1])[1];
    EXPECT_GT(std::abs(std::log2(allLeft / allRight)), 0.3) << "the frames must show different tones";
    constexpr double kEncoding = 2.2; // values of the provider are encoded
    for (int channel = 0; channel < 3; ++channel)
        EXPECT_LT(std::abs(kEncoding * std::log2(left[channel] / right[channel])), 0.1) << channel;
}

TEST_F(RawImagesProvider, TheLensOfRawFilesIsCorrectedIfEnabled)
{
    const auto path = rawOfDiscs(folder / "discs.dng", 1.0015);
    const auto pixels = [](const cv::Mat& matrix) { return imageDataFromCVMat(matrix); };
    const cv::Mat plainly = loadPanoramaFrame(path, {}, {});
    ASSERT_EQ(plainly.size(), cv::Size(kRawSize.width, kRawSize.height));
    LensFlags flags;
    flags.rawChromaticAberration = true;
    const cv::Mat withoutFringes = loadPanoramaFrame(path, flags, {});
    EXPECT_LT(fringes(*pixels(withoutFringes)), 0.5 * fringes(*pixels(plainly)));
    flags = {};
    flags.devignette = true; // done by the stitcher
    EXPECT_TRUE(sameBytes(loadPanoramaFrame(path, flags, {}), plainly));

    const auto metadata = ImageReader::readMetadata(path);
    const std::shared_ptr<_ImageData<PixelRGB<float>>> any = pixels(plainly);
    if (applyAutoLensCorrection(any, metadata, nullptr) == any)
        GTEST_SKIP() << "lensfun's database is not installed, or does not know the camera";
    flags = {};
    flags.autoLensCorrection = true;
    const cv::Mat straight = loadPanoramaFrame(path, flags, {});
    EXPECT_GT(straight.at<cv::Vec3s>(2, 2)[1], 1.05 * plainly.at<cv::Vec3s>(2, 2)[1]) << "corners are brightened";
    EXPECT_FALSE(sameBytes(straight, plainly));
    // The settings record enables it too.
    PanoSource source = sourceOf({path});
    source.settings.autoLensCorrection = true;
    PanoramaImagesProvider provider(source);
    const auto images = provider.load(never);
    ASSERT_THAT(images, SizeIs(1));
    EXPECT_TRUE(sameBytes(images[0], loadPanoramaFrame(path, flags, computeSourceMedians({path}))));
}

TEST_F(HdrProvider, MergesBracketsInOrderOfTheirSmallestPaths)
{
    const auto frame = [this](const char* name, float gain) { return writtenTo(folder / name, *texturedAt(gain)); };
    PanoSourceHDR source;
    source.brackets = {{frame("c.tif", 0.9f), frame("d.tif", 0.45f)}, {frame("z.tif", 0.3f), frame("a.tif", 0.15f)}};
    PanoramaHDRProvider provider(source);
    provider.setLoadCallback(record());
    const auto images = provider.load(never);
    ASSERT_THAT(images, SizeIs(2));
    EXPECT_EQ(images[0].type(), CV_16SC3);
    EXPECT_EQ(images[0].size(), cv::Size(160, 120));
    EXPECT_LT(greenOf(images[0]), greenOf(images[1])) << "the bracket that holds a.tif comes first";
    // Phase p of bracket i of N: (p + 1) / (7 N + 1) + i / N.
    ASSERT_FALSE(reported.empty());
    EXPECT_FLOAT_EQ(reported.front(), 1.0f / 15.0f);
    EXPECT_FLOAT_EQ(reported.back(), 1.0f);
    EXPECT_THAT(reported, testing::Contains(testing::FloatEq(0.5f)));
    EXPECT_THAT(reported, testing::Contains(testing::FloatEq(1.0f / 15.0f + 0.5f)));
    EXPECT_THAT(reported, testing::Contains(testing::FloatEq(7.0f / 15.0f)));
}

TEST_F(HdrProvider, BracketsOfOneFileReportNoMoreThanTheWhole)
{
    PanoSourceHDR source;
    for (const char* const name : {"a.tif", "b.tif", "c.tif"})
        source.brackets.push_back({writtenTo(folder / name, *texturedAt(0.9f))});
    PanoramaHDRProvider provider(source);
    provider.setLoadCallback(record());
    ASSERT_THAT(provider.load(never), SizeIs(3));
    EXPECT_TRUE(std::is_sorted(reported.begin(), reported.end())) << testing::PrintToString(reported);
    EXPECT_FLOAT_EQ(reported.back(), 1.0f);
}

TEST_F(HdrProvider, GivesSrgb)
{
    // Saturated in the working space: the matrix must hold the colours of sRGB, where red is larger and blue smaller.
    const auto frame = [this](const char* name, float gain) {
        return writtenTo(folder / name, *drawn(160, 120, [gain](int x, int y) {
                             const auto p = texture(x, y);
                             return PixelRGB<float>{p.r * gain, p.g * gain * 0.7f, p.b * gain * 0.5f};
                         }));
    };
    PanoSourceHDR source;
    source.brackets = {{frame("a.tif", 0.9f), frame("b.tif", 0.6f)}};
    const auto merged = make_HDR(source.brackets[0], {}, {}, nullptr).first;
    ASSERT_NE(merged, nullptr);
    const auto working = merged->imageData({}, {}, true);
    ASSERT_TRUE(*working->colorProfile() == *ColorProfileType::melissaRGB());
    const auto images = PanoramaHDRProvider(source).load(never);
    ASSERT_THAT(images, SizeIs(1));
    ASSERT_EQ(images[0].size(), cv::Size(160, 120));
    // Both spaces have the curve of sRGB. Their primaries: ISO 22028-2 (ROMM) and IEC 61966-2-1, adapted by Bradford.
    const cv::Matx33d srgbFromWorking(2.03437, -0.72763, -0.30673, //
                                      -0.22883, 1.23175, -0.00293, //
                                      -0.00856, -0.15327, 1.16183);
    constexpr double kTolerance = 3e-3; // of full scale; without a conversion red differs by a tenth
    double worst = 0.0;
    for (int y = 0; y < 120; ++y)
        for (int x = 0; x < 160; ++x) {
            const auto& p = working->row(y)[x];
            const cv::Vec3d light = srgbFromWorking * cv::Vec3d(linearFromSRGBCurve(p.r), linearFromSRGBCurve(p.g),
                                                                linearFromSRGBCurve(p.b));
            for (int channel = 0; channel < 3; ++channel) {
                const double expected = srgbCurveFromLinear(static_cast<float>(std::clamp(light[channel], 0.0, 1.0)));
                const double found = images[0].at<cv::Vec3s>(y, x)[2 - channel] / kWorkingWhite;
                worst = std::max(worst, std::abs(found - expected));
            }
        }
    EXPECT_LT(worst, kTolerance);
}

TEST_F(HdrProvider, ABracketThatCannotBeMergedGivesNothing)
{
    PanoSourceHDR source;
    source.brackets = {{folder / "none1.tif", folder / "none2.tif"}};
    PanoramaHDRProvider provider(source);
    EXPECT_THAT(provider.load(cancelAt(100)), IsEmpty());
    EXPECT_EQ(polls, 1) << "polled once, whatever it returns";
}

TEST_F(HdrProvider, IsCancelledAfterTheReportOfABracket)
{
    PanoSourceHDR source;
    source.brackets = {{writtenTo(folder / "a.tif", *texturedAt(0.9f)), writtenTo(folder / "b.tif", *texturedAt(0.5f))},
                       {folder / "none.tif"}};
    PanoramaHDRProvider provider(source);
    provider.setLoadCallback(record());
    EXPECT_THAT(provider.load(cancelAt(1)), IsEmpty());
    EXPECT_FLOAT_EQ(reported.back(), 0.5f);
    EXPECT_FALSE(provider.getImages()[0].empty());
    EXPECT_TRUE(provider.getImages()[1].empty());
}

TEST_F(HdrProvider, WithoutBracketsGivesNothingAndReportsNothing)
{
    PanoramaHDRProvider provider{PanoSourceHDR()};
    provider.setLoadCallback(record());
    EXPECT_THAT(provider.load(cancelAt(1)), IsEmpty());
    EXPECT_THAT(reported, IsEmpty());
    EXPECT_EQ(polls, 0);
}

TEST_F(HdrProvider, TheFlagStopsAMergeAndLetsTheNextOneRun)
{
    PanoSourceHDR source;
    source.brackets = {
        {writtenTo(folder / "a.tif", *texturedAt(0.9f)), writtenTo(folder / "b.tif", *texturedAt(0.5f))}};
    PanoramaHDRProvider provider(source);
    provider.cancelLoad(true);
    EXPECT_THAT(provider.load(never), IsEmpty());
    provider.cancelLoad(false);
    EXPECT_THAT(provider.load(never), SizeIs(1));
}

// A pan of 60 frames over a world of pictures.
class VideoProvider : public Providers
{
protected:
    static constexpr std::size_t kFrames = 60;
    Pan pan{drawnWorld(900, 240, 3), {320, 240}, [](std::size_t frame) {
                return cv::Point(static_cast<int>(9 * frame), 0);
            }};
    PanoSourceVideo source;

    void SetUp() override
    {
        source.file = pan.write(folder / "pan.mp4", kFrames);
        source.end = kFrames;
    }
};

TEST_F(VideoProvider, DecodesOnceUntilTheIntervalChanges)
{
    PanoramaVideoProvider provider(source);
    provider.setLoadCallback(record());
    const auto first = provider.load(never);
    ASSERT_GE(first.size(), 2u);
    EXPECT_EQ(first[0].type(), CV_16SC3);
    EXPECT_EQ(pan.frameShownBy(first[0], kFrames), 0u);
    EXPECT_FALSE(reported.empty());
    reported.clear();
    const auto again = provider.load(never);
    EXPECT_THAT(reported, IsEmpty());
    ASSERT_EQ(again.size(), first.size());
    EXPECT_EQ(again[0].data, first[0].data);

    provider.setInterval(0, kFrames);
    (void)provider.load(never);
    EXPECT_THAT(reported, IsEmpty()) << "the same interval";
    provider.setInterval(15, kFrames);
    const auto later = provider.load(never);
    EXPECT_FALSE(reported.empty());
    EXPECT_EQ(pan.frameShownBy(later.at(0), kFrames), 15u);
}

TEST_F(VideoProvider, IsCancelled)
{
    PanoramaVideoProvider provider(source);
    EXPECT_THAT(provider.load(cancelAt(1)), IsEmpty());
    ASSERT_FALSE(provider.load(never).empty()) << "and loads the next time";
    polls = 0;
    EXPECT_THAT(provider.load(cancelAt(1)), IsEmpty()) << "polled even if nothing is left to do";
    EXPECT_EQ(polls, 1);
}

TEST_F(VideoProvider, CompositionFramesFollowInAscendingOrderWithTheirRectangles)
{
    source.frames = {40, 7};
    source.rects = {{4, 4, 40, 40}, {7, 7, 70, 70}};
    PanoramaVideoProvider provider(source);
    const auto images = provider.load(never);
    ASSERT_GE(images.size(), 4u);
    EXPECT_THAT(provider.getCompositionFrames(), ElementsAre(7u, 40u));
    EXPECT_THAT(provider.getCompositionRects(), ElementsAre(_Rect<int>(7, 7, 70, 70), _Rect<int>(4, 4, 40, 40)));
    EXPECT_EQ(pan.frameShownBy(images[images.size() - 2], kFrames), 7u);
    EXPECT_EQ(pan.frameShownBy(images[images.size() - 1], kFrames), 39u) << "by the counter of the capture";
}

TEST_F(VideoProvider, NewCompositionFramesReplaceTheEarlierOnes)
{
    source.frames = {5};
    source.rects = {{1, 1, 10, 10}};
    PanoramaVideoProvider provider(source);
    const std::size_t keyFrames = provider.load(never).size() - 1;
    const _Rect<int> a(1, 1, 11, 11);
    const _Rect<int> b(2, 2, 22, 22);
    const _Rect<int> c(3, 3, 33, 33);
    provider.setCompositionFrames({30, 12, 45}, {a, b, c});
    EXPECT_THAT(provider.getCompositionFrames(), ElementsAre(12u, 30u, 45u));
    EXPECT_THAT(provider.getCompositionRects(), ElementsAre(b, a, c)) << "each with its own rectangle";
    ASSERT_EQ(provider.getImages().size(), keyFrames + 3);
    EXPECT_EQ(pan.frameShownBy(provider.getImages()[keyFrames], kFrames), 12u);
    EXPECT_EQ(pan.frameShownBy(provider.getImages()[keyFrames + 1], kFrames), 29u);
    // The capture only goes forward: a frame requested twice stays with its first owner.
    provider.setCompositionFrames({30, 12, 30}, {a, b, c});
    EXPECT_THAT(provider.getCompositionFrames(), ElementsAre(12u, 30u));
    EXPECT_THAT(provider.getCompositionRects(), ElementsAre(b, a));
    provider.setCompositionFrames({}, {});
    EXPECT_EQ(provider.getImages().size(), keyFrames);
    EXPECT_THAT(provider.getCompositionRects(), IsEmpty());
}

TEST_F(VideoProvider, AFrameThatCannotBeReadDropsOutSilently)
{
    PanoramaVideoProvider provider(source);
    const std::size_t keyFrames = provider.load(never).size();
    const LogCapture capture;
    provider.setCompositionFrames({5000, 20}, {{1, 1, 11, 11}, {2, 2, 22, 22}});
    EXPECT_THAT(provider.getCompositionFrames(), ElementsAre(20u));
    EXPECT_THAT(provider.getCompositionRects(), ElementsAre(_Rect<int>(2, 2, 22, 22)));
    EXPECT_EQ(provider.getImages().size(), keyFrames + 1);
    EXPECT_THAT(capture.texts(LogMessageType::Error), IsEmpty());
}

TEST_F(VideoProvider, AnInvalidFileGivesNothing)
{
    source.file = folder / "none.mp4";
    PanoramaVideoProvider provider(source);
    EXPECT_THAT(provider.load(cancelAt(1000)), IsEmpty());
    EXPECT_THAT(provider.load(never), IsEmpty()) << "tries again";
}

TEST_F(VideoProvider, AFailureIsLoggedAndGivesNothing)
{
    source.start = 100000; // beyond the last frame
    source.end = 200000;
    PanoramaVideoProvider provider(source);
    const LogCapture capture;
    EXPECT_THAT(provider.load(never), IsEmpty());
    EXPECT_THAT(capture.texts(LogMessageType::Error), ElementsAre(StartsWith("failed to load video images ")));
    EXPECT_THAT(provider.getImages(), IsEmpty());
}

namespace {

// Throws at the first call, and never cancels.
template <typename Thrown>
std::function<bool()> failingOnce(Thrown thrown)
{
    return [thrown, failed = std::make_shared<bool>(false)]() -> bool {
        if (!std::exchange(*failed, true))
            throw thrown;
        return false;
    };
}

} // namespace

TEST_F(VideoProvider, LogsTheReasonOfAnException)
{
    PanoramaVideoProvider provider(source);
    const LogCapture capture;
    EXPECT_THAT(provider.load(failingOnce(std::runtime_error("stuck"))), IsEmpty());
    EXPECT_THAT(provider.load(failingOnce(cv::Exception(cv::Error::StsError, "torn", "walk", "tape", 1))), IsEmpty());
    EXPECT_THAT(provider.load(failingOnce(std::logic_error("not told"))), IsEmpty());
    EXPECT_THAT(provider.load(failingOnce(7)), IsEmpty());
    EXPECT_THAT(capture.texts(LogMessageType::Error),
                ElementsAre("failed to load video images stuck",
                            testing::AllOf(StartsWith("failed to load video images "), HasSubstr("torn")),
                            "failed to load video images ", "failed to load video images "));
    EXPECT_FALSE(provider.load(never).empty()) << "and loads the next time";
}

TEST_F(Providers, ExceptionsOfFilesAndBracketsReachTheCaller)
{
    struct Broken
    {};
    PanoramaImagesProvider images(sourceOf(grays()));
    EXPECT_THROW((void)images.load(failingOnce(Broken())), Broken);
    PanoSourceHDR brackets;
    brackets.brackets = {grays()};
    EXPECT_THROW((void)PanoramaHDRProvider(brackets).load(failingOnce(Broken())), Broken);
}

TEST(PanoramaStitchingSettings, StartAsTheApplicationExpects)
{
    const PanoramaStitchingSettings settings;
    EXPECT_FALSE(settings.option0 || settings.autoLensCorrection || settings.rawChromaticAberration ||
                 settings.devignette || settings.option5);
    EXPECT_TRUE(settings.option4);
    EXPECT_EQ(settings.scale0, 0.6f);
    EXPECT_EQ(settings.scale1, 0.1f);
    EXPECT_EQ(settings.scale2, -1.0f);
    EXPECT_EQ(settings.scale3, 5.0f);
    EXPECT_EQ(settings.factor0, 0.65f);
    EXPECT_EQ(settings.factor1, 0.5f);
    EXPECT_EQ(settings.warpType, 3);
    const std::vector<std::int32_t> modes = {settings.mode0, settings.mode1, settings.mode2,  settings.mode3,
                                             settings.mode4, settings.mode5, settings.mode6,  settings.mode7,
                                             settings.mode8, settings.mode9, settings.mode10, settings.mode11,
                                             settings.mode12};
    EXPECT_THAT(modes, ElementsAre(2, 1, -1, 1, 1, 1, 2, 1, 2, 2, 0, 2, 32));
    PanoramaStitchingSettings copy;
    copy.devignette = true;
    copy.mode12 = 7;
    const PanoramaStitchingSettings moved = std::move(copy);
    EXPECT_TRUE(moved.devignette);
    EXPECT_EQ(moved.mode12, 7);
}
