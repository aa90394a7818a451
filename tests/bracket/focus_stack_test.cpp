#include "bracket/focus_stack.hpp"
#include "bracket/frame_structure.hpp"
#include "support/clouds.hpp"
#include "support/files.hpp"
#include "support/raw_discs.hpp"
#include "support/temporary_folder.hpp"

#include <orvo/lens_correction.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_extensions/focus_stack.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/picture_file.hpp>
#include <orvo_logger/log_capture.hpp>
#include <scenes/bracket_files.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <optional>
#include <utility>

using namespace orvo;
using namespace orvo::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using Paths = std::vector<std::filesystem::path>;
using Settings = BracketSettings::FocusStacking;

// Records its inputs and returns the first frame.
class NotingStacker : public grfx::IFocusStacking<PixelRGB<float>>
{
public:
    struct Added
    {
        float firstRed;
        _Size<int> size;
        int flag;
    };

    NotingStacker(std::vector<Added>& notes_, int& results_) : notes(notes_), results(results_) {}

    void addFrame(const PixelRGB<float>* pixels, int width, int height, int flag) override
    {
        notes.push_back({pixels[0].r, {width, height}, flag});
        if (first.empty())
            first.assign(pixels, pixels + static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    }
    void reset() override { first.clear(); }
    [[nodiscard]] int frameCount() const override { return static_cast<int>(notes.size()); }
    void getResult(PixelRGB<float>* pixels, int, int) override
    {
        ++results;
        std::copy(first.begin(), first.end(), pixels);
    }

private:
    std::vector<Added>& notes;
    int& results;
    std::vector<PixelRGB<float>> first;
};

class FocusStack : public testing::Test
{
protected:
    TemporaryFolder folder;
    std::vector<NotingStacker::Added> added;
    int results = 0;

    std::shared_ptr<Image> stackNoted(const Paths& paths, const Settings& settings)
    {
        const auto makeStacker = [this](int, int) { return std::make_unique<NotingStacker>(added, results); };
        return stackFocusSeries(paths, settings, makeStacker, "caller");
    }

    std::filesystem::path file(const std::string& name, const Picture& picture)
    {
        return writtenTo(folder / (name + ".tif"), picture);
    }

    // Gray frames that differ in their first red value.
    Paths grays(const std::vector<float>& values)
    {
        Paths paths;
        for (const float value : values)
            paths.push_back(file("gray" + std::to_string(paths.size()), *plain(64, 48, value)));
        return paths;
    }

    std::filesystem::path textFile(const std::string& name)
    {
        std::ofstream(folder / name) << "no picture";
        return folder / name;
    }
};

Settings unaligned()
{
    Settings settings;
    settings.adjust.enabled = false;
    return settings;
}

Settings alignedTo(int reference)
{
    Settings settings;
    settings.adjust.referenceIndex = reference;
    return settings;
}

std::vector<float> reds(const std::vector<NotingStacker::Added>& added)
{
    std::vector<float> values;
    for (const auto& note : added)
        values.push_back(std::round(note.firstRed * 100.0f) / 100.0f);
    return values;
}

std::shared_ptr<const Picture> pixelsOf(const Image& image) { return image.developedOriginalImageData({}); }

// A texture that is sharp on one half and a smooth mean on the other.
std::shared_ptr<Picture> sharpOnOneSide(bool left)
{
    return drawn(160, 120, [left](int x, int y) {
        const bool isSharp = (x < 80) == left;
        const auto value = 0.5f + (isSharp ? 0.2f * static_cast<float>(std::sin(0.9 * x) * std::sin(1.1 * y)) : 0.0f);
        return PixelRGB<float>{value, value, value};
    });
}

} // namespace

TEST_F(FocusStack, ASinglePathGivesTheStackerTheReferenceOnly)
{
    const auto picture = textured(64, 48);
    const auto image = stackNoted({file("one", *picture)}, {});
    ASSERT_TRUE(image);
    EXPECT_THAT(added, SizeIs(1));
    EXPECT_EQ(results, 1);
    EXPECT_THAT(*pixelsOf(*image), PixelsNear(*picture, 1e-4f));
}

TEST_F(FocusStack, ASinglePathGivesThatFramesContent)
{
    const auto picture = textured(64, 48);
    for (const Settings& settings : {Settings(), unaligned()}) {
        const auto image = makeFocusStack({file("one", *picture)}, settings);
        ASSERT_TRUE(image);
        EXPECT_THAT(*pixelsOf(*image), PixelsNear(*picture, 1e-4f));
    }
}

