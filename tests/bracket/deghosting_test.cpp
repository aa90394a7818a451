#include "bracket/deghosting.hpp"
#include "support/pictures.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace orvo;
using namespace orvo::test;

namespace {

constexpr int kWidth = 360;
constexpr int kHeight = 240;

HDRFrame frameOf(std::shared_ptr<Picture> picture)
{
    HDRFrame frame;
    frame.image = std::move(picture);
    return frame;
}

bool inSubject(int x, int y, int left, int top) { return x >= left && x < left + 40 && y >= top && y < top + 60; }

// The texture, times a gain, with a striped subject in front.
std::shared_ptr<Picture> sceneWithSubject(int left, int top, float gain = 1.0f)
{
    return drawn(kWidth, kHeight, [=](int x, int y) {
        auto p = texture(x, y);
        if (inSubject(x, y, left, top)) {
            const float v = (x / 3) % 2 == 0 ? 0.9f : 0.05f;
            p = {v, v, v};
        }
        return PixelRGB<float>{p.r * gain, p.g * gain, p.b * gain};
    });
}

std::shared_ptr<Picture> sceneAlone(float gain = 1.0f) { return sceneWithSubject(-1000, -1000, gain); }

} // namespace

TEST(Deghosting, EqualFramesStayAsTheyAre)
{
    for (int amount = 0; amount <= 4; ++amount) {
        std::vector<HDRFrame> frames;
        for (int i = 0; i < 3; ++i)
            frames.push_back(frameOf(textured(kWidth, kHeight)));
        processDeghosting(frames, static_cast<DeghostAmount>(amount), 1);
        for (const HDRFrame& frame : frames)
            EXPECT_TRUE(sameBytes(*frame.image, *textured(kWidth, kHeight))) << amount;
    }
}

TEST(Deghosting, AMovedSubjectGivesWayToTheReference)
{
    std::vector<HDRFrame> frames = {frameOf(sceneWithSubject(60, 80)), frameOf(sceneWithSubject(200, 80))};
    processDeghosting(frames, DeghostAmount::Medium, 1);
    int wrong = 0;
    int seen = 0;
    const auto truth = sceneWithSubject(200, 80);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            if (inSubject(x, y, 60, 80) || inSubject(x, y, 200, 80)) {
                ++seen;
                wrong += std::abs(frames[0].image->row(y)[x].g - truth->row(y)[x].g) > 0.02f ? 1 : 0;
            }
    EXPECT_LT(wrong, seen / 100) << wrong << " of " << seen;
}

TEST(Deghosting, TheReplacementHasTheFramesExposure)
{
    std::vector<HDRFrame> frames = {frameOf(sceneWithSubject(60, 80, 0.6f)), frameOf(sceneAlone())};
    processDeghosting(frames, DeghostAmount::High, 1);
    const auto truth = sceneAlone(0.6f);
    for (int y = 85; y < 135; ++y)
        for (int x = 65; x < 95; ++x)
            ASSERT_NEAR(frames[0].image->row(y)[x].g, truth->row(y)[x].g, 0.02f) << x << "," << y;
}

TEST(Deghosting, TheReferenceIsNeverWritten)
{
    std::vector<HDRFrame> frames = {frameOf(sceneWithSubject(60, 80)), frameOf(sceneWithSubject(200, 80)),
                                    frameOf(sceneWithSubject(130, 20))};
    const auto before = frames[2].image->copy({});
    processDeghosting(frames, DeghostAmount::Highest, 2);
    EXPECT_TRUE(sameBytes(*frames[2].image, *before));
}

TEST(Deghosting, WhereTheReferenceIsBlownOutNothingIsMarked)
{
    std::vector<HDRFrame> frames = {frameOf(sceneWithSubject(60, 80)), frameOf(plain(kWidth, kHeight, 0.97f))};
    processDeghosting(frames, DeghostAmount::Highest, 1);
    EXPECT_TRUE(sameBytes(*frames[0].image, *sceneWithSubject(60, 80)));
}

