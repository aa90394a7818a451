#include "panorama/panorama_devignette.hpp"
#include "panorama/panorama_warper.hpp"
#include "support/matrices.hpp"

#include <orvo_common/console_trace.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_core/parallel.hpp>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <array>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <functional>

using namespace orvo;
using orvo::test::sameBytes;

namespace {

struct Gain
{
    double k1, k2, k3;
    [[nodiscard]] double at(double r) const { return 1 + k1 * r * r + k2 * std::pow(r, 4) + k3 * std::pow(r, 6); }
};

// Light of a scene around one third, different everywhere.
double light(double x, double y, int channel)
{
    return 0.3 + 0.1 * std::sin(x * 0.043 + channel) * std::cos(y * 0.057 - channel) + 0.05 * std::sin(x * 0.011);
}

short encoded(double linear)
{
    return static_cast<short>(srgbCurveFromLinear(static_cast<float>(linear)) * 32767.0f * 0.5f);
}

double decoded(short sample) { return static_cast<double>(linearFromSRGBCurve(2.0f * sample / 32767.0f)); }

// Overlapping views of one flat scene, darkened by a lens.
struct Views
{
    std::vector<cv::Mat> images, seams, masks, radii;
    std::vector<cv::Point> corners;

    void add(cv::Point corner, cv::Size size, const Gain& gain)
    {
        cv::Mat image(size, CV_16SC3);
        cv::Mat radius(size, CV_32F);
        const double cx = size.width * 0.5;
        const double cy = size.height * 0.5;
        for (int y = 0; y < size.height; ++y) {
            for (int x = 0; x < size.width; ++x) {
                const double r = std::min(1.0, std::hypot(x - cx, y - cy) / std::hypot(cx, cy));
                radius.at<float>(y, x) = static_cast<float>(r);
                for (int c = 0; c < 3; ++c)
                    image.at<cv::Vec3s>(y, x)[c] = encoded(light(x + corner.x, y + corner.y, c) / gain.at(r));
            }
        }
        // An invisible border, as around any warped picture.
        cv::Mat mask(size, CV_8UC1, cv::Scalar(0));
        mask(cv::Rect(2, 2, size.width - 4, size.height - 4)).setTo(255);
        images.push_back(image);
        radii.push_back(radius);
        masks.push_back(mask);
        seams.push_back(mask.clone());
        corners.push_back(corner);
    }

    void fit(PanoramaDevignette& model) const { model.fit(images, seams, masks, corners, radii); }
    void process(PanoramaDevignette& model) { model.process(images, seams, masks, corners, radii); }
};

Views row(int count, const Gain& gain, cv::Size size = {160, 120}, int step = 90)
{
    Views views;
    for (int i = 0; i < count; ++i)
        views.add({i * step, (i % 3) * 7}, size, gain);
    return views;
}

// Pairs of one colour under `gain`, at the radii `a` and `b`.
struct PairList
{
    std::vector<PixelRGB<float>> colorsA, colorsB;
    std::vector<float> radiiA, radiiB;

    void add(double linear, float a, float b, const Gain& gain)
    {
        const auto colour = [&](float r) {
            const float v = srgbCurveFromLinear(static_cast<float>(linear / gain.at(r)));
            return PixelRGB<float>{v, v, v};
        };
        colorsA.push_back(colour(a));
        colorsB.push_back(colour(b));
        radiiA.push_back(a);
        radiiB.push_back(b);
    }
};

// A second implementation of the descent, as plain as possible and in double.
class PlainDescent
{
public:
    explicit PlainDescent(const PairList& pairs_) : pairs(pairs_) {}

    std::array<double, 3> k{};
    int rounds = 0;

    void run()
    {
        double previous = DBL_MAX;
        for (rounds = 1; rounds <= 50; ++rounds) {
            const double first = search(0);
            const double second = search(1);
            const double total = first + second + search(2);
            if (!(total < previous))
                return;
            previous = total;
        }
        rounds = 50;
    }

private:
    const PairList& pairs;

