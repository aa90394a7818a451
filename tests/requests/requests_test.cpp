#include "panorama_truth.hpp"
#include "support/failures.hpp"
#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_extensions/focus_stack.hpp>
#include <orvo_extensions/radiance.hpp>
#include <orvo_extensions/requests.hpp>
#include <orvo_extensions/upscale.hpp>
#include <orvo_io/image_reader.hpp>
#include <scenes/sphere_view_files.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <stdexcept>

using namespace orvo;
using namespace orvo::test;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using Paths = std::vector<std::filesystem::path>;

/// The samples of files of 16 bits, as an editor holds them.
class Layers
{
public:
    explicit Layers(const Paths& files)
    {
        for (const auto& file : files)
            add(file);
    }
    /// With the names of the files, which a panorama sorts by.
    [[nodiscard]] const std::vector<PictureInput>& inputs() const { return pictures; }

private:
    std::vector<std::unique_ptr<std::vector<std::uint16_t>>> samples;
    std::vector<PictureInput> pictures;

    void add(const std::filesystem::path& file)
    {
        const auto stored = ImageReader::instance().open({file, {}}, {}, ImageReaderOpenFlag::Upright, nullptr, {}, -1);
        const auto pixels = stored->imageData({}, {}, true);
        auto& values = *samples.emplace_back(std::make_unique<std::vector<std::uint16_t>>());
        const float* const first = &pixels->data()->r;
        for (std::size_t i = 0; i < 3 * pixels->pixelCount(); ++i)
            values.push_back(static_cast<std::uint16_t>(std::lround(first[i] * 65535.0f)));
        MemoryPicture picture;
        picture.name = file;
        picture.data = values.data();
        picture.width = pixels->width();
        picture.height = pixels->height();
        picture.samples = MemoryPicture::Samples::UInt16;
        picture.profile = stored->metadata()->fileProfile;
        picture.metadata = ImageReader::readMetadata(file);
        pictures.emplace_back(picture);
    }
};

void expectSamePicture(const std::shared_ptr<Image>& found, const std::shared_ptr<Image>& expected)
{
    ASSERT_TRUE(found && expected);
    const auto a = found->developedOriginalImageData({});
    const auto b = expected->developedOriginalImageData({});
    ASSERT_EQ(a->size(), b->size());
    EXPECT_EQ(std::memcmp(a->data(), b->data(), a->pixelCount() * sizeof(PixelRGB<float>)), 0);
    EXPECT_EQ(found->metadata()->exposureOffset, expected->metadata()->exposureOffset);
    EXPECT_EQ(*found->metadata()->fileProfile, *expected->metadata()->fileProfile);
}

/// The operations on small pictures.
class Requests : public testing::Test
{
protected:
    TemporaryFolder folder;

    Paths bracket()
    {
        Paths files;
        for (const int i : {2, 0, 1})
            files.push_back(writtenTo(folder / ("bracket" + std::to_string(i) + ".tif"),
                                      *texturedAt(0.35f + 0.5f * static_cast<float>(i))));
        return files;
    }
    Paths series()
    {
        Paths files;
        for (int i = 0; i < 3; ++i)
            files.push_back(
                writtenTo(folder / ("series" + std::to_string(i) + ".tif"), *texturedAt(1.0f, 160, 120, i)));
        return files;
    }
    Paths views()
    {
        Paths files;
        std::vector<scenes::SphereView> row = smallRow();
        for (std::size_t i = 0; i < 3; ++i) {
            files.push_back(folder / ("view" + std::to_string(i) + ".tif"));
            scenes::writeSphereView(scenes::SphereScene(1), row[i], files.back(), {.noiseSeed = i + 1});
        }
        return files;
    }
    std::filesystem::path small() { return writtenTo(folder / "small.tif", *texturedAt(1.0f, 61, 43)); }

