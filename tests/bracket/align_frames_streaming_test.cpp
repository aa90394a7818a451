#include "bracket/align_frames_streaming.hpp"
#include "bracket/frame_matrix.hpp"
#include "bracket/inscribed_rect.hpp"
#include "support/clouds.hpp"
#include "support/matrices.hpp"

#include <orvo_common/failure.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include <utility>

using namespace orvo;
using namespace orvo::test;

namespace {

FocusStackerFrame frameOf(std::shared_ptr<Picture> picture)
{
    FocusStackerFrame frame;
    frame.image = std::move(picture);
    return frame;
}

struct Consumed
{
    int index;
    FocusStackerFrame frame;
    _Rect<int> valid;
};

// What brings a frame onto the reference.
cv::Mat referenceFromFrame(const FocusStackerFrame& reference, const FocusStackerFrame& frame)
{
    cv::Mat transform;
    cv::Mat(registerECC(reference, frame, 0.5f, cv::Mat::eye(3, 3, CV_32F)).inv()).convertTo(transform, CV_64F);
    return transform;
}

// Whether OpenCV, registering `frame` onto `reference` at `scale`, gives up only after it has moved the transform.
bool isMovedBeforeItFails(const Picture& reference, const Picture& frame, double scale)
{
    const auto gray = [scale](const Picture& picture) {
        cv::Mat bytes;
        cv::Mat result;
        cv::resize(cvMatFromFrame(picture.data(), picture.width(), picture.height()), bytes, {}, scale, scale,
                   cv::INTER_LINEAR);
        bytes.convertTo(bytes, CV_8UC3, 255.0);
        cv::cvtColor(bytes, result, cv::COLOR_RGB2GRAY);
        return result;
    };
    cv::Mat transform = cv::Mat::eye(3, 3, CV_32F);
    try {
        cv::findTransformECC(gray(reference), gray(frame), transform, cv::MOTION_HOMOGRAPHY,
                             cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 100, 0.001),
                             cv::noArray());
    } catch (const cv::Exception&) {
        return cv::norm(transform, cv::Mat::eye(3, 3, CV_32F), cv::NORM_INF) > 0.0;
    }
    return false;
}

std::shared_ptr<Picture> warpedBy(const Picture& picture, const cv::Mat& transform, int interpolation, int border)
{
    const int width = picture.width();
    const int height = picture.height();
    cv::Mat result;
    cv::warpPerspective(cvMatFromFrame(picture.data(), width, height), result, transform, {width, height},
                        interpolation, border);
    const auto warped = plain(width, height, 0);
    matToFrame(result, warped->data());
    return warped;
}

std::vector<Consumed> align(const std::vector<FocusStackerFrame>& frames, std::size_t reference)
{
    std::vector<Consumed> consumed;
    alignFramesStreaming([&](int i) { return frames[static_cast<std::size_t>(i)]; },
                         [&](int i, FocusStackerFrame& frame, _Rect<int> valid) {
                             consumed.push_back({i, frame, valid});
                         },
                         frames.size(), reference);
    return consumed;
}

} // namespace

TEST(FrameMatrix, CopiesThereAndBack)
{
    const auto picture = textured(37, 11);
    cv::Mat mat = cvMatFromFrame(picture->data(), 37, 11);
    EXPECT_EQ(mat.type(), CV_32FC3);
    EXPECT_EQ(mat.at<cv::Vec3f>(5, 6)[0], picture->row(5)[6].r) << "channel for channel, red first";
    const auto back = plain(37, 11, 0);
    matToFrame(mat, back->data());
    EXPECT_TRUE(sameBytes(*picture, *back));
    mat.setTo(0);
    EXPECT_FALSE(sameBytes(*picture, *plain(37, 11, 0))) << "a copy, not a view";
}

TEST(AlignFramesStreaming, HandsOnEveryFrameInOrder)
{
    const auto consumed = align(
        {frameOf(textured(200, 160)), frameOf(textured(200, 160, 1.5, 1)), frameOf(textured(200, 160, -1, 2))}, 1);
    ASSERT_EQ(consumed.size(), 3u);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(consumed[static_cast<std::size_t>(i)].index, i);
}