    [[nodiscard]] double corrected(float colour, float radius) const
    {
        return static_cast<double>(
            srgbCurveFromLinear(static_cast<float>(static_cast<double>(linearFromSRGBCurve(colour)) *
                                                   Gain{k[0], k[1], k[2]}.at(static_cast<double>(radius)))));
    }
    [[nodiscard]] double cost() const
    {
        double sum = 0.0;
        for (std::size_t i = 0; i < pairs.colorsA.size(); ++i)
            for (const auto channel : {&PixelRGB<float>::r, &PixelRGB<float>::g, &PixelRGB<float>::b})
                sum += std::pow(corrected(pairs.colorsA[i].*channel, pairs.radiiA[i]) -
                                    corrected(pairs.colorsB[i].*channel, pairs.radiiB[i]),
                                2);
        return sum / static_cast<double>(pairs.colorsA.size());
    }
    double search(std::size_t which)
    {
        double low = 0.0;
        double high = 5.0;
        for (;;) {
            const double middle = (low + high) * 0.5;
            k[which] = middle;
            const double here = cost();
            k[which] = middle + 0.001;
            const double beyond = cost();
            k[which] = middle;
            (beyond < here ? low : high) = middle;
            if (high - low <= 0.001)
                return here;
        }
    }
};

} // namespace

TEST(Devignette, StartsWithoutAGain)
{
    const devignette_t model;
    EXPECT_EQ(model.k1, 0.0f);
    EXPECT_EQ(model.k2, 0.0f);
    EXPECT_EQ(model.k3, 0.0f);
    EXPECT_FALSE(model.fitted);
    EXPECT_EQ(model.gain(1.0f), 1.0f);
}

TEST(Devignette, GainIsAnEvenPolynomial)
{
    devignette_t model;
    model.k1 = 0.5f;
    model.k2 = 0.25f;
    model.k3 = 2.0f;
    EXPECT_FLOAT_EQ(model.gain(0.5f), 1.0f + 0.5f / 4 + 0.25f / 16 + 2.0f / 64);
    EXPECT_FLOAT_EQ(model.gain(1.0f), 3.75f);
}

TEST(Devignette, WithoutPairsAllEndsAtTheLastMiddle)
{
    devignette_t model;
    model.fit({}, {}, {}, {});
    // Thirteen halvings of 0..5, always towards 0.
    EXPECT_EQ(model.k1, 5.0f / 8192);
    EXPECT_EQ(model.k2, 5.0f / 8192);
    EXPECT_EQ(model.k3, 5.0f / 8192);
}

TEST(Devignette, FindsEachCoefficientOfPairs)
{
    for (const Gain& truth : {Gain{0.4, 0, 0}, Gain{0, 0.6, 0}, Gain{0.3, 0.2, 0.1}, Gain{1.5, 0.5, 0.2}}) {
        PairList pairs;
        for (int i = 0; i <= 100; ++i)
            for (const double linear : {0.05, 0.2, 0.5})
                pairs.add(linear, 0.01f * static_cast<float>(i), 0.005f * static_cast<float>((i * 37) % 101), truth);
        devignette_t model;
        model.fit(pairs.colorsA, pairs.colorsB, pairs.radiiA, pairs.radiiB);
        for (float r = 0; r <= 1.0f; r += 0.05f)
            EXPECT_NEAR(static_cast<double>(model.gain(r)) / truth.at(r), 1.0, 0.01)
                << r << " of " << truth.k1 << ", " << truth.k2 << ", " << truth.k3;
    }
}

TEST(Devignette, IsTheDescentThatItsHeaderDescribes)
{
    // Radii of a narrow overlap, where the powers of the radius are nearly indistinguishable. The steps then fall below
    // the tolerance and the descent stops, or it creeps until the rounds are over. Near the truth or not, it must end
    // where the plain one ends.
    struct Case
    {
        Gain truth;
        float nearest; // to the centre
        bool isCutShort;
    };
    for (const Case& known : {Case{{0.4, 0.2, 0.1}, 0.9f, false}, Case{{0.4, 0.2, 0.1}, 0.75f, true},
                              Case{{0.3, 0.15, 0.05}, 0.1f, false}}) {
        PairList pairs;
        for (int i = 0; i < 40; ++i) {
            const float share = static_cast<float>(i) / 39.0f;
            pairs.add(0.2 + 0.01 * (i % 7), known.nearest + (1.0f - known.nearest) * share,
                      known.nearest + (1.0f - known.nearest) * 0.3f * (1.0f - share), known.truth);
        }
        PlainDescent plain(pairs);
        plain.run();
        EXPECT_EQ(plain.rounds == 50, known.isCutShort) << plain.rounds;
        devignette_t model;
        model.fit(pairs.colorsA, pairs.colorsB, pairs.radiiA, pairs.radiiB);
        // Single precision may reverse a tie; more than two rounds of difference would be an error.
        constexpr double kTwoSteps = 2.01 * 5.0 / 4096;
        EXPECT_NEAR(static_cast<double>(model.k1), plain.k[0], kTwoSteps) << known.nearest;
        EXPECT_NEAR(static_cast<double>(model.k2), plain.k[1], kTwoSteps) << known.nearest;
        EXPECT_NEAR(static_cast<double>(model.k3), plain.k[2], kTwoSteps) << known.nearest;
    }
}

