#include "composer_sets.hpp"
#include "support/pictures.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <optional>

using namespace orvo;
using namespace orvo::test;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

using CropInfo = PanoramaPreviewComposer::CropInfo;

class ComposerFinishing : public ComposerTest
{
protected:
    PanoramaPreviewComposer composer{SmallFiles::source()};

    void SetUp() override
    {
        ComposerTest::SetUp();
        ASSERT_TRUE(loaded(composer).fits);
    }
    /// The middle of the panorama, which is covered everywhere.
    [[nodiscard]] _Rect<int> inside() const
    {
        const _Size<int> canvas = composer.getCanvasSize();
        return {canvas.width / 2 - 150, canvas.height / 2 - 80, 300, 160};
    }
};

float worstDifference(const Picture& a, const Picture& b)
{
    EXPECT_EQ(a.size(), b.size());
    return largestDifference(a, b);
}

} // namespace

TEST_F(ComposerFinishing, TheProposalIsFullOfPicture)
{
    const CropPreview crop = cropPreview(composer, {900, 200});
    ASSERT_TRUE(crop.data.image);
    EXPECT_FALSE(crop.data.isPlaceholder);
    EXPECT_GT(crop.proposal.width, crop.data.image->width() / 2);
    EXPECT_GT(crop.proposal.height, crop.data.image->height() / 2);
    for (int y = crop.proposal.y; y < crop.proposal.y + crop.proposal.height; ++y)
        for (int x = crop.proposal.x; x < crop.proposal.x + crop.proposal.width; ++x)
            ASSERT_GT(crop.data.mask->row(y)[x], 0.0f);
}

TEST_F(ComposerFinishing, TwoCropPreviewsInARowShareThePicture)
{
    const CropPreview first = cropPreview(composer, {900, 200});
    const CropPreview second = cropPreview(composer, {900, 200});
    EXPECT_EQ(first.data.image, second.data.image);
    EXPECT_EQ(first.proposal, second.proposal);
    EXPECT_EQ(first.data.context, second.data.context);
    EXPECT_EQ(*first.data.colorProfile, *ColorProfileType::sRGB());
    EXPECT_EQ(*second.data.colorProfile, *ColorProfileType::melissaRGB()) << "a kept picture is reported like a crop";
    composer.setCallback([](const RenderedData&) {});
    composer.setContext({{50, 50}, inside()});
    const CropPreview third = cropPreview(composer, {900, 200});
    EXPECT_NE(first.data.image, third.data.image);
    EXPECT_TRUE(sameBytes(*first.data.image, *third.data.image));
}

TEST_F(ComposerFinishing, TheFinalPreviewIsCutFromTheKeptPicture)
{
    const CropPreview crop = cropPreview(composer, {900, 200});
    CropInfo info;
    info.crop = cropOf(crop.proposal);
    info.context = {crop.data.image->size(), crop.data.context.roi};
    const RenderedData preview = finalPreview(composer, info, {});
    EXPECT_FALSE(preview.isPlaceholder);
    EXPECT_TRUE(sameBytes(*preview.image, *crop.data.image->copy(crop.proposal)));
    EXPECT_EQ(preview.context, (PreviewContext{crop.proposal.size(), crop.proposal}));
    EXPECT_EQ(*preview.colorProfile, *ColorProfileType::melissaRGB());
    EXPECT_EQ(*preview.image->colorProfile(), *ColorProfileType::sRGB());
    // Without a crop all of it.
    info.crop = {};
    EXPECT_EQ(finalPreview(composer, info, {}).image, crop.data.image);
    // In a context of twice the size the same crop is the half.
    info.crop = cropOf({0, 0, 200, 100});
    info.context.size = {2 * crop.data.image->width(), 2 * crop.data.image->height()};
    EXPECT_TRUE(sameBytes(*finalPreview(composer, info, {}).image, *crop.data.image->copy({0, 0, 100, 50})));
}

TEST_F(ComposerFinishing, AFinalPreviewWithNothingKeptDrawsIt)
{
    const RenderedData full = finalPreview(composer, {}, {});
    ASSERT_TRUE(full.image && !full.isPlaceholder);
    EXPECT_GT(full.image->height(), 280) << "at full resolution";
    composer.setCallback([](const RenderedData&) {});
    composer.setContext({{50, 50}, inside()});
    const RenderedData preview = finalPreview(composer, {}, {900, 200});
    EXPECT_FALSE(preview.isPlaceholder);
    EXPECT_NEAR(preview.image->height(), 200, 3);
    PanoramaPreviewComposer empty(SmallFiles::source());
    const RenderedData nothing = finalPreview(empty, {}, {900, 200});
    ASSERT_TRUE(nothing.image && nothing.isPlaceholder);
    EXPECT_EQ(nothing.image->size(), _Size<int>(100, 100));
}