TEST(AlignFramesStreaming, TheReferenceGoesOnUnchanged)
{
    const std::vector<FocusStackerFrame> frames = {frameOf(textured(200, 160)), frameOf(textured(200, 160, 2, 1))};
    const auto consumed = align(frames, 1);
    EXPECT_EQ(consumed[1].frame.image, frames[1].image);
    EXPECT_EQ(consumed[1].valid, _Rect<int>(0, 0, 200, 160));
}

TEST(AlignFramesStreaming, WarpsOntoTheReference)
{
    const auto reference = textured(320, 240);
    const auto consumed = align({frameOf(reference), frameOf(textured(320, 240, 3.4, -2.2))}, 0);
    const auto& warped = consumed[1];
    ASSERT_EQ(warped.frame.image->size(), reference->size());
    EXPECT_GT(warped.valid.width, 305);
    EXPECT_LT(warped.valid.width, 320);
    float worst = 0;
    for (int y = warped.valid.y + 1; y < warped.valid.y + warped.valid.height - 1; ++y)
        for (int x = warped.valid.x + 1; x < warped.valid.x + warped.valid.width - 1; ++x)
            worst = std::max(worst, std::abs(warped.frame.image->row(y)[x].r - reference->row(y)[x].r));
    EXPECT_LT(worst, 0.03f);
}

TEST(AlignFramesStreaming, AFrameThatCannotBeRegisteredGoesOnUnwarped)
{
    // A texture shows a warp, and a reference without any cannot be registered to.
    const auto frame = textured(120, 100);
    const LogCapture capture;
    const auto consumed = align({frameOf(plain(120, 100, 0.5f)), frameOf(frame), frameOf(frame)}, 0);
    EXPECT_THAT(capture.texts(LogMessageType::Error),
                testing::ElementsAre("findTransformECC error!", "findTransformECC error!"))
        << "one line for each";
    for (const std::size_t i : {1u, 2u}) {
        EXPECT_EQ(consumed[i].valid, _Rect<int>(0, 0, 120, 100));
        EXPECT_THAT(*consumed[i].frame.image, PixelsNear(*frame, 1e-6f));
    }
}

TEST(AlignFramesStreaming, AFrameWhoseRegistrationFailsHalfWayGoesOnUnwarped)
{
    const auto reference = clouds(kSkyOfReference);
    int halfWay = 0;
    for (std::uint64_t sky = kSkyElsewhere; sky < kSkyElsewhere + 12 && halfWay == 0; ++sky) {
        const auto frame = clouds(sky);
        const LogCapture capture;
        const auto consumed = align({frameOf(reference), frameOf(frame)}, 0);
        if (capture.texts(LogMessageType::Error).empty() || !isMovedBeforeItFails(*reference, *frame, 0.5))
            continue;
        ++halfWay;
        EXPECT_THAT(capture.texts(LogMessageType::Error), testing::ElementsAre("findTransformECC error!"));
        EXPECT_EQ(consumed[1].valid, _Rect<int>(0, 0, frame->width(), frame->height()));
        EXPECT_THAT(*consumed[1].frame.image, PixelsNear(*frame, 1e-6f));
    }
    EXPECT_EQ(halfWay, 1) << "a sky that moves the transform before it fails";
}

TEST(AlignFramesStreaming, KeepsTheColourProfile)
{
    auto frame = frameOf(textured(120, 100, 1, 0));
    frame.image->setColorProfile(ColorProfileType::sRGB());
    const auto consumed = align({frameOf(textured(120, 100)), frame}, 0);
    EXPECT_TRUE(*consumed[1].frame.image->colorProfile() == *ColorProfileType::sRGB());
}

TEST(AlignFramesStreaming, ASmallerFrameIsRefused)
{
    EXPECT_THROW(align({frameOf(textured(120, 100)), frameOf(textured(60, 50))}, 0), FailureError);
}

TEST(RegisterECC, TellsWhereTheReferenceLiesInTheFrame)
{
    const cv::Mat t =
        registerECC(frameOf(textured(320, 240)), frameOf(textured(320, 240, 4, -3)), 0.5f, cv::Mat::eye(3, 3, CV_32F));
    EXPECT_EQ(t.type(), CV_32F);
    EXPECT_NEAR(t.at<float>(0, 2), -4.0f, 0.1f);
    EXPECT_NEAR(t.at<float>(1, 2), 3.0f, 0.1f);
}