TEST(Devignette, OnlyBrightensOutwards)
{
    // Brighter towards the corners: no gain of 1 or more helps.
    PairList pairs;
    for (int i = 0; i <= 100; ++i)
        pairs.add(0.2, 0.01f * static_cast<float>(i), 0.2f, Gain{-0.3, 0, 0});
    devignette_t model;
    model.fit(pairs.colorsA, pairs.colorsB, pairs.radiiA, pairs.radiiB);
    for (const float k : {model.k1, model.k2, model.k3}) {
        EXPECT_GE(k, 0.0f);
        EXPECT_LE(k, 0.001f);
    }
}

TEST(Devignette, EqualPairsGiveNoGain)
{
    PairList pairs;
    for (int i = 0; i <= 100; ++i)
        pairs.add(0.2, 0.01f * static_cast<float>(i), 0.007f * static_cast<float>((i * 37) % 101), Gain{0, 0, 0});
    devignette_t model;
    model.fit(pairs.colorsA, pairs.colorsB, pairs.radiiA, pairs.radiiB);
    EXPECT_NEAR(model.gain(1.0f), 1.0f, 0.003f);
}

TEST(Devignette, TracesItsTime)
{
    testing::internal::CaptureStdout();
    grfx::cout.quiet = 0;
    devignette_t().fit({}, {}, {}, {});
    grfx::cout.quiet = 1;
    EXPECT_EQ(testing::internal::GetCapturedStdout().rfind("devignette::fit: ", 0), 0u);
}

TEST(PanoramaDevignette, RecoversAKnownVignette)
{
    for (const Gain& truth : {Gain{0.3, 0.15, 0.05}, Gain{0.8, 0.0, 0.3}, Gain{0.2, 0.3, 0.1}}) {
        Views views = row(4, truth);
        PanoramaDevignette model;
        views.fit(model);
        EXPECT_TRUE(model.model().fitted);
        views.process(model);
        double worst = 0.0;
        for (std::size_t i = 0; i < views.images.size(); ++i)
            for (int y = 2; y < 118; ++y)
                for (int x = 2; x < 158; ++x)
                    for (int c = 0; c < 3; ++c) {
                        const double expected = light(x + views.corners[i].x, y + views.corners[i].y, c);
                        const double found = decoded(views.images[i].at<cv::Vec3s>(y, x)[c]);
                        worst = std::max(worst, std::abs(found / expected - 1.0));
                    }
        EXPECT_LT(worst, 0.02) << truth.k1 << ", " << truth.k2 << ", " << truth.k3;
    }
}

