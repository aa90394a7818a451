#include "panorama/blend_bands.hpp"
#include "panorama/compute_device.hpp"
#include "panorama/exposure_gains.hpp"
#include "panorama_truth.hpp"
#include "support/matrices.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <sys/resource.h>

#include <cstring>

using namespace orvo;
using namespace orvo::test;
using scenes::SphereScene;
using scenes::SphereView;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// The peak memory of the process so far, in bytes.
double peakBytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) * 1024.0;
}

// A drawn part of the sphere, in sphere units.
struct Raw
{
    cv::Mat picture;
    cv::Mat mask;
    cv::Rect shown;
};

class StitcherCompositing : public testing::Test
{
protected:
    SphereScene scene;
    std::vector<SphereView> views = smallRow();
    PanoSource source;
    std::unique_ptr<PanoramaStitcher> stitcher;

    void SetUp() override { forceCpu() = true; }
    void TearDown() override { forceCpu() = false; }

    void registerViews()
    {
        stitcher = std::make_unique<PanoramaStitcher>(source);
        ASSERT_TRUE(stitcher->estimateCameras(seen(scene, views)));
    }

    // The rectangle of the pictures, in sphere units, with a margin.
    [[nodiscard]] cv::Rect content(int more = 20) const
    {
        const cv::Rect sphere = stitcher->projectionBounds(kSphericalKind);
        const cv::Rect roi = stitcher->roiInOutputPixels();
        return {sphere.x + roi.x - more, sphere.y + roi.y - more, roi.width + 2 * more, roi.height + 2 * more};
    }

    [[nodiscard]] Raw draw(const cv::Rect& rect, const cv::Size& size) const
    {
        Raw raw;
        raw.shown = stitcher->makePanoramaRaw(rect, size, raw.picture, raw.mask, never);
        return raw;
    }

    // One pixel per unit.
    [[nodiscard]] Agreement compare(const Raw& raw, const cv::Rect& rect, int margin) const
    {
        Drawing drawing;
        drawing.rect = cv::Rect(rect.tl() + raw.shown.tl(), raw.shown.size());
        drawing.size = raw.shown.size();
        return agreementOf(matrixOf(*imageDataFromCVMat(raw.picture)), raw.mask,
                           truthOf(scene, *stitcher, views, drawing), margin);
    }
};

} // namespace

TEST_F(StitcherCompositing, ShowsTheScene)
{
    registerViews();
    const cv::Rect rect = content();
    const Raw raw = draw(rect, rect.size());
    EXPECT_EQ(raw.picture.type(), CV_16SC3);
    EXPECT_EQ(raw.mask.type(), CV_8UC1);
    EXPECT_EQ(raw.picture.size(), raw.shown.size());
    EXPECT_EQ(raw.mask.size(), raw.shown.size());
    const Agreement agreement = compare(raw, rect, 8);
    EXPECT_GT(agreement.pixels, 180000);
    EXPECT_GT(agreement.psnr, 34.0);
    EXPECT_LT(agreement.worstMean, 0.06) << "no ghost, no step at a seam";
}

TEST_F(StitcherCompositing, AFullCircleHasNoGapAndItsEndsMeet)
{
    SphereView view = smallView();
    view.size = {300, 225};
    view.focal = 290.0;
    views = scenes::rowOfViews(12, 30.0, 0.0, view, 1.0, 5);
    registerViews();
    ASSERT_EQ(stitcher->usedImages().size(), views.size());
    const cv::Rect sphere = stitcher->projectionBounds();
    const Raw raw = draw(sphere, sphere.size());
    EXPECT_EQ(raw.shown.x, 0);
    EXPECT_EQ(raw.shown.width, sphere.width);
    const cv::Rect belt(0, raw.mask.rows / 4, raw.mask.cols, raw.mask.rows / 2);
    EXPECT_EQ(cv::countNonZero(raw.mask(belt)), belt.area());
    const cv::Mat picture = matrixOf(*imageDataFromCVMat(raw.picture(belt)));
    const cv::Mat ends = cv::abs(picture.colRange(0, 2) - picture.colRange(belt.width - 2, belt.width));
    EXPECT_LT(cv::mean(ends)[1], 0.03) << "the picture that lies across the ends is on both of them";
    EXPECT_GT(compare(raw, sphere, 8).psnr, 32.0);
}