TEST_F(ComposerFinishing, AFinalPreviewOfAnotherRegionIsGray)
{
    const CropPreview crop = cropPreview(composer, {900, 200});
    CropInfo info;
    info.context.roi = crop.data.context.roi;
    ++info.context.roi.x;
    const LogCapture log;
    const RenderedData kept = finalPreview(composer, info, {});
    EXPECT_TRUE(kept.isPlaceholder);
    EXPECT_EQ(kept.image->size(), _Size<int>(900, 200)) << "that of the kept picture's context";
    info.context.size = {30, 20};
    EXPECT_EQ(finalPreview(composer, info, {}).image->size(), _Size<int>(30, 20));
    EXPECT_EQ(finalPreview(composer, info, {40, 10}).image->size(), _Size<int>(40, 10));
    ASSERT_EQ(log.texts(LogMessageType::Warning).size(), 3u);
    EXPECT_THAT(log.texts(LogMessageType::Warning)[0],
                testing::AllOf(HasSubstr("getFinalizePreview"),
                               EndsWith(": PanoramaPreviewComposer::getFinalizePreview: roi is incorrect, trying to "
                                        "generate image for another settings")));
}

TEST_F(ComposerFinishing, FinalizeMayFollowALoadDirectly)
{
    CropInfo info;
    info.context.roi = inside();
    const RenderedData picture = finalized(composer, info);
    EXPECT_FALSE(picture.isPlaceholder);
    EXPECT_EQ(picture.image->size(), inside().size());
    EXPECT_EQ(picture.context, (PreviewContext{inside().size(), inside()}));
    EXPECT_EQ(picture.colorProfile, picture.image->colorProfile());
}

TEST_F(ComposerFinishing, TheLastPictureIsTheSameAndFreesThePictures)
{
    CropInfo info;
    info.context.roi = inside();
    const RenderedData picture = finalized(composer, info);
    const std::size_t before = MemoryManager::instance().liveBytes();
    Answers<RenderedData> answers;
    composer.finalizeAndRelease(info, [&](RenderedData data) { answers.add(std::move(data)); });
    const RenderedData last = answers.first();
    EXPECT_FALSE(last.isPlaceholder);
    EXPECT_TRUE(sameBytes(*last.image, *picture.image));
    EXPECT_TRUE(sameBytes(*last.mask, *picture.mask));
    const std::size_t made = last.image->pixelCount() * (sizeof(PixelRGB<float>) + sizeof(float));
    EXPECT_LT(MemoryManager::instance().liveBytes(), before + made) << "some picture is free";
    EXPECT_TRUE(finalized(composer, info).isPlaceholder) << "there is nothing to draw";
}

TEST_F(ComposerFinishing, FinalizeOfAnotherRegionIsGrayAndSoItIsAfterARender)
{
    const CropPreview crop = cropPreview(composer, {900, 200});
    CropInfo info;
    info.context = {{60, 40}, inside()};
    const LogCapture log;
    const RenderedData other = finalized(composer, info);
    EXPECT_TRUE(other.isPlaceholder);
    EXPECT_EQ(other.image->size(), _Size<int>(60, 40));
    EXPECT_THAT(log.texts(LogMessageType::Warning),
                ElementsAre(EndsWith(": PanoramaPreviewComposer::finalize: roi is incorrect, trying to generate image "
                                     "for another settings")));
    info.context = {crop.data.image->size(), crop.data.context.roi};
    EXPECT_FALSE(finalized(composer, info).isPlaceholder);
    composer.setCallback([](const RenderedData&) {});
    composer.setContext({{50, 50}, inside()});
    EXPECT_TRUE(finalized(composer, info).isPlaceholder) << "a render has cleared the region";
}

TEST_F(ComposerFinishing, FinalizeLeavesTheKeptPicture)
{
    const CropPreview crop = cropPreview(composer, {900, 200});
    CropInfo info;
    info.context = {crop.data.image->size(), crop.data.context.roi};
    info.crop = cropOf({10, 10, 40, 30});
    EXPECT_FALSE(finalized(composer, info).isPlaceholder);
    EXPECT_FALSE(finalized(composer, info).isPlaceholder);
    info.crop = {};
    EXPECT_EQ(finalPreview(composer, info, {900, 200}).image, crop.data.image);
}