TEST(PanoramaDevignette, WorksOnViewsOfTheWarper)
{
    // Two neighbouring cameras that look at a plain sky, drawn on the sphere with their true radius maps. Their overlap
    // is wide, two thirds of a view: in a narrow one the three powers of the radius are nearly indistinguishable, and
    // the descent stops where the views agree with each other, though not with the truth.
    const Gain truth{0.4, 0.2, 0.1};
    const cv::Size size(300, 200);
    const cv::Mat K = (cv::Mat_<float>(3, 3) << 320, 0, 150, 0, 320, 100, 0, 0, 1);
    cv::Mat image(size, CV_16SC3);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            for (int c = 0; c < 3; ++c)
                image.at<cv::Vec3s>(y, x)[c] = encoded(
                    0.2 * (c + 1) / truth.at(std::min(1.0, std::hypot(x - 150, y - 100) / std::hypot(150, 100))));
    Views views;
    for (const float turn : {-0.15f, 0.15f}) {
        const cv::Mat R =
            (cv::Mat_<float>(3, 3) << std::cos(turn), 0, std::sin(turn), 0, 1, 0, -std::sin(turn), 0, std::cos(turn));
        const auto warper = makeWarper(320.0f, 2);
        cv::Mat dst, mask, radius;
        const cv::Rect roi = warper->warp(image, cv::Mat(size, CV_8UC1, cv::Scalar(255)), dst, mask, radius,
                                          warper->outputBounds(), warper->outputBounds().size(), K, R);
        views.images.push_back(dst);
        views.masks.push_back(mask);
        views.seams.push_back(mask.clone());
        views.radii.push_back(radius);
        views.corners.push_back(roi.tl());
    }
    PanoramaDevignette model;
    views.fit(model);
    for (float r = 0.1f; r <= 1.0f; r += 0.1f)
        EXPECT_NEAR(static_cast<double>(model.model().gain(r)) / truth.at(r), 1.0, 0.02) << r;
    views.process(model);
    for (int c = 0; c < 3; ++c) {
        const cv::Mat& first = views.images[0];
        const cv::Vec3s centre = first.at<cv::Vec3s>(first.rows / 2, first.cols / 2);
        EXPECT_NEAR(decoded(centre[c]), 0.2 * (c + 1), 0.004 * (c + 1));
    }
}

TEST(PanoramaDevignette, OneViewGivesNoPairs)
{
    Views views = row(1, {1.0, 0.5, 0.2});
    const cv::Mat before = views.images[0].clone();
    PanoramaDevignette model;
    views.fit(model);
    EXPECT_TRUE(model.model().fitted);
    EXPECT_NEAR(model.model().gain(1.0f), 1.0f, 0.002f);
    views.process(model);
    EXPECT_LE(cv::norm(before, views.images[0], cv::NORM_INF), 15.0) << "a thousandth, and the truncation";
    PanoramaDevignette none;
    none.fit({}, {}, {}, {}, {});
    EXPECT_TRUE(none.model().fitted);
}

TEST(PanoramaDevignette, ASecondFitDoesNothing)
{
    PanoramaDevignette model;
    row(3, {0.3, 0.1, 0.0}).fit(model);
    const devignette_t before = model.model();
    row(3, {1.5, 0.5, 0.5}).fit(model);
    EXPECT_EQ(model.model().k1, before.k1);
    EXPECT_EQ(model.model().k2, before.k2);
    EXPECT_EQ(model.model().k3, before.k3);
}

TEST(PanoramaDevignette, OnlyNeighboursInTheListArePaired)
{
    // The first and the third view overlap, the second is apart: no pairs.
    Views views;
    const Gain gain{0.8, 0.2, 0.1};
    views.add({0, 0}, {160, 120}, gain);
    views.add({5000, 0}, {160, 120}, gain);
    views.add({80, 0}, {160, 120}, gain);
    PanoramaDevignette model;
    views.fit(model);
    EXPECT_EQ(model.model().k1, 5.0f / 8192);
}

TEST(PanoramaDevignette, PairsAreOnTheOutlineOfTheOverlap)
{
    // Pixels deep inside both masks, outside of all masks, or on the rim of the matrix are ignored.
    const Gain gain{0.5, 0.2, 0.0};
    PanoramaDevignette clean;
    row(2, gain).fit(clean);
    Views spoiled = row(2, gain);
    const cv::Rect overlap(90, 7, 70, 113); // on the plane
    for (std::size_t i = 0; i < 2; ++i) {
        cv::Mat& image = spoiled.images[i];
        const cv::Point corner = spoiled.corners[i];
        for (int y = 0; y < image.rows; ++y) {
            for (int x = 0; x < image.cols; ++x) {
                const cv::Point onPlane = corner + cv::Point(x, y);
                const bool isOutside = !overlap.contains(onPlane);
                const bool isDeep = cv::Rect(96, 13, 58, 100).contains(onPlane);
                const bool isMasked = spoiled.masks[i].at<uchar>(y, x) == 0;
                if (isOutside || isDeep || isMasked)
                    image.at<cv::Vec3s>(y, x) = i == 0 ? cv::Vec3s(16000, 0, 9000) : cv::Vec3s(0, 0, 0);
            }
        }
    }
    PanoramaDevignette model;
    spoiled.fit(model);
    EXPECT_EQ(model.model().k1, clean.model().k1);
    EXPECT_EQ(model.model().k2, clean.model().k2);
    EXPECT_EQ(model.model().k3, clean.model().k3);
    // The outline is used: spoiling it spoils the fit.
    Views outline = row(2, gain);
    outline.images[1](cv::Rect(2, 2, 1, 116)).setTo(cv::Scalar(16000, 16000, 16000));
    PanoramaDevignette other;
    outline.fit(other);
    EXPECT_NE(other.model().k1, clean.model().k1);
}