TEST_F(FocusStack, WithoutAlignmentTheMiddlePathIsTheReferenceAndGoesFirst)
{
    auto settings = unaligned();
    settings.adjust.referenceIndex = 3; // has an effect only with alignment
    ASSERT_TRUE(stackNoted(grays({0.1f, 0.2f, 0.3f, 0.4f}), settings));
    EXPECT_THAT(reds(added), ElementsAre(0.3f, 0.1f, 0.2f, 0.4f));
}

TEST_F(FocusStack, TheAlignmentReferenceGoesFirst)
{
    ASSERT_TRUE(stackNoted(grays({0.1f, 0.2f, 0.3f, 0.4f}), alignedTo(1)));
    EXPECT_THAT(reds(added), ElementsAre(0.2f, 0.1f, 0.3f, 0.4f));
}

TEST_F(FocusStack, EveryFrameIsAddedAtTheReferencesSizeWithFlagZero)
{
    ASSERT_TRUE(stackNoted(grays({0.1f, 0.2f, 0.3f}), unaligned()));
    for (const auto& note : added) {
        EXPECT_EQ(note.size, _Size<int>(64, 48));
        EXPECT_EQ(note.flag, 0);
    }
    EXPECT_EQ(results, 1);
}

TEST_F(FocusStack, WithoutAlignmentTheResultHasTheReferencesSize)
{
    const auto image = makeFocusStack(
        {file("a", *textured(160, 120)), file("b", *textured(160, 120, 4, 3)), file("c", *textured(160, 120, 8, 6))},
        unaligned());
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), _Size<int>(160, 120));
}

TEST_F(FocusStack, AlignmentShrinksTheCropRectangle)
{
    const auto image = makeFocusStack(
        {file("a", *textured(320, 240)), file("b", *textured(320, 240, 4, 3)), file("c", *textured(320, 240, -5, 2))},
        alignedTo(0));
    ASSERT_TRUE(image);
    // Each frame loses what it moved on both sides, since its inner rectangle is centred; the common part loses both.
    EXPECT_NEAR(image->width(), 320 - 9, 2);
    EXPECT_NEAR(image->height(), 240 - 3, 3);
    EXPECT_EQ(image->metadata()->size, image->size());
}

TEST_F(FocusStack, TheCropShowsTheReferenceInPlace)
{
    const auto reference = textured(320, 240);
    const auto image = makeFocusStack({file("a", *reference), file("b", *textured(320, 240, 6, 4))}, alignedTo(0));
    ASSERT_TRUE(image);
    const auto pixels = pixelsOf(*image);
    float best = 1.0f;
    for (int y = 0; y <= 240 - image->height(); ++y)
        for (int x = 0; x <= 320 - image->width(); ++x)
            best =
                std::min(best, largestDifference(*pixels, *reference->copy({x, y, image->width(), image->height()})));
    EXPECT_LT(best, 0.03f);
}

TEST_F(FocusStack, AnEmptyCommonRectangleKeepsTheWholePicture)
{
    const Paths paths = {file("here", *clouds(kSkyOfReference)), file("elsewhere", *clouds(kSkyElsewhere))};
    const auto image = stackNoted(paths, alignedTo(0));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), _Size<int>(120, 90));
    EXPECT_THAT(*pixelsOf(*image), PixelsNear(*clouds(kSkyOfReference), 1e-4f));
    EXPECT_THAT(added, SizeIs(2)) << "the frame is still added";
}

TEST(CommonRectangle, IsTheIntersection)
{
    EXPECT_EQ(commonRectangle({0, 0, 100, 80}, {10, 5, 100, 60}), _Rect<int>(10, 5, 90, 60));
    EXPECT_EQ(commonRectangle({10, 5, 20, 20}, {0, 0, 100, 80}), _Rect<int>(10, 5, 20, 20));
}

TEST(CommonRectangle, IsAllZeroWithoutAnIntersection)
{
    const _Rect<int> frame(10, 10, 20, 20);
    for (const auto& other :
         {_Rect<int>(30, 10, 5, 20), _Rect<int>(10, 30, 20, 5), _Rect<int>(0, 0, 10, 10), _Rect<int>()})
        EXPECT_EQ(commonRectangle(frame, other), _Rect<int>());
}