TEST_F(ComposerFinishing, ACropOfAnotherProjectionIsGray)
{
    const CropPreview crop = cropPreview(composer, {900, 200});
    CropInfo info;
    info.context = {crop.data.image->size(), crop.data.context.roi};
    composer.changeProjectionType(WarpType::Mercator);
    EXPECT_TRUE(finalPreview(composer, info, {}).isPlaceholder);
    EXPECT_TRUE(finalized(composer, info).isPlaceholder);
    composer.changeProjectionType(WarpType::Spherical);
    EXPECT_FALSE(finalized(composer, info).isPlaceholder) << "that projection again";
}

TEST_F(ComposerFinishing, AnswersWithoutAPictureComeWithAReason)
{
    Answers<std::optional<Failure>> reasons;
    const auto add = [&](const RenderedData& data) { reasons.add(data.isPlaceholder ? lastFailure() : std::nullopt); };
    CropInfo info;
    info.context.roi = inside();
    composer.finalize(info, add); // a picture
    info.context.roi = {0, 0, 50, 50};
    composer.finalize(info, add);
    info.crop = cropOf({5, 5, 20, 20});
    composer.finalize(info, add);
    (void)reasons.wait(3);
    (void)cropPreview(composer, {900, 200});
    composer.finalize(info, add); // of another view
    composer.getFinalizePreview(info, add, {});
    (void)reasons.wait(5);
    composer.cancelAll();
    composer.getCropPreview({600, 100}, [&](const RenderedData& data, _Rect<int>) { add(data); });
    info.context.roi = cropPreview(composer, {900, 200}).data.context.roi;
    PanoramaPreviewComposer empty(SmallFiles::source());
    empty.finalize({}, add);
    const auto all = reasons.wait(7);
    EXPECT_EQ(all[0], std::nullopt);
    const Failure nothing{
        FailureKind::UnfittingPictures, {}, "the requested part of the canvas shows nothing of the panorama"};
    EXPECT_EQ(all[1], nothing);
    EXPECT_EQ(all[2], nothing);
    const Failure stale{FailureKind::Internal, {}, "the crop was made for another view of the panorama"};
    EXPECT_EQ(all[3], stale);
    EXPECT_EQ(all[4], stale);
    EXPECT_EQ(all[5], cancelledFailure());
    EXPECT_EQ(all[6], (Failure{FailureKind::Internal, {}, "no pictures that fit together are loaded"}));
}

TEST_F(ComposerFinishing, ACancelledPictureIsReportedAsSuch)
{
    CropInfo info;
    info.context = {inside().size(), inside()};
    composer.cancelAll();
    Answers<std::optional<Failure>> reasons;
    for (const CropDescription& crop : {CropDescription(), cropOf({5, 5, 20, 20})}) {
        info.crop = crop;
        composer.finalize(info, [&](const RenderedData&) { reasons.add(lastFailure()); });
    }
    EXPECT_THAT(reasons.wait(2), testing::Each(cancelledFailure()));
}

TEST_F(ComposerFinishing, NothingToShowIsBlank)
{
    CropInfo info;
    info.context.roi = {0, 0, 50, 50};
    const RenderedData picture = finalized(composer, info);
    EXPECT_TRUE(picture.isPlaceholder);
    EXPECT_EQ(picture.image->size(), _Size<int>(100, 100));
    info.crop = cropOf({5, 5, 20, 20});
    EXPECT_TRUE(finalized(composer, info).isPlaceholder);
    info.context.roi = {};
    EXPECT_EQ(finalized(composer, info).image->size(), _Size<int>(100, 100)) << "of no part";
}

TEST_F(ComposerFinishing, APictureBeyondTheLongestSideIsDrawnSmaller)
{
    CropInfo info;
    info.context.roi = {inside().x, inside().y, 40000, 160};
    EXPECT_EQ(finalized(composer, info).image->height(), 128) << "32000 of 40000";
}

TEST_F(ComposerFinishing, ACropIsThatPartOfTheWhole)
{
    CropInfo info;
    info.context.roi = inside();
    const RenderedData whole = finalized(composer, info);
    info.crop = cropOf({40, 30, 120, 70});
    info.context.size = inside().size();
    const RenderedData crop = finalized(composer, info);
    EXPECT_EQ(crop.image->size(), _Size<int>(120, 70));
    // The blender's bands begin elsewhere, which changes little.
    EXPECT_LT(worstDifference(*crop.image, *whole.image->copy({40, 30, 120, 70})), 0.08f);
    // The same crop, made on a picture of half the size.
    info.crop = cropOf({20, 15, 60, 35});
    info.context.size = {inside().width / 2, inside().height / 2};
    EXPECT_LT(worstDifference(*finalized(composer, info).image, *crop.image), 1e-6f);
}