TEST(PanoramaDevignette, MasksWithoutAClearPixelHaveNoOutline)
{
    // The rim of the matrix is not an edge of the mask, and is itself ignored.
    Views views = row(2, {0.8, 0.2, 0.1});
    for (cv::Mat& mask : views.masks)
        mask.setTo(255);
    PanoramaDevignette model;
    views.fit(model);
    EXPECT_EQ(model.model().k1, 5.0f / 8192);
    // A clear pixel on the rim of the second view makes edges of its neighbours inside, which are in the first.
    views.masks[1].at<uchar>(60, 0) = 0;
    PanoramaDevignette other;
    views.fit(other);
    EXPECT_GT(other.model().k1, 0.1f);
}

TEST(PanoramaDevignette, SeamMasksAreNotRead)
{
    Views views = row(2, {0.5, 0.2, 0.0});
    PanoramaDevignette with, without;
    views.fit(with);
    without.fit(views.images, {}, views.masks, views.corners, views.radii);
    EXPECT_EQ(with.model().k1, without.model().k1);
    Views other = row(2, {0.5, 0.2, 0.0});
    views.process(with);
    without.process(other.images, {}, other.masks, other.corners, other.radii);
    EXPECT_TRUE(sameBytes(views.images[1], other.images[1]));
}

TEST(PanoramaDevignette, ProcessCorrectsPixelsUnderASingleMask)
{
    Views views = row(2, {0.5, 0.2, 0.0});
    PanoramaDevignette model;
    views.fit(model);
    const cv::Vec3s before = views.images[0].at<cv::Vec3s>(4, 4); // far from the other view
    views.process(model);
    const cv::Vec3s after = views.images[0].at<cv::Vec3s>(4, 4);
    const double r = static_cast<double>(views.radii[0].at<float>(4, 4));
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(decoded(after[c]) / decoded(before[c]), 1 + 0.5 * r * r + 0.2 * r * r * r * r, 0.02);
}

TEST(PanoramaDevignette, ProcessIsGammaOfTheLightTimesTheGain)
{
    // Every possible working sample, in a different order per channel, at many radii.
    Views views = row(2, {0.5, 0.2, 0.0});
    PanoramaDevignette model;
    views.fit(model);
    ASSERT_GT(model.model().gain(1.0f), 1.5f);
    constexpr int kSide = 128;
    cv::Mat image(kSide, kSide, CV_16SC3);
    cv::Mat radius(kSide, kSide, CV_32F);
    for (int i = 0; i < kSide * kSide; ++i) {
        image.at<cv::Vec3s>(i / kSide, i % kSide) =
            cv::Vec3s(static_cast<short>(i), static_cast<short>(16383 - i), static_cast<short>((7 * i) % 16384));
        radius.at<float>(i / kSide, i % kSide) = static_cast<float>((13 * i) % 101) / 100.0f;
    }
    std::vector<cv::Mat> images = {image.clone()};
    model.process(images, {}, {cv::Mat(kSide, kSide, CV_8UC1, cv::Scalar(255))}, {cv::Point()}, {radius});
    double sumOfErrors = 0.0;
    for (int y = 0; y < kSide; ++y) {
        for (int x = 0; x < kSide; ++x) {
            for (int c = 0; c < 3; ++c) {
                const float sample = 2.0f * image.at<cv::Vec3s>(y, x)[c] / 32767.0f;
                const float light = linearFromSRGBCurve(sample) * model.model().gain(radius.at<float>(y, x));
                const double exact = static_cast<double>(srgbCurveFromLinear(light)) * 32767.0 * 0.5;
                const double error = images[0].at<cv::Vec3s>(y, x)[c] - exact;
                ASSERT_GT(error, -1.05) << x << ", " << y << " of " << image.at<cv::Vec3s>(y, x)[c];
                ASSERT_LT(error, 0.05) << x << ", " << y << " of " << image.at<cv::Vec3s>(y, x)[c];
                sumOfErrors += error;
            }
        }
    }
    EXPECT_NEAR(sumOfErrors / (3.0 * kSide * kSide), -0.5, 0.02) << "truncated";
}