TEST(CommonRectangle, AnEmptyOneMeansTheWholePicture)
{
    const auto whole = textured(64, 48);
    const auto cropped = whole->resize(_Rect<int>().size(), {}, true);
    EXPECT_TRUE(sameBytes(*cropped, *whole));
}

TEST_F(FocusStack, TakesTheSharpPartOfEachFrame)
{
    const auto image =
        makeFocusStack({file("left", *sharpOnOneSide(true)), file("right", *sharpOnOneSide(false))}, unaligned());
    ASSERT_TRUE(image);
    const auto pixels = pixelsOf(*image);
    float worst = 0.0f;
    for (int y = 8; y < 112; ++y)
        for (int x = 8; x < 152; ++x) {
            if (std::abs(x - 80) < 8)
                continue;
            const auto expected = 0.5f + 0.2f * static_cast<float>(std::sin(0.9 * x) * std::sin(1.1 * y));
            worst = std::max(worst, std::abs(pixels->row(y)[x].g - expected));
        }
    EXPECT_LT(worst, 0.04f);
}

TEST_F(FocusStack, TheMetadataAreTheReferencesWithoutTheRawMark)
{
    const auto image = stackNoted(grays({0.1f, 0.2f, 0.3f}), unaligned());
    ASSERT_TRUE(image);
    EXPECT_FALSE(image->metadata()->isRaw);
    EXPECT_TRUE(image->metadata()->fileProfile);
}

TEST_F(FocusStack, RawFramesAreDevelopedAndTheirMarkIsCleared)
{
    scenes::BracketRecipe recipe;
    recipe.scene.size = {192, 128};
    recipe.evs = {0.0, 0.0};
    const auto paths =
        scenes::writeBracket(scenes::Bracket(recipe), folder.path(), {.format = scenes::BracketFileFormat::Dng});
    auto settings = unaligned();
    settings.rawAutoCorrection.lensCorrection = true;
    settings.rawAutoCorrection.chromaticAberrations = true;
    const auto image = makeFocusStack(paths, settings);
    ASSERT_TRUE(image);
    EXPECT_FALSE(image->metadata()->isRaw);
    EXPECT_TRUE(image->metadata()->isDeveloped);
    EXPECT_TRUE(*pixelsOf(*image)->colorProfile() == *ColorProfileType::melissaRGB());
}

namespace {

std::shared_ptr<ImageMetadata> rawMetadataOf(const std::filesystem::path& path)
{
    return std::make_shared<ImageMetadata>(*ImageReader::readMetadata(path));
}

} // namespace

TEST_F(FocusStack, FringesOfRawFramesAreRemovedFromTheMergedPictureIfEnabled)
{
    const Paths paths = {rawOfDiscs(folder / "a.dng", 1.0015), rawOfDiscs(folder / "b.dng", 1.0015)};
    auto settings = unaligned();
    const auto plainly = stackNoted(paths, settings);
    settings.rawAutoCorrection.chromaticAberrations = true;
    const auto corrected = stackNoted(paths, settings);
    ASSERT_TRUE(plainly && corrected);
    EXPECT_LT(fringes(*pixelsOf(*corrected)), 0.5 * fringes(*pixelsOf(*plainly)));
    auto expected = pixelsOf(*plainly)->copy({});
    applyChromaticAbberationsCorrection(expected);
    EXPECT_TRUE(sameBytes(*pixelsOf(*corrected), *expected)) << "once, and on the result";
    EXPECT_EQ(added[0].firstRed, added[2].firstRed) << "the frames are stacked uncorrected";
}

TEST_F(FocusStack, TheLensOfRawFramesIsCorrectedOnTheMergedPictureIfEnabled)
{
    const Paths paths = {rawOfDiscs(folder / "a.dng", 1.0015)};
    const auto metadata = rawMetadataOf(paths[0]);
    ASSERT_TRUE(metadata->isRaw);
    auto settings = unaligned();
    const auto plainly = stackNoted(paths, settings);
    settings.rawAutoCorrection.lensCorrection = true;
    const auto straight = stackNoted(paths, settings);
    ASSERT_TRUE(plainly && straight);
    const auto before = pixelsOf(*plainly)->copy({});
    auto expected = applyAutoLensCorrection(before, metadata, nullptr);
    if (expected == before)
        GTEST_SKIP() << "lensfun's database is not installed, or does not know the camera";
    EXPECT_FALSE(sameBytes(*expected, *before));
    EXPECT_TRUE(sameBytes(*pixelsOf(*straight), *expected));
    EXPECT_GT(pixelsOf(*straight)->row(2)[2].g, pixelsOf(*plainly)->row(2)[2].g) << "corners are brightened";
    // The lens first, then its fringes.
    settings.rawAutoCorrection.chromaticAberrations = true;
    const auto both = stackNoted(paths, settings);
    ASSERT_TRUE(both);
    applyChromaticAbberationsCorrection(expected);
    EXPECT_TRUE(sameBytes(*pixelsOf(*both), *expected));
    EXPECT_FALSE(both->metadata()->isRaw);
}