    static HdrRequest merging(const std::vector<PictureInput>& inputs)
    {
        HdrRequest request;
        request.pictures = inputs;
        request.settings.alignment = true;
        request.settings.ghostReduction = true;
        request.settings.ghostRefImageIdx = 1;
        return request;
    }
    static RadianceRequest measuring(const std::vector<PictureInput>& inputs)
    {
        RadianceRequest request;
        request.pictures = inputs;
        request.settings.evs = {1.0f, -1.0f, 0.0f}; // the files of bracket() do not state them
        return request;
    }
    static FocusStackRequest stacking(const std::vector<PictureInput>& inputs)
    {
        FocusStackRequest request;
        request.pictures = inputs;
        request.settings.adjust.referenceIndex = 1;
        return request;
    }
    static PanoramaRequest stitching(const std::vector<PictureInput>& inputs)
    {
        PanoramaRequest request;
        request.pictures = inputs;
        request.output.projection = WarpType::Cylindrical;
        return request;
    }
    static UpscaleRequest enlarging(const PictureInput& input)
    {
        UpscaleRequest request;
        request.picture = input;
        return request;
    }

    /// Performs all of them with these calls, and passes each result on with its name.
    void performEach(const OperationCalls& calls,
                     const std::function<void(const std::string&, const OperationResult&)>& check)
    {
        const auto with = [&](auto request) {
            static_cast<OperationCalls&>(request) = calls;
            return request;
        };
        check("hdr", perform(with(merging(inputsOf(bracket())))));
        check("radiance", perform(with(measuring(inputsOf(bracket())))));
        check("stack", perform(with(stacking(inputsOf(series())))));
        check("panorama", perform(with(stitching(inputsOf(views())))));
        check("upscale", perform(with(enlarging(small()))));
    }
};

} // namespace

TEST_F(Requests, AMergeIsThatOfTheFunctionFromFilesAndFromMemory)
{
    const Paths files = bracket();
    const HdrRequest request = merging(inputsOf(files));
    const auto [merged, middle] = make_HDR(files, request.settings, {}, nullptr);
    const Layers layers(files);
    for (const HdrResult& result : {perform(request), perform(merging(layers.inputs()))}) {
        expectSamePicture(result.image, merged);
        ASSERT_TRUE(result.middleFrame);
        EXPECT_EQ(std::memcmp(result.middleFrame->data(), middle->data(), 12 * middle->pixelCount()), 0);
        EXPECT_FALSE(result.failure);
    }
    // A single frame, and a list of both kinds.
    const auto single = make_HDR({files[0]}, {}, {}, nullptr).first;
    HdrRequest mixed;
    mixed.pictures = {layers.inputs()[0]};
    expectSamePicture(perform(mixed).image, single);
    mixed = request;
    mixed.pictures = {layers.inputs()[0], files[1], layers.inputs()[2]};
    expectSamePicture(perform(mixed).image, merged);
}

TEST_F(Requests, GhostsAreTakenFromTheFirstPictureUnlessAnotherIsChosen)
{
    Paths files; // by rising exposure the second, the third, the first
    for (const int i : {2, 0, 1}) {
        const float gain = 0.5f + 0.4f * static_cast<float>(i);
        files.push_back(writtenTo(folder / ("moving" + std::to_string(i) + ".tif"), *drawn(160, 120, [&](int x, int y) {
                                      const auto p = texture(x, y);
                                      const bool isSubject = std::abs(x - 30 - 45 * i) < 12 && std::abs(y - 60) < 20;
                                      const float value = isSubject ? gain * 0.9f : 0.0f;
                                      return isSubject ? PixelRGB<float>{value, value * 0.1f, value * 0.1f}
                                                       : PixelRGB<float>{p.r * gain, p.g * gain, p.b * gain};
                                  })));
    }
    HdrRequest request;
    request.pictures = inputsOf(files);
    request.settings.ghostReduction = true;
    request.settings.deghostAmount = DeghostAmount::Medium;
    const auto mergedWith = [&](std::int32_t reference) {
        request.settings.ghostRefImageIdx = reference;
        const auto image = perform(request).image;
        return image->developedOriginalImageData({})->copy({});
    };
    const std::int32_t byDefault = HDRSettings().ghostRefImageIdx;
    EXPECT_EQ(largestDifference(*mergedWith(byDefault), *mergedWith(0)), 0.0f);
    EXPECT_EQ(largestDifference(*mergedWith(-1), *mergedWith(2)), 0.0f) << "the middle one by exposure";
    EXPECT_GT(largestDifference(*mergedWith(-1), *mergedWith(0)), 0.1f);
}