TEST_F(ComposerFinishing, ATurnedCropShowsTheColoursOfTheUncroppedPicture)
{
    CropInfo info;
    info.context = {inside().size(), inside()};
    const RenderedData whole = finalized(composer, info);
    for (const float angle : {0.15f, -0.4f}) {
        info.crop = cropOf({80, 40, 120, 70}, angle);
        const RenderedData crop = finalized(composer, info);
        ASSERT_EQ(crop.image->size(), _Size<int>(120, 70));
        const AffineTransform place = info.crop.getAffineTransformForCanvas({120, 70});
        double difference = 0.0;
        for (int y = 0; y < 70; ++y)
            for (int x = 0; x < 120; ++x) {
                const auto there = place.map(x + 0.5, y + 0.5);
                const auto& near = whole.image->row(static_cast<int>(there.y))[static_cast<int>(there.x)];
                difference += static_cast<double>(std::abs(crop.image->row(y)[x].g - near.g));
            }
        EXPECT_LT(difference / (120 * 70), 0.03) << angle;
    }
}

TEST_F(ComposerFinishing, ATurnedCropAtTheRaggedRimStaysInItsPlace)
{
    // All of the panorama, whose corners are empty: the stitcher returns less than the whole box.
    const CropPreview crop = cropPreview(composer, composer.getCanvasSize());
    CropInfo info;
    info.context = {crop.data.image->size(), crop.data.context.roi};
    const int width = crop.data.image->width();
    const int height = crop.data.image->height();
    info.crop = cropOf({20, 20, width - 40, height - 40}, 0.1f);
    const RenderedData turned = finalized(composer, info);
    ASSERT_EQ(turned.image->size(), _Size<int>(width - 40, height - 40));
    const AffineTransform place = info.crop.getAffineTransformForCanvas(turned.image->size());
    double difference = 0.0;
    int count = 0;
    for (int y = 0; y < turned.image->height(); ++y)
        for (int x = 0; x < turned.image->width(); ++x) {
            const auto there = place.map(x + 0.5, y + 0.5);
            const int column = static_cast<int>(std::floor(there.x));
            const int row = static_cast<int>(std::floor(there.y));
            if (column < 0 || row < 0 || column >= width || row >= height ||
                !(crop.data.mask->row(row)[column] > 0.0f) || !(turned.mask->row(y)[x] > 0.99f))
                continue;
            difference +=
                static_cast<double>(std::abs(turned.image->row(y)[x].g - crop.data.image->row(row)[column].g));
            ++count;
        }
    ASSERT_GT(count, width * height / 2);
    EXPECT_LT(difference / count, 0.04);
}

TEST_F(ComposerFinishing, TheFinishedPictureLiesOverWhite)
{
    const CropPreview crop = cropPreview(composer, {});
    CropInfo info;
    info.context = {crop.data.image->size(), crop.data.context.roi};
    const RenderedData picture = finalized(composer, info);
    std::size_t outside = 0;
    for (std::size_t i = 0; i < picture.image->pixelCount(); ++i)
        if (picture.mask->data()[i] == 0.0f) {
            ++outside;
            ASSERT_EQ(picture.image->data()[i], (PixelRGB<float>{1.0f, 1.0f, 1.0f}));
        }
    EXPECT_GT(outside, 0u);
    info.crop = cropOf({1, 1, picture.image->width() - 2, picture.image->height() - 2});
    const RenderedData crop2 = finalized(composer, info);
    outside = 0;
    for (std::size_t i = 0; i < crop2.image->pixelCount(); ++i)
        if (crop2.mask->data()[i] == 0.0f) {
            ++outside;
            ASSERT_EQ(crop2.image->data()[i], (PixelRGB<float>{1.0f, 1.0f, 1.0f}));
        }
    EXPECT_GT(outside, 0u);
}

TEST_F(ComposerFinishing, FinalizeShowsTheTurnedViewInItsProjection)
{
    composer.changeProjectionType(WarpType::Cylindrical);
    composer.startFastRender();
    composer.setRotation(0.2f);
    composer.finishFastRender();
    const CropPreview crop = cropPreview(composer, {900, 200});
    CropInfo info;
    info.crop = cropOf(crop.proposal);
    info.context = {crop.data.image->size(), crop.data.context.roi};
    const RenderedData picture = finalized(composer, info);
    ASSERT_FALSE(picture.isPlaceholder);
    const auto small = picture.image->resize(crop.proposal.size(), {}, true);
    const auto shown = crop.data.image->copy(crop.proposal);
    double difference = 0.0;
    for (std::size_t i = 0; i < small->pixelCount(); ++i)
        difference += static_cast<double>(std::abs(small->data()[i].g - shown->data()[i].g));
    EXPECT_LT(difference / static_cast<double>(small->pixelCount()), 0.04);
}