TEST_F(StitcherCompositing, EvensOutExposures)
{
    for (std::size_t i = 0; i < views.size(); ++i)
        views[i].ev = i % 2 == 0 ? 0.0 : -0.6;
    registerViews();
    const cv::Rect rect = content();
    const Raw raw = draw(rect, rect.size());
    const cv::Mat picture = matrixOf(*imageDataFromCVMat(raw.picture));
    Drawing drawing;
    drawing.rect = cv::Rect(rect.tl() + raw.shown.tl(), raw.shown.size());
    drawing.size = raw.shown.size();
    const cv::Mat truth = truthOf(scene, *stitcher, views, drawing);
    // Mean brightness relative to the scene's, in vertical stripes: views 0.6 EV apart differ by 20 percent of the
    // encoded values, which must be invisible in the result.
    std::vector<double> ratios;
    for (int x = 40; x + 40 < picture.cols - 40; x += 40) {
        const cv::Rect stripe(x, picture.rows / 3, 40, picture.rows / 3);
        ratios.push_back(cv::mean(picture(stripe))[1] / cv::mean(truth(stripe))[1]);
    }
    // The outer rims overlap nothing: there the gains return smoothly to 1.
    const auto [low, high] = std::minmax_element(ratios.begin() + 3, ratios.end() - 3);
    EXPECT_LT(*high / *low, 1.07);
    for (std::size_t i = 1; i < ratios.size(); ++i)
        EXPECT_LT(std::abs(ratios[i] / ratios[i - 1] - 1.0), 0.05) << "no step at stripe " << i;
}

TEST_F(StitcherCompositing, RemovesVignetting)
{
    for (auto& view : views)
        view.vignetting = {0.55, 0.1, 0.0};
    source.settings.devignette = true;
    registerViews();
    const cv::Rect rect = content();
    const Raw raw = draw(rect, rect.size());
    ASSERT_NE(stitcher->usedDevignetteModel(), nullptr);
    const devignette_t& model = stitcher->usedDevignetteModel()->model();
    EXPECT_TRUE(model.fitted);
    for (float r = 0.0f; r <= 1.0f; r += 0.1f) {
        const double truth = 1.0 + r * r * (0.55 + r * r * 0.1);
        EXPECT_NEAR(static_cast<double>(model.gain(r)) / truth, 1.0, 0.02) << "at radius " << r;
    }
    const Agreement corrected = compare(raw, rect, 12);
    source.settings.devignette = false;
    registerViews();
    EXPECT_EQ(stitcher->usedDevignetteModel(), nullptr);
    const Agreement plain = compare(draw(rect, rect.size()), rect, 12);
    EXPECT_GT(corrected.psnr, plain.psnr + 3.0);
}

TEST_F(StitcherCompositing, ShowsARectanglePartlyBesideTheSphereWhereItBelongs)
{
    registerViews();
    const cv::Rect sphere = stitcher->projectionBounds();
    const cv::Rect plain(sphere.x, sphere.y, sphere.width, sphere.height);
    const cv::Rect beyond(sphere.x - 100, sphere.y - 60, sphere.width + 200, sphere.height + 120);
    const Raw inside = draw(plain, plain.size());
    const Raw cut = draw(beyond, beyond.size());
    ASSERT_FALSE(inside.shown.empty());
    EXPECT_EQ(cut.shown, inside.shown + cv::Point(100, 60));
    EXPECT_TRUE(sameBytes(cut.picture, inside.picture));
    EXPECT_TRUE(sameBytes(cut.mask, inside.mask));
}