TEST(RegisterECC, StartsFromTheGivenTransform)
{
    // Too far for correlation to find by itself.
    cv::Mat start = cv::Mat::eye(3, 3, CV_32F);
    start.at<float>(0, 2) = -60.0f;
    const cv::Mat t = registerECC(frameOf(textured(320, 240)), frameOf(textured(320, 240, 61, 0)), 0.5f, start);
    EXPECT_NEAR(t.at<float>(0, 2), -61.0f, 0.2f);
}

TEST(AlignFramesStreaming, WarpsByLinearInterpolationAndMirrorsTheBorder)
{
    const auto reference = frameOf(textured(320, 240));
    const auto frame = frameOf(textured(320, 240, 5.4, -3.3));
    const auto consumed = align({reference, frame}, 0);
    const Picture& warped = *consumed[1].frame.image;
    const cv::Mat transform = referenceFromFrame(reference, frame);
    EXPECT_TRUE(sameBytes(warped, *warpedBy(*frame.image, transform, cv::INTER_LINEAR, cv::BORDER_REFLECT)));
    // What it could be mistaken for is another picture.
    EXPECT_FALSE(sameBytes(warped, *warpedBy(*frame.image, transform, cv::INTER_NEAREST, cv::BORDER_REFLECT)));
    EXPECT_FALSE(sameBytes(warped, *warpedBy(*frame.image, transform, cv::INTER_CUBIC, cv::BORDER_REFLECT)));
    for (const int border : {cv::BORDER_REFLECT_101, cv::BORDER_REPLICATE, cv::BORDER_CONSTANT, cv::BORDER_WRAP})
        EXPECT_FALSE(sameBytes(warped, *warpedBy(*frame.image, transform, cv::INTER_LINEAR, border))) << border;
}

TEST(AlignFramesStreaming, TheRectangleIsTheInscribedOneWithinTheFrame)
{
    const auto reference = frameOf(textured(320, 240));
    for (const auto& [shiftX, shiftY] : {std::pair{5.4, -3.3}, {-4.2, 6.1}}) {
        const auto frame = frameOf(textured(320, 240, shiftX, shiftY));
        const _Rect<int> valid = align({reference, frame}, 0)[1].valid;
        const cv::Rect whole(0, 0, 320, 240);
        const cv::Rect inner =
            inscribedRect(projectedCorners(referenceFromFrame(reference, frame), 320, 240), 320, 240);
        ASSERT_NE(inner & whole, inner) << "it reaches beyond the frame";
        const cv::Rect expected = inner & whole;
        EXPECT_EQ(valid, _Rect<int>(expected.x, expected.y, expected.width, expected.height));
    }
}

TEST(AlignFramesStreaming, AFrameThatEndsUpBesideTheReferenceHasTheEmptyRectangle)
{
    // Two skies that have nothing in common: correlation climbs away until it gives up, far outside.
    const auto reference = frameOf(clouds(kSkyOfReference));
    const auto frame = frameOf(clouds(kSkyElsewhere));
    const cv::Mat transform = referenceFromFrame(reference, frame);
    const _Size<int> size = reference.image->size();
    const cv::Rect inner = inscribedRect(projectedCorners(transform, size.width, size.height),
                                         static_cast<float>(size.width), static_cast<float>(size.height));
    ASSERT_FALSE(inner.empty()) << "there is a rectangle";
    ASSERT_TRUE((inner & cv::Rect(0, 0, size.width, size.height)).empty());
    const auto consumed = align({reference, frame}, 0);
    EXPECT_EQ(consumed[1].valid, _Rect<int>());
    EXPECT_EQ(consumed[1].frame.image->size(), size) << "handed on all the same";
}