TEST(Deghosting, OneFrameMarksForAll)
{
    // The second frame equals the reference; the third shows a subject. What the third marks is replaced in the second
    // as well, by the same pixels at the same exposure.
    std::vector<HDRFrame> frames = {frameOf(sceneAlone()), frameOf(sceneAlone()), frameOf(sceneWithSubject(60, 80))};
    frames[1].image->row(100)[70] = {1.9f, 1.9f, 1.9f}; // too small to be marked by itself at this amount
    processDeghosting(frames, DeghostAmount::Medium, 0);
    EXPECT_LT(frames[1].image->row(100)[70].r, 1.0f);
}

TEST(Deghosting, WithTwoFramesTheSecondIsCorrectedTowardTheFirst)
{
    std::vector<FocusStackerFrame> frames(2);
    frames[0].image = sceneAlone();
    frames[1].image = sceneWithSubject(60, 80);
    processDeghosting<FocusStackerFrame>(frames, DeghostAmount::Medium, 0);
    EXPECT_TRUE(sameBytes(*frames[0].image, *sceneAlone()));
    EXPECT_NEAR(frames[1].image->row(110)[80].g, frames[0].image->row(110)[80].g, 0.02f);
}

TEST(Deghosting, ValuesAreLimitedWhereTheyEnterAFrame)
{
    auto reference = sceneAlone();
    for (int y = 90; y < 130; ++y)
        for (int x = 70; x < 90; ++x)
            reference->row(y)[x] =
                (x % 2 == 0) ? PixelRGB<float>{-3.0f, 0.1f, 0.1f} : PixelRGB<float>{9.0f, -4.0f, 0.1f};
    std::vector<HDRFrame> frames = {frameOf(sceneAlone()), frameOf(reference)};
    processDeghosting(frames, DeghostAmount::Highest, 1);
    for (std::size_t i = 0; i < frames[0].image->pixelCount(); ++i) {
        ASSERT_GE(frames[0].image->data()[i].r, 0.0f);
        ASSERT_LE(frames[0].image->data()[i].r, 2.0f);
    }
}

TEST(Deghosting, FramesThatSharePixelsShareTheChange)
{
    std::vector<HDRFrame> frames = {frameOf(sceneWithSubject(60, 80)), frameOf(sceneAlone())};
    const auto shared = frames[0].image;
    processDeghosting(frames, DeghostAmount::Medium, 1);
    EXPECT_EQ(frames[0].image, shared);
    EXPECT_FALSE(sameBytes(*shared, *sceneWithSubject(60, 80)));
}

TEST(Deghosting, TellsWhatItDoes)
{
    std::vector<HDRFrame> frames = {frameOf(plain(64, 48, 0.5f)), frameOf(plain(64, 48, 0.5f))};
    const LogCapture capture;
    processDeghosting(frames, DeghostAmount::High, 1);
    EXPECT_THAT(capture.texts(LogMessageType::Progress),
                testing::ElementsAre("[Deghosting] 64x48 refIdx: 1deghostAmount: 3"));
}

TEST(Deghosting, AwkwardSizes)
{
    for (const _Size<int> size : {_Size<int>(0, 0), _Size<int>(1, 1), _Size<int>(1, 7), _Size<int>(29, 3)}) {
        std::vector<HDRFrame> frames = {frameOf(textured(size.width, size.height)),
                                        frameOf(textured(size.width, size.height, 5, 5))};
        processDeghosting(frames, DeghostAmount::Highest, 0);
        EXPECT_EQ(frames[1].image->size(), size);
    }
}

TEST(Deghosting, DoesNotDependOnThreadsAndGivesItsMemoryBack)
{
    const auto run = [] {
        std::vector<HDRFrame> frames = {frameOf(sceneWithSubject(60, 80, 0.7f)), frameOf(sceneWithSubject(200, 80))};
        processDeghosting(frames, DeghostAmount::Medium, 1);
        return frames[0].image;
    };
    const std::size_t before = MemoryManager::instance().liveBytes();
    {
        const auto many = run();
        const WorkerLimit limit(1);
        EXPECT_TRUE(sameBytes(*many, *run()));
    }
    EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
}