TEST_F(StitcherCompositing, AMarginHidesTheFrame)
{
    registerViews();
    const cv::Rect rect = content();
    const Raw whole = draw(rect, rect.size());
    const cv::Rect part(rect.x + 300, rect.y + 120, 200, 100);
    const Raw small = draw(part, part.size());
    ASSERT_EQ(small.shown, cv::Rect(0, 0, 200, 100));
    const cv::Rect there(part.tl() - rect.tl() - whole.shown.tl(), part.size());
    cv::Mat difference;
    cv::absdiff(small.picture, whole.picture(there), difference);
    EXPECT_LT(cv::mean(difference)[1], 0.004 * 16383) << "the same picture, though drawn on its own";
}

TEST_F(StitcherCompositing, ARectangleWithoutPicturesIsZeroAndEmpty)
{
    registerViews();
    const cv::Rect sphere = stitcher->projectionBounds();
    for (const cv::Rect& rect : {cv::Rect(sphere.x, sphere.y, 60, 40), cv::Rect(sphere.x - 500, sphere.y, 60, 40)}) {
        const Raw raw = draw(rect, {30, 20});
        EXPECT_EQ(raw.shown, cv::Rect());
        for (const cv::Mat& output : {raw.picture, raw.mask}) {
            EXPECT_EQ(output.type(), CV_16SC3);
            EXPECT_EQ(output.size(), cv::Size(30, 20));
            EXPECT_EQ(cv::norm(output, cv::NORM_INF), 0.0);
        }
    }
}

TEST_F(StitcherCompositing, ATinyPreviewIsCutHardAndStillCorrect)
{
    registerViews();
    const cv::Rect rect = content(0);
    const cv::Size size(18, 7);
    const Raw raw = draw(rect, size);
    EXPECT_GE(raw.shown.width, 16);
    EXPECT_GE(raw.shown.height, 5);
    EXPECT_EQ(raw.picture.size(), raw.shown.size());
    const auto at = [&](const cv::Mat& picture) { return cv::mean(picture, raw.mask)[1]; };
    const Raw large = draw(rect, rect.size());
    cv::Mat reduced;
    cv::resize(large.picture, reduced, raw.shown.size(), 0, 0, cv::INTER_AREA);
    EXPECT_NEAR(at(raw.picture), at(reduced), 0.2 * at(reduced));
}

TEST_F(StitcherCompositing, OnlyATinyPreviewIsCutHard)
{
    registerViews();
    const cv::Rect rect = content(0);
    // A hole between two seams is filled with ones. Without blending the mask still shows them; with blending it is 255
    // wherever there is content.
    const auto filledHoles = [&](const cv::Size& size) {
        const Raw raw = draw(rect, size);
        EXPECT_EQ(cv::countNonZero(raw.mask), cv::countNonZero(raw.mask == 1) + cv::countNonZero(raw.mask == 255));
        return cv::countNonZero(raw.mask == 1);
    };
    // Pictures fade over 5 percent of the mean side: over less than a pixel up to 30 pixels.
    int tiny = 0;
    int larger = 0;
    for (int width = 10; width <= 30; ++width)
        tiny += filledHoles({width, width / 3});
    for (int width = 60; width <= 240; width += 20)
        larger += filledHoles({width, width / 3});
    EXPECT_GT(tiny, 0);
    EXPECT_EQ(larger, 0);
}

TEST(BlendBands, GrowWithTheWidthUpToNine)
{
    EXPECT_EQ(blendBands(0.0), std::nullopt);
    EXPECT_EQ(blendBands(0.999), std::nullopt);
    EXPECT_EQ(blendBands(1.0), 0);
    EXPECT_EQ(blendBands(1.5), 0);
    EXPECT_EQ(blendBands(2.5), 1);
    EXPECT_EQ(blendBands(64.0), 5);
    EXPECT_EQ(blendBands(65.0), 6);
    EXPECT_EQ(blendBands(1000.0), 9);
    EXPECT_EQ(blendBands(1e6), 9);
}