TEST_F(FocusStack, AnUnreadableFrameIsReportedOnStandardErrorAndGivesNothing)
{
    auto paths = grays({0.1f, 0.2f});
    paths.push_back(textFile("broken.jpg"));
    const LogCapture capture;
    testing::internal::CaptureStderr();
    const auto image = makeFocusStack(paths, unaligned());
    const std::string errorOutput = testing::internal::GetCapturedStderr();
    EXPECT_FALSE(image);
    EXPECT_THAT(errorOutput, testing::EndsWith(" makeFocusStack: Image broken.jpg could not be loaded\n"));
    EXPECT_THAT(errorOutput, HasSubstr("makeFocusStack(")) << "the line begins with the signature of the function";
    EXPECT_THAT(errorOutput, HasSubstr("FocusStacking"));
    EXPECT_EQ(std::count(errorOutput.begin(), errorOutput.end(), '\n'), 1);
    EXPECT_THAT(capture.texts(LogMessageType::Warning),
                testing::Contains("Can't open image at path: " + paths.back().string()));
    EXPECT_THAT(capture.texts(LogMessageType::Error), IsEmpty()) << "an ordinary failure, not an exception";
}

TEST_F(FocusStack, AnEmptyListGivesNothingAndALine)
{
    const LogCapture capture;
    EXPECT_FALSE(makeFocusStack({}, {}));
    EXPECT_THAT(capture.texts(LogMessageType::Error),
                ElementsAre("Error in makeFocusStack: frame 0 was requested, but the series has 0"));
}

TEST_F(FocusStack, AReferenceOutOfRangeGivesNothingAndALine)
{
    for (const int reference : {-1, 2}) {
        const LogCapture capture;
        EXPECT_FALSE(makeFocusStack(grays({0.1f, 0.2f}), alignedTo(reference)));
        EXPECT_THAT(capture.texts(LogMessageType::Error),
                    ElementsAre(testing::StartsWith("Error in makeFocusStack: frame " + std::to_string(reference))));
    }
}

TEST_F(FocusStack, AnExceptionOfAnyKindIsLoggedInTheCallFrame)
{
    const auto paths = grays({0.1f, 0.2f});
    const auto failing = [](int, int) -> std::unique_ptr<grfx::IFocusStacking<PixelRGB<float>>> {
        throw std::runtime_error("no stacker");
    };
    EXPECT_THROW((void)stackFocusSeries(paths, unaligned(), failing, "caller"), std::runtime_error);
    auto settings = unaligned();
    settings.ghostReduction.enabled = true;
    settings.ghostReduction.referenceIndex = 7;
    const LogCapture capture;
    EXPECT_FALSE(makeFocusStack(paths, settings));
    EXPECT_THAT(capture.texts(LogMessageType::Error), ElementsAre(testing::StartsWith("Error in makeFocusStack: ")));
}

TEST_F(FocusStack, FramesOfDifferentSizesAreRefusedByName)
{
    const Paths paths = {file("a", *textured(64, 48)), file("b", *textured(48, 64))};
    for (const Settings& settings : {Settings(), unaligned()}) {
        const LogCapture capture;
        EXPECT_FALSE(makeFocusStack(paths, settings));
        EXPECT_THAT(capture.texts(LogMessageType::Error),
                    ElementsAre(testing::AllOf(HasSubstr("all frames must have one size"), HasSubstr("a.tif"),
                                               HasSubstr("b.tif"), HasSubstr("48 x 64"), HasSubstr("64 x 48"))));
    }
}