TEST(PanoramaDevignette, ProcessKeepsMaskedPixels)
{
    Views views = row(2, {0.5, 0.2, 0.0});
    PanoramaDevignette model;
    views.fit(model);
    cv::randu(views.masks[0], 0, 2); // holes everywhere
    const cv::Mat before = views.images[0].clone();
    views.process(model);
    int changed = 0;
    for (int y = 0; y < 120; ++y) {
        for (int x = 0; x < 160; ++x) {
            const bool isSame = views.images[0].at<cv::Vec3s>(y, x) == before.at<cv::Vec3s>(y, x);
            if (views.masks[0].at<uchar>(y, x) == 0)
                ASSERT_TRUE(isSame) << x << ", " << y;
            else
                changed += isSame ? 0 : 1;
        }
    }
    EXPECT_GT(changed, 120 * 160 / 3);
}

TEST(PanoramaDevignette, ProcessDoesNotLimitToFullScale)
{
    Views views = row(2, {1.5, 0.5, 0.5});
    PanoramaDevignette model;
    views.fit(model);
    views.images[0].setTo(cv::Scalar(16383, -500, 0));
    views.radii[0].setTo(1.0f);
    views.process(model);
    const cv::Vec3s pixel = views.images[0].at<cv::Vec3s>(60, 80);
    EXPECT_GT(pixel[0], 20000) << "blue stays blue, and above full scale";
    EXPECT_LT(pixel[1], -500);
    EXPECT_EQ(pixel[2], 0);
}

TEST(PanoramaDevignette, ProcessSaturatesAtTheRangeOfTheType)
{
    // Twice full scale in light times a gain of four would exceed 16 bits.
    Views views = row(2, {3.0, 0.0, 0.0});
    PanoramaDevignette model;
    views.fit(model);
    ASSERT_GT(model.model().gain(1.0f), 3.5f);
    views.images[0].setTo(cv::Scalar(30000, -30000, 16383));
    views.radii[0].setTo(1.0f);
    views.process(model);
    EXPECT_EQ(views.images[0].at<cv::Vec3s>(60, 80)[0], 32767);
    EXPECT_EQ(views.images[0].at<cv::Vec3s>(60, 80)[1], -32768);
    EXPECT_GT(views.images[0].at<cv::Vec3s>(60, 80)[2], 28000);
}

TEST(PanoramaDevignette, AcceptsAwkwardSizes)
{
    for (const cv::Size size : {cv::Size(1, 1), cv::Size(2, 7), cv::Size(3, 3), cv::Size(641, 3)}) {
        Views views;
        for (int i = 0; i < 2; ++i) {
            views.images.emplace_back(size, CV_16SC3, cv::Scalar::all(5000));
            views.masks.emplace_back(size, CV_8UC1, cv::Scalar(255));
            views.seams.push_back(views.masks.back());
            views.radii.emplace_back(size, CV_32F, cv::Scalar(0.5));
            views.corners.emplace_back(i, 0);
        }
        PanoramaDevignette model;
        views.fit(model);
        views.process(model);
        EXPECT_NEAR(views.images[1].at<cv::Vec3s>(0, 0)[0], 5000, 5);
    }
}

TEST(PanoramaDevignette, DoesNotDependOnThreadsAndGivesItsMemoryBack)
{
    const std::size_t before = MemoryManager::instance().liveBytes();
    const auto run = [](int workers) {
        const WorkerLimit limit(workers);
        Views views = row(4, {0.4, 0.2, 0.1}, {613, 411}, 300);
        PanoramaDevignette model;
        views.fit(model);
        views.process(model);
        return std::pair(model.model(), views.images);
    };
    const auto [modelOfOne, imagesOfOne] = run(1);
    const auto [modelOfTwo, imagesOfTwo] = run(2);
    EXPECT_EQ(modelOfOne.k1, modelOfTwo.k1);
    EXPECT_EQ(modelOfOne.k2, modelOfTwo.k2);
    EXPECT_EQ(modelOfOne.k3, modelOfTwo.k3);
    for (std::size_t i = 0; i < imagesOfOne.size(); ++i)
        EXPECT_TRUE(sameBytes(imagesOfOne[i], imagesOfTwo[i])) << i;
    EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
}