TEST_F(StitcherCompositing, CancelledAnywhereItIsEmptyAndSilent)
{
    registerViews();
    const cv::Rect rect = content();
    const cv::Size size(rect.width / 4, rect.height / 4);
    ASSERT_FALSE(draw(rect, size).shown.empty());
    const LogCapture capture;
    int points = 0;
    for (int n = 1; n < 100; ++n) {
        int calls = 0;
        cv::Mat picture;
        cv::Mat mask;
        const cv::Rect shown = stitcher->makePanoramaRaw(rect, size, picture, mask, CancelAt{n, &calls});
        if (calls < n) {
            EXPECT_FALSE(shown.empty());
            break;
        }
        EXPECT_EQ(shown, cv::Rect()) << n;
        points = n;
    }
    EXPECT_EQ(points, 1 + 4 + 4 + 1 + 4 + 1)
        << "the start, each mask, each mask with its seam, the gains, each picture, the end";
    EXPECT_THAT(capture.texts(LogMessageType::Error), IsEmpty());
    EXPECT_THAT(capture.texts(LogMessageType::Warning), IsEmpty());
}

TEST_F(StitcherCompositing, GivesTheSameBytesForAnyThreads)
{
    source.settings.devignette = true;
    registerViews();
    const cv::Rect rect = content();
    const cv::Size size(rect.width / 2, rect.height / 2);
    Raw one;
    {
        const WorkerLimit limit(1);
        one = draw(rect, size);
    }
    registerViews(); // computes seams, gains and vignetting again
    Raw two;
    {
        const WorkerLimit limit(2);
        two = draw(rect, size);
    }
    EXPECT_EQ(one.shown, two.shown);
    EXPECT_TRUE(sameBytes(one.picture, two.picture));
    EXPECT_TRUE(sameBytes(one.mask, two.mask));
}

TEST_F(StitcherCompositing, NeedsAFewPlanesForEachPictureAtFullSize)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer needs much more memory than the program";
#endif
    registerViews();
    const cv::Rect rect = content();
    (void)draw(rect, {rect.width / 8, rect.height / 8});
    const double before = peakBytes();
    const cv::Size size(5 * rect.width, 5 * rect.height);
    ASSERT_FALSE(draw(rect, size).shown.empty());
    // The warped pictures overlap by half; with the blending margin that is nearly three times the drawing.
    const double perPixel = (peakBytes() - before) / (3.0 * size.area());
    std::cout << "peak above the start: " << perPixel << " bytes for each warped pixel\n";
    EXPECT_LT(perPixel, 16.0);
}

TEST_F(StitcherCompositing, SeamsCutThePicturesApart)
{
    registerViews();
    (void)draw(content(), {200, 80});
    const auto& seams = stitcher->usedSeamMasks();
    ASSERT_EQ(seams.size(), 4u);
    for (const cv::UMat& seam : seams) {
        const int kept = cv::countNonZero(seam);
        EXPECT_GT(kept, static_cast<int>(seam.total()) / 8);
        EXPECT_LT(kept, static_cast<int>(seam.total()) * 95 / 100) << "some pixels went to a neighbour";
    }
}

TEST_F(StitcherCompositing, LogsThatTheCpuIsUsed)
{
    registerViews();
    const LogCapture capture;
    (void)draw(content(), {100, 40});
    EXPECT_THAT(capture.texts(LogMessageType::Progress), ElementsAre("Trying to make panorama on CPU"));
}

TEST_F(StitcherCompositing, TheLastDrawingIsLikeAnyOtherAndFreesTheSources)
{
    registerViews();
    const Raw usual = draw(content(), {400, 160});
    stitcher->drawOnceMore();
    const Raw last = draw(content(), {400, 160});
    EXPECT_EQ(last.shown, usual.shown);
    EXPECT_TRUE(sameBytes(last.picture, usual.picture));
    EXPECT_TRUE(sameBytes(last.mask, usual.mask));
    for (const cv::Mat& image : stitcher->usedImages())
        EXPECT_TRUE(image.empty());
    EXPECT_TRUE(draw(content(), {400, 160}).shown.empty());
}