namespace {

constexpr int kDiscRow = 120;
constexpr int kDiscs[] = {80, 240}; // columns of their centres

// A disc at a different position in each frame of the same view.
std::shared_ptr<Picture> withDisc(int frame)
{
    return drawn(320, 240, [frame](int x, int y) {
        const int dx = x - kDiscs[frame];
        const int dy = y - kDiscRow;
        return dx * dx + dy * dy < 30 * 30 ? PixelRGB<float>{0.9f, 0.9f, 0.1f} : texture(x, y);
    });
}

Settings deghostedTo(int reference, Settings settings)
{
    settings.ghostReduction.enabled = true;
    settings.ghostReduction.referenceIndex = reference;
    settings.ghostReduction.amount = 4;
    return settings;
}

// Checks that a picture shows the disc of one frame and not that of the other.
void expectDiscOf(int frame, const Picture& picture)
{
    EXPECT_LT(picture.row(kDiscRow)[kDiscs[frame]].b, 0.15f) << "the disc of the ghost reference is kept";
    EXPECT_GT(picture.row(kDiscRow)[kDiscs[1 - frame]].b, 0.3f) << "the disc of the other frame is gone";
}

} // namespace

TEST_F(FocusStack, DeghostingKeepsTheReferencesSubject)
{
    const Paths paths = {file("a", *withDisc(0)), file("b", *withDisc(1))};
    const auto image = makeFocusStack(paths, deghostedTo(1, unaligned()));
    ASSERT_TRUE(image);
    expectDiscOf(1, *pixelsOf(*image));
}

TEST_F(FocusStack, TheStackingReferenceIsDeghostedBeforeItIsAdded)
{
    const Paths paths = {file("a", *withDisc(0)), file("b", *withDisc(1))};
    const auto settings = deghostedTo(0, unaligned()); // the stacking reference is the second
    const auto first = stackNoted(paths, settings);    // as passed to the stacker
    ASSERT_TRUE(first);
    expectDiscOf(0, *pixelsOf(*first));
}

TEST_F(FocusStack, AlignedFramesAreDeghostedToo)
{
    const Paths paths = {file("a", *withDisc(0)), file("b", *withDisc(1))};
    for (const int ghostReference : {0, 1}) {
        const auto image = makeFocusStack(paths, deghostedTo(ghostReference, alignedTo(1)));
        ASSERT_TRUE(image);
        ASSERT_GT(image->size().width, 300) << "almost nothing is cropped";
        expectDiscOf(ghostReference, *pixelsOf(*image));
    }
}

TEST_F(FocusStack, FringesAreCorrectedOnTheMergedPictureIfEnabled)
{
    // Discs with red enlarged as by a lens with strong fringes.
    const auto light = [](double x, double y) {
        const double dx = x - 60.0 * std::floor(x / 60.0) - 30.0;
        const double dy = y - 60.0 * std::floor(y / 60.0) - 30.0;
        return static_cast<float>(0.2 + 0.6 / (1.0 + std::exp(1.5 * (std::hypot(dx, dy) - 18.0))));
    };
    const auto fringed = drawn(600, 420, [&](int x, int y) {
        const float rest = light(x, y);
        return PixelRGB<float>{light(299.5 + (x - 299.5) / 1.0015, 209.5 + (y - 209.5) / 1.0015), rest, rest};
    });
    const Paths paths = {file("a", *fringed)};
    auto settings = unaligned();
    settings.rawAutoCorrection.lensCorrection = true; // of raw files only
    const auto plainly = stackNoted(paths, settings);
    settings.rawAutoCorrection.chromaticAberrations = true;
    const auto corrected = stackNoted(paths, settings);
    ASSERT_TRUE(plainly && corrected);
    auto expected = pixelsOf(*plainly)->copy({});
    applyChromaticAbberationsCorrection(expected);
    EXPECT_FALSE(sameBytes(*pixelsOf(*plainly), *expected)) << "there are fringes";
    EXPECT_TRUE(sameBytes(*pixelsOf(*corrected), *expected));
}

TEST_F(FocusStack, LinesOfOnePixelAreStackedThoughTheyCannotBeRegistered)
{
    for (const auto& [width, height] : {std::pair{1, 1}, {90, 1}, {1, 90}}) {
        const Paths paths = {file("a", *textured(width, height)), file("b", *textured(width, height))};
        const auto image = makeFocusStack(paths, alignedTo(0));
        ASSERT_TRUE(image) << width << " x " << height;
        ASSERT_EQ(image->size(), _Size<int>(width, height));
        EXPECT_THAT(*pixelsOf(*image), PixelsNear(*textured(width, height), 1e-3f));
    }
}