TEST_F(ComposerFinishing, ShiftAndRotationBothCountFromTheStartOfTheDrag)
{
    composer.startFastRender();
    composer.setShiftVector({0.05f, 0.0f});
    composer.setRotation(0.2f); // takes the shift's place
    composer.finishFastRender();
    const CropPreview replaced = cropPreview(composer, {900, 200});
    composer.resetAlignmentAdjustments();
    composer.startFastRender();
    composer.setRotation(0.2f);
    composer.finishFastRender();
    EXPECT_TRUE(sameBytes(*cropPreview(composer, {900, 200}).data.image, *replaced.data.image));
    composer.resetAlignmentAdjustments();
    composer.startFastRender();
    composer.setShiftVector({0.05f, 0.0f});
    composer.finishFastRender();
    composer.startFastRender();
    composer.setRotation(0.2f); // on top of it
    composer.finishFastRender();
    const _Rect<int> both = cropPreview(composer, {900, 200}).data.context.roi;
    EXPECT_NEAR(both.x - replaced.data.context.roi.x, 0.05 * composer.getCanvasSize().width, 25.0);
}

TEST_F(ComposerFinishing, ATurnOfTheViewIsSeenWithoutAReceiverOfRenders)
{
    const CropPreview level = cropPreview(composer, {900, 200});
    composer.setRotation(0.2f);
    const CropPreview turned = cropPreview(composer, {900, 200});
    EXPECT_NE(turned.data.context.roi, level.data.context.roi);
    composer.changeProjectionType(WarpType::Mercator);
    const CropPreview projected = cropPreview(composer, {900, 200});
    EXPECT_NE(projected.data.image, turned.data.image);
    const _Rect<int>& place = projected.data.context.roi;
    EXPECT_NEAR(static_cast<double>(projected.data.image->width()) / projected.data.image->height(),
                static_cast<double>(place.width) / place.height, 0.03)
        << "not squeezed into the canvas of the former projection";
    EXPECT_NEAR(projected.data.image->height(), 200, 3);
}

TEST_F(ComposerFinishing, ThePictureOfADragIsNotKept)
{
    composer.startFastRender();
    composer.setRotation(0.05f);
    const CropPreview rough = cropPreview(composer, {900, 200});
    composer.finishFastRender();
    const CropPreview sharp = cropPreview(composer, {900, 200});
    EXPECT_FALSE(rough.data.image->size() == sharp.data.image->size() &&
                 sameBytes(*rough.data.image, *sharp.data.image));
}

TEST_F(ComposerFinishing, HorizonsOfNothingAreLevel)
{
    EXPECT_EQ(composer.getHorizonAngle(nullptr), 0.0f);
    EXPECT_EQ(composer.getHorizonAngle(plain(50, 40, 0.3f)), 0.0f);
}

TEST_F(ComposerFinishing, AgreesWithTheStraightWay)
{
    const StitchedPanorama straight = stitchPanorama(SmallFiles::source(), {}, {}, {});
    ASSERT_TRUE(straight.image);
    const auto truth = straight.image->imageData({}, {}, true);
    const CropPreview crop = cropPreview(composer, {});
    CropInfo info;
    info.context = {crop.data.image->size(), crop.data.context.roi};
    const RenderedData picture = finalized(composer, info);
    // The straight way finds its region at another scale: some pixels more or less on each side.
    EXPECT_NEAR(picture.image->width(), truth->width(), 6);
    EXPECT_NEAR(picture.image->height(), truth->height(), 6);
    double best = 1.0;
    for (int dy = -6; dy <= 6; ++dy)
        for (int dx = -6; dx <= 6; ++dx) {
            double difference = 0.0;
            int count = 0;
            for (int y = 40; y < truth->height() - 40; y += 3)
                for (int x = 40; x < truth->width() - 40; x += 3) {
                    difference +=
                        static_cast<double>(std::abs(truth->row(y)[x].g - picture.image->row(y + dy)[x + dx].g));
                    ++count;
                }
            best = std::min(best, difference / count);
        }
    EXPECT_LT(best, 0.01);
}