TEST(BlockGains, OnlyCompensatorsOfBlocksHaveThem)
{
    using namespace cv::detail;
    const LogCapture capture;
    EXPECT_TRUE(blockGains(cv::makePtr<GainCompensator>().get(), 0, {8, 6}, "where").empty());
    EXPECT_TRUE(blockGains(cv::makePtr<ChannelsCompensator>().get(), 0, {8, 6}, "where").empty());
    EXPECT_TRUE(blockGains(cv::makePtr<NoExposureCompensator>().get(), 0, {8, 6}, "where").empty());
    EXPECT_TRUE(blockGains(nullptr, 0, {8, 6}, "where").empty());
    EXPECT_THAT(capture.texts(LogMessageType::Warning),
                ElementsAre("where: applyExposureCompensation does not implement for GainCompensator",
                            "where: applyExposureCompensation does not implement for ChannelsCompensator"));
}

// The reference: cv::resize and cv::multiply.
cv::Mat multipliedPlainly(const cv::Mat& picture, const cv::Mat& gains)
{
    cv::Mat spread;
    cv::resize(gains, spread, picture.size(), 0, 0, cv::INTER_LINEAR);
    cv::Mat product;
    cv::multiply(picture, spread, product, 1.0, picture.type());
    return product;
}

TEST(BlockGains, MultiplyAPictureAsResizedGainsDo)
{
    cv::RNG random(7);
    for (const auto& [gainSize, size] : {std::pair(cv::Size(37, 23), cv::Size(641, 403)),
                                         {cv::Size(1, 1), cv::Size(9, 5)},
                                         {cv::Size(3, 1), cv::Size(64, 1)},
                                         {cv::Size(5, 7), cv::Size(5, 7)},
                                         {cv::Size(310, 20), cv::Size(333, 1001)}}) {
        cv::Mat gains(gainSize, CV_32FC3);
        random.fill(gains, cv::RNG::UNIFORM, 0.2, 3.0);
        cv::Mat picture(size, CV_16SC3);
        random.fill(picture, cv::RNG::UNIFORM, -100, 16384); // some results exceed 16 bits
        const cv::Mat expected = multipliedPlainly(picture, gains);
        for (const int workers : {1, 2}) {
            const WorkerLimit limit(workers);
            cv::Mat product = picture.clone();
            multiplyByGains(product, gains);
            EXPECT_EQ(cv::norm(product, expected, cv::NORM_INF), 0.0) << size << " from " << gainSize;
        }
    }
}

TEST(BlockGains, HaveThreeChannelsAndTheRequestedSize)
{
    cv::detail::BlocksGainCompensator blocks(4, 4);
    std::vector<cv::Mat> gains = {cv::Mat(2, 2, CV_32F, cv::Scalar(1.25))};
    blocks.setMatGains(gains);
    const LogCapture capture;
    const cv::Mat gain = blockGains(&blocks, 0, {8, 6}, "where");
    EXPECT_EQ(gain.type(), CV_32FC3);
    EXPECT_EQ(gain.size(), cv::Size(8, 6));
    EXPECT_EQ(cv::norm(gain - cv::Scalar::all(1.25), cv::NORM_INF), 0.0);
    EXPECT_THAT(capture.lines(), IsEmpty());
    EXPECT_TRUE(blockGains(&blocks, 1, {8, 6}, "where").empty());
    EXPECT_TRUE(blockGains(&blocks, -1, {8, 6}, "where").empty());
    const std::string line = "where: applyExposureCompensation error: out of bounds index";
    EXPECT_THAT(capture.texts(LogMessageType::Warning), ElementsAre(line, line));
}