TEST_F(FocusStack, DoesNotDeghostUnlessEnabled)
{
    const auto values = std::vector<float>{0.1f, 0.5f, 0.9f};
    ASSERT_TRUE(stackNoted(grays(values), unaligned()));
    EXPECT_THAT(reds(added), ElementsAre(0.5f, 0.1f, 0.9f)) << "frames have the pixels of their files";
}

TEST_F(FocusStack, OneAndTwoThreadsGiveTheSameBytes)
{
    const Paths paths = {file("a", *textured(200, 160)), file("b", *textured(200, 160, 2, 1)),
                         file("c", *textured(200, 160, -1, 2))};
    auto settings = alignedTo(1);
    settings.ghostReduction.enabled = true;
    settings.ghostReduction.referenceIndex = 1;
    std::shared_ptr<Image> one;
    {
        const WorkerLimit limit(1);
        one = makeFocusStack(paths, settings);
    }
    const WorkerLimit limit(2);
    const auto two = makeFocusStack(paths, settings);
    ASSERT_TRUE(one && two);
    EXPECT_TRUE(sameBytes(*pixelsOf(*one), *pixelsOf(*two)));
}

TEST_F(FocusStack, GivesAllMemoryBack)
{
    const Paths paths = {file("a", *textured(200, 160)), file("b", *textured(200, 160, 2, 1))};
    const auto before = MemoryManager::instance().liveBytes();
    ASSERT_TRUE(makeFocusStack(paths, alignedTo(0)));
    EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
}

namespace {

// The pixels of a file in a PNG.
std::filesystem::path asPng(const std::filesystem::path& path)
{
    const auto stored = ImageReader::instance().open({path, {}}, {}, ImageReaderOpenFlag::Upright, nullptr, {}, -1);
    auto png = path;
    png.replace_extension(".png");
    ImageWriteSettings asStored = writeSettingsForPath(png);
    asStored.profile = stored->metadata()->fileProfile;
    asStored.bits = 8;
    writeImage(png, *stored->imageData({}, {}, true), asStored);
    return png;
}

} // namespace

// JPEG files are read again, others are kept: a PNG of the pixels of a JPEG shows the difference, if there is one.
TEST_F(FocusStack, JpegFilesAreReadAgainForTheSamePixels)
{
    Paths jpegs;
    Paths kept;
    for (const double shift : {0.0, 1.3, -0.8}) {
        const auto name = "frame" + std::to_string(jpegs.size());
        jpegs.push_back(writtenTo(folder / (name + ".jpg"), *textured(200, 150, shift, 0.5 * shift)));
        kept.push_back(asPng(jpegs.back()));
    }
    for (const AlignmentQuality quality : {AlignmentQuality::Fine, AlignmentQuality::Fast}) {
        Settings settings = alignedTo(1);
        settings.adjust.quality = quality;
        const auto fromJpegs = makeFocusStack(jpegs, settings);
        const auto fromKept = makeFocusStack(kept, settings);
        ASSERT_TRUE(fromJpegs && fromKept);
        EXPECT_TRUE(sameBytes(*pixelsOf(*fromJpegs), *pixelsOf(*fromKept)));
    }
}

// A stacker of three pictures, the frame that is added, and the one that is read ahead; the samples of a JPEG are a
// quarter of a picture, and would add two for eight frames.
TEST_F(FocusStack, HoldsNoJpegBesidesTheStackerTheFrameThatIsAddedAndTheNext)
{
    constexpr int kWidth = 900;
    constexpr int kHeight = 700;
    constexpr double kPicture = 12.0 * kWidth * kHeight;
    Paths paths;
    for (int i = 0; i < 8; ++i)
        paths.push_back(
            writtenTo(folder / ("frame" + std::to_string(i) + ".jpg"), *textured(kWidth, kHeight, 0.4 * i, 0.0)));
    MemoryManager& memory = MemoryManager::instance();
    Settings fine = alignedTo(3);
    fine.adjust.quality = AlignmentQuality::Fine;
    Settings fast = alignedTo(3);
    fast.adjust.quality = AlignmentQuality::Fast;
    for (const Settings& settings : {fine, fast, unaligned()}) {
        const std::size_t before = memory.liveBytes();
        memory.resetPeak();
        ASSERT_TRUE(makeFocusStack(paths, settings));
        EXPECT_LT(static_cast<double>(memory.peakBytes() - before) / kPicture, 5.3);
    }
}