TEST_F(Requests, RadianceIsThatOfTheFunctionFromFilesAndFromMemory)
{
    const Paths files = bracket();
    const RadianceRequest request = measuring(inputsOf(files));
    const RadianceMap expected = mergeRadiance(files, request.settings, {}, {});
    const RadianceResult fromFiles = perform(request);
    const Layers layers(files);
    for (const auto& file : files)
        std::filesystem::remove(file); // from here on nothing but the samples in memory can be read
    for (const RadianceResult& result : {fromFiles, perform(measuring(layers.inputs()))}) {
        expectSamePicture(result.image, expected.image);
        EXPECT_EQ(result.evs, (std::vector<float>{1.0f, -1.0f, 0.0f}));
        EXPECT_EQ(result.whiteLuminance, expected.whiteLuminance);
        EXPECT_EQ(result.clipped, expected.clipped);
    }
}

TEST_F(Requests, AFocusStackIsThatOfTheFunctionFromFilesAndFromMemory)
{
    const Paths files = series();
    const FocusStackRequest request = stacking(inputsOf(files));
    const auto expected = makeFocusStack(files, request.settings);
    expectSamePicture(perform(request).image, expected);
    expectSamePicture(perform(stacking(Layers(files).inputs())).image, expected);
}

TEST_F(Requests, APanoramaIsThatOfTheFunctionFromFilesAndFromMemory)
{
    const Paths files = views();
    const auto expected = stitchPanorama({files, {}}, {WarpType::Cylindrical, 0}, {}, {});
    const Layers layers(files);
    for (const PanoramaResult& result : {perform(stitching(inputsOf(files))), perform(stitching(layers.inputs()))}) {
        expectSamePicture(result.image, expected.image);
        EXPECT_EQ(result.projection, WarpType::Cylindrical);
        EXPECT_EQ(result.focalLength, expected.focalLength);
        ASSERT_EQ(result.places.size(), files.size());
        for (std::size_t i = 0; i < files.size(); ++i) {
            EXPECT_EQ(result.places[i].path, files[i]);
            EXPECT_TRUE(result.places[i].placed);
            EXPECT_EQ(result.places[i].rotation, expected.places[i].rotation);
        }
    }
}

TEST_F(Requests, AnEnlargedPictureIsThatOfTheFunctionFromAFileAndFromMemory)
{
    const auto file = small();
    const auto expected = upscaleAI(file, {}, {}, {});
    expectSamePicture(perform(enlarging(file)).image, expected);
    expectSamePicture(perform(enlarging(Layers({file}).inputs()[0])).image, expected);
}

TEST_F(Requests, ProgressGoesFromItsStartToOneInEachOperation)
{
    std::vector<float> shares;
    OperationCalls calls;
    calls.progress = [&](float share) { shares.push_back(share); };
    performEach(calls, [&](const std::string& name, const OperationResult& result) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(result);
        EXPECT_GE(shares.size(), 3u);
        EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
        EXPECT_GE(shares.front(), 0.0f);
        EXPECT_LT(shares.front(), 0.5f);
        EXPECT_EQ(shares.back(), 1.0f);
        EXPECT_TRUE(result.warnings.empty() && result.shortfalls.empty());
        shares.clear();
    });
}

TEST_F(Requests, EachOperationIsCancelledTheSameWay)
{
    const std::size_t before = MemoryManager::instance().liveBytes();
    for (const int polls : {0, 1, 4}) { // how often the answer is no first
        std::atomic<int> left = polls;
        OperationCalls calls;
        calls.cancel = [&] { return left-- <= 0; };
        testing::internal::CaptureStderr();
        performEach(calls, [&](const std::string& name, const OperationResult& result) {
            SCOPED_TRACE(name + " after " + std::to_string(polls));
            EXPECT_FALSE(result);
            ASSERT_TRUE(result.failure);
            EXPECT_EQ(*result.failure, cancelledFailure());
            EXPECT_EQ(lastFailure(), result.failure);
            left = polls;
        });
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    }
    EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
}