TEST(AlignFramesStreaming, AsksForTheReferenceFirstAndHoldsOnlyTheFrameItHandsOn)
{
    std::vector<int> asked;
    std::vector<std::weak_ptr<Picture>> given;
    const auto getFrame = [&](int index) {
        asked.push_back(index);
        auto frame = frameOf(textured(120, 100, index, 0));
        given.push_back(frame.image);
        return frame;
    };
    const auto consume = [&](int index, FocusStackerFrame& frame, const _Rect<int>&) {
        for (std::size_t i = 0; i < given.size(); ++i)
            EXPECT_EQ(given[i].expired(), given[i].lock() != frame.image) << index;
    };
    alignFramesStreaming(getFrame, consume, 4, 2);
    EXPECT_THAT(asked, testing::ElementsAre(2, 0, 1, 2, 3));
}

TEST(RegisterECC, AFailureKeepsTheGivenTransform)
{
    const cv::Mat given = (cv::Mat_<float>(3, 3) << 1.01f, 0.02f, -7.5f, -0.03f, 0.98f, 3.25f, 1e-4f, -2e-4f, 1.0f);
    const LogCapture capture;
    const cv::Mat kept = registerECC(frameOf(textured(120, 100)), frameOf(plain(120, 100, 0.5f)), 0.5f, given.clone());
    EXPECT_THAT(capture.texts(LogMessageType::Error), testing::ElementsAre("findTransformECC error!"));
    ASSERT_EQ(kept.type(), CV_32F);
    // To the reduced scale and back: two roundings of each number.
    EXPECT_LT(cv::norm(kept, given, cv::NORM_INF), 1e-5);
}

TEST(RegisterECC, AFailureAfterSomeIterationsKeepsTheGivenTransform)
{
    // Pictures that have nothing in common: some are given up at once, others after iterations that moved the
    // transform.
    const cv::Mat given = cv::Mat::eye(3, 3, CV_32F);
    int lateFailures = 0;
    for (std::uint64_t sky = kSkyElsewhere; sky < kSkyElsewhere + 12; ++sky) {
        const LogCapture capture;
        const cv::Mat kept = registerECC(frameOf(clouds(kSkyOfReference)), frameOf(clouds(sky)), 1.0f, given);
        if (capture.texts(LogMessageType::Error).empty())
            continue;
        EXPECT_THAT(capture.texts(LogMessageType::Error), testing::ElementsAre("findTransformECC error!")) << sky;
        EXPECT_TRUE(sameBytes(kept, given)) << sky;
        lateFailures += isMovedBeforeItFails(*clouds(kSkyOfReference), *clouds(sky), 1.0) ? 1 : 0;
    }
    EXPECT_GT(lateFailures, 0);
}

TEST(RegisterECC, LeavesTheCallersTransformAlone)
{
    const cv::Mat given = cv::Mat::eye(3, 3, CV_32F);
    (void)registerECC(frameOf(textured(160, 120)), frameOf(textured(160, 120, 2, 1)), 0.5f, given);
    EXPECT_EQ(cv::norm(given, cv::Mat::eye(3, 3, CV_32F), cv::NORM_INF), 0);
}

TEST(RegisterECC, FindsATurnAndAZoom)
{
    // About the origin, so that the scale of registration shows in the shift and nowhere else.
    const cv::Mat wanted = (cv::Mat_<float>(3, 3) << 1.01f, 0.012f, -2.5f, -0.012f, 1.01f, 1.5f, 0, 0, 1);
    const auto frame = drawn(320, 240, [&](int x, int y) {
        // The place in the reference of this pixel of the frame.
        const cv::Mat p =
            cv::Mat(wanted.inv()) * (cv::Mat_<float>(3, 1) << static_cast<float>(x), static_cast<float>(y), 1.0f);
        return texture(static_cast<double>(p.at<float>(0)), static_cast<double>(p.at<float>(1)));
    });
    for (const float scale : {0.5f, 1.0f}) {
        const cv::Mat found =
            registerECC(frameOf(textured(320, 240)), frameOf(frame), scale, cv::Mat::eye(3, 3, CV_32F));
        EXPECT_LT(cv::norm(found(cv::Rect(0, 0, 2, 2)), wanted(cv::Rect(0, 0, 2, 2)), cv::NORM_INF), 2e-3) << scale;
        EXPECT_NEAR(found.at<float>(0, 2), -2.5f, 0.3f) << scale;
        EXPECT_NEAR(found.at<float>(1, 2), 1.5f, 0.3f) << scale;
    }
}