// Of large frames that are quickly read again registration keeps the structures, of others the samples.
TEST_F(FocusStack, LargeFramesAreRegisteredFromKeptStructuresForTheSamePixels)
{
    constexpr int kWidth = 1640;
    constexpr int kHeight = 1240; // above 2 megapixels
    Paths jpegs;
    Paths kept;
    for (const double shift : {0.0, 2.6, -1.7}) {
        const auto name = "frame" + std::to_string(jpegs.size());
        jpegs.push_back(writtenTo(folder / (name + ".jpg"), *textured(kWidth, kHeight, shift, 0.5 * shift)));
        kept.push_back(asPng(jpegs.back()));
    }
    ASSERT_TRUE(isStructureReduced(pictureSizeOf(jpegs[0])));
    Settings settings = alignedTo(1);
    settings.adjust.quality = AlignmentQuality::Fine;
    const auto fromKept = makeFocusStack(kept, settings);
    ASSERT_TRUE(fromKept);
    EXPECT_LT(fromKept->width(), kWidth) << "frames are warped";
    for (const int threads : {1, 2, 5}) {
        const WorkerLimit limit(threads);
        const auto fromJpegs = makeFocusStack(jpegs, settings);
        ASSERT_TRUE(fromJpegs) << threads;
        EXPECT_TRUE(sameBytes(*pixelsOf(*fromJpegs), *pixelsOf(*fromKept))) << threads;
    }
    // A frame of another size is found where it is registered, in the order of registration.
    jpegs[0] = writtenTo(folder / "small.jpg", *textured(200, 150));
    jpegs[2] = writtenTo(folder / "turned.jpg", *textured(kHeight, kWidth));
    for (const int threads : {1, 5}) {
        const WorkerLimit limit(threads);
        EXPECT_FALSE(makeFocusStack(jpegs, settings));
        ASSERT_TRUE(lastFailure());
        EXPECT_EQ(lastFailure()->file, jpegs[2]) << threads;
        EXPECT_THAT(lastFailure()->sentence, HasSubstr("this one is 1240 x 1640 pixels"));
    }
}

// How makeFocusStack() goes about its frames.
struct Ways
{
    const char* name;
    bool aligns;
    AlignmentQuality quality;
    bool deghosts;
};

class FocusStackCancel : public FocusStack, public testing::WithParamInterface<Ways>
{
protected:
    static Settings settingsOfWay()
    {
        Settings settings;
        settings.adjust.enabled = GetParam().aligns;
        settings.adjust.quality = GetParam().quality;
        settings.ghostReduction.enabled = GetParam().deghosts;
        return settings;
    }
};

TEST_P(FocusStackCancel, AtAnyPollGivesNothingAndNoError)
{
    Paths paths;
    for (const double shift : {0.0, 1.3, -0.8})
        paths.push_back(file("shifted" + std::to_string(paths.size()), *textured(160, 120, shift, 0.5 * shift)));
    Settings settings = settingsOfWay();
    settings.adjust.referenceIndex = 1;
    int polls = 0;
    const auto stackedUntil = [&](int last) {
        polls = 0;
        return makeFocusStack(paths, settings, [&] { return ++polls >= last; });
    };
    const auto whole = stackedUntil(1'000'000);
    ASSERT_TRUE(whole);
    EXPECT_TRUE(sameBytes(*pixelsOf(*whole), *pixelsOf(*makeFocusStack(paths, settings)))) << "as without a cancel";
    const int all = polls;
    EXPECT_GT(all, (GetParam().aligns ? 3 + 3 : 3) + 2)
        << "frames loaded before they are aligned, frames added, before and after the result";
    const std::size_t live = MemoryManager::instance().liveBytes();
    const LogCapture log;
    for (int last = 1; last <= all; ++last) {
        EXPECT_FALSE(stackedUntil(last)) << last << " of " << all;
        EXPECT_EQ(polls, last) << "it went on";
        ASSERT_TRUE(lastFailure()) << last;
        EXPECT_EQ(lastFailure()->kind, FailureKind::Cancelled) << last;
        EXPECT_EQ(MemoryManager::instance().liveBytes(), live) << last;
    }
    EXPECT_THAT(log.texts(LogMessageType::Error), IsEmpty());
    EXPECT_TRUE(stackedUntil(all + 1)) << "there is no later one";
}