TEST_F(Requests, TheFlagOfTheSettingsCancelsAMergeToo)
{
    HdrRequest request = merging(inputsOf(bracket()));
    request.settings.cancelFlag = std::make_shared<std::atomic<unsigned char>>(static_cast<unsigned char>(0));
    request.onPhase = [&](HDRMergingPhaseName phase) {
        if (phase == HDRMergingPhaseName::LadderBuilt)
            *request.settings.cancelFlag = 1;
    };
    const HdrResult result = perform(request);
    EXPECT_FALSE(result.image || result.middleFrame);
    EXPECT_EQ(result.failure, cancelledFailure());
}

TEST_F(Requests, AFileThatIsMissingFailsEachOperationTheSameWayAndInSilence)
{
    const auto missing = folder / "missing.tif";
    Paths frames = bracket();
    frames.push_back(missing);
    Paths steps = series();
    steps.push_back(missing);
    Paths parts = views();
    parts.push_back(missing);
    testing::internal::CaptureStderr();
    const OperationResult results[] = {perform(merging(inputsOf(frames))), perform(stacking(inputsOf(steps))),
                                       perform(stitching(inputsOf(parts))), perform(enlarging(missing)),
                                       perform(measuring(inputsOf(frames)))};
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    for (const OperationResult& result : results) {
        EXPECT_FALSE(result);
        ASSERT_TRUE(result.failure);
        EXPECT_EQ(result.failure->kind, FailureKind::UnreadableFile);
        EXPECT_EQ(result.failure->file, missing);
        EXPECT_THAT(result.failure->sentence, HasSubstr("o such file"));
    }
}

TEST_F(Requests, APictureInMemoryThatDoesNotFitIsNamed)
{
    MemoryPicture bad;
    bad.name = "layer 7";
    const auto layers = Layers(bracket());
    std::vector<PictureInput> inputs = layers.inputs();
    inputs.emplace_back(bad);
    for (const OperationResult& result :
         {static_cast<OperationResult>(perform(merging(inputs))), perform(stacking(inputs)),
          static_cast<OperationResult>(perform(stitching(inputs))), perform(enlarging(bad)),
          static_cast<OperationResult>(perform(measuring(inputs)))}) {
        ASSERT_TRUE(result.failure);
        EXPECT_EQ(describe(*result.failure), "layer 7: MemoryPicture.data: expected samples, found none");
    }
}

TEST_F(Requests, NoPicturesAndNoSettingsAreAFailure)
{
    for (const OperationResult& result :
         {static_cast<OperationResult>(perform(HdrRequest())), perform(FocusStackRequest()),
          static_cast<OperationResult>(perform(PanoramaRequest())), perform(UpscaleRequest()),
          static_cast<OperationResult>(perform(RadianceRequest()))}) {
        EXPECT_FALSE(result);
        ASSERT_TRUE(result.failure);
        EXPECT_THAT(result.failure->sentence, testing::Not(IsEmpty()));
    }
}

TEST_F(Requests, WhatACallbackThrowsFailsTheOperation)
{
    OperationCalls calls;
    calls.progress = [](float) { throw std::runtime_error("the window is closed"); };
    performEach(calls, [&](const std::string& name, const OperationResult& result) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(result);
        ASSERT_TRUE(result.failure);
        EXPECT_THAT(result.failure->sentence, EndsWith("the window is closed"));
    });
}

TEST_F(Requests, AFrameThatCannotBeAlignedIsAShortfall)
{
    Paths files = series();
    files.push_back(writtenTo(folder / "other.tif", *drawn(160, 120, [](int, int) {
                                  return PixelRGB<float>{0.5f, 0.5f, 0.5f};
                              })));
    FocusStackRequest request = stacking(inputsOf(files));
    request.settings.adjust.quality = AlignmentQuality::Fine;
    const OperationResult result = perform(request);
    EXPECT_TRUE(result);
    ASSERT_EQ(result.shortfalls.size(), 1u);
    EXPECT_EQ(result.shortfalls[0].file, files.back());
}

TEST_F(Requests, MemoryThatIsMissingIsAFailureOfEachOperation)
{
    const auto file = small();
    const HdrRequest merge = merging({file});
    const FocusStackRequest stack = stacking({file, file});
    const UpscaleRequest enlarge = enlarging(file);
    expectOutOfMemory([&] { return static_cast<bool>(perform(merge)); });
    expectOutOfMemory([&] { return static_cast<bool>(perform(stack)); });
    expectOutOfMemory([&] { return static_cast<bool>(perform(enlarge)); });
}