INSTANTIATE_TEST_SUITE_P(FocusStack, FocusStackCancel,
                         testing::Values(Ways{"finely", true, AlignmentQuality::Fine, false},
                                         Ways{"fast", true, AlignmentQuality::Fast, false},
                                         Ways{"finelyDeghosted", true, AlignmentQuality::Fine, true},
                                         Ways{"still", false, AlignmentQuality::Fine, false}),
                         [](const auto& each) { return each.param.name; });

// The next file is read on another thread while a frame is stacked; a failure must not depend on which is faster.
TEST_P(FocusStackCancel, TheFirstUnreadableFileIsNamedForAnyNumberOfThreads)
{
    Settings settings = settingsOfWay();
    settings.adjust.referenceIndex = 4;
    for (const char* const type : {".tif", ".jpg"})
        for (const std::size_t first : {1u, 2u}) {
            Paths paths;
            for (int i = 0; i < 5; ++i)
                paths.push_back(
                    writtenTo(folder / ("frame" + std::to_string(i) + type), *textured(120, 90, 0.7 * i, 0.0)));
            std::ofstream(paths[first]) << "no picture";
            std::ofstream(paths[first + 1]) << "neither";
            if (!settings.adjust.enabled)
                paths.push_back(writtenTo(folder / (std::string("last") + type), *textured(120, 90)));
            std::optional<Failure> ofOneThread;
            for (const int threads : {1, 2, 5}) {
                const WorkerLimit limit(threads);
                const std::size_t live = MemoryManager::instance().liveBytes();
                testing::internal::CaptureStderr();
                EXPECT_FALSE(makeFocusStack(paths, settings));
                const std::string said = testing::internal::GetCapturedStderr();
                // Without alignment the middle one is the reference, which goes first.
                const auto& named = paths[!settings.adjust.enabled && first == 2 ? 3 : first];
                EXPECT_THAT(said, testing::EndsWith(" makeFocusStack: Image " + named.filename().string() +
                                                    " could not be loaded\n"));
                EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1);
                ASSERT_TRUE(lastFailure());
                EXPECT_EQ(lastFailure()->file, named) << threads;
                EXPECT_EQ(lastFailure()->kind, FailureKind::UnreadableFile);
                if (!ofOneThread)
                    ofOneThread = lastFailure();
                EXPECT_EQ(lastFailure(), ofOneThread) << threads;
                EXPECT_EQ(MemoryManager::instance().liveBytes(), live) << threads;
            }
        }
}

TEST_P(FocusStackCancel, JpegFilesGiveTheSameBytesForAnyNumberOfThreads)
{
    const Settings settings = settingsOfWay();
    Paths paths;
    for (int i = 0; i < 4; ++i)
        paths.push_back(
            writtenTo(folder / ("frame" + std::to_string(i) + ".jpg"), *textured(160, 120, 0.7 * i, 0.3 * i)));
    std::shared_ptr<Image> one;
    for (const int threads : {1, 2, 5}) {
        const WorkerLimit limit(threads);
        const auto image = makeFocusStack(paths, settings);
        ASSERT_TRUE(image) << threads;
        if (!one)
            one = image;
        EXPECT_TRUE(sameBytes(*pixelsOf(*image), *pixelsOf(*one))) << threads;
    }
}

TEST_P(FocusStackCancel, ProgressRisesToItsEnd)
{
    const Settings settings = settingsOfWay();
    Paths paths;
    for (int i = 0; i < 5; ++i)
        paths.push_back(file("frame" + std::to_string(i), *textured(120, 90, 0.7 * i, 0.0)));
    std::vector<float> shares;
    ASSERT_TRUE(makeFocusStack(paths, settings, {}, [&](float share) { shares.push_back(share); }));
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
    EXPECT_EQ(shares.front(), 0.0f);
    EXPECT_GE(shares.back(), 0.8f);
    EXPECT_LE(shares.back(), 1.0f);
    EXPECT_EQ(std::count(shares.begin(), shares.end(), 1.0f), shares.back() == 1.0f ? 1 : 0)
        << "it does not stand still";
}

TEST_F(FocusStack, WhatACancelThrowsFailsTheCall)
{
    const auto paths = grays({0.1f, 0.2f});
    const LogCapture log;
    EXPECT_FALSE(makeFocusStack(paths, unaligned(), []() -> bool { throw std::runtime_error("window closed"); }));
    EXPECT_THAT(log.texts(LogMessageType::Error), ElementsAre("Error in makeFocusStack: window closed"));
    EXPECT_TRUE(makeFocusStack(paths, unaligned(), nullptr)) << "never";
}
