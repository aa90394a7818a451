#include "bracket/deghosting.hpp"
#include "support/pictures.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/auto_exposure.hpp>
#include <orvo_image_processing/fast_blur.hpp>
#include <orvo_image_processing/guided_filter.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>

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

// Columns that lie by turns above and below a gray: fine structure and nothing else.
std::shared_ptr<Picture> striped(float gray, float amplitude)
{
    return drawn(kWidth, kHeight, [=](int x, int) {
        const float v = gray + (x % 2 == 0 ? amplitude : -amplitude);
        return PixelRGB<float>{v, v, v};
    });
}

// Whether a striped frame is taken for a ghost before a reference without structure.
bool isMarked(float gray, float amplitude, const PixelRGB<float>& reference, DeghostAmount amount)
{
    std::vector<HDRFrame> frames = {frameOf(striped(gray, amplitude)),
                                    frameOf(drawn(kWidth, kHeight, [&](int, int) { return reference; }))};
    processDeghosting(frames, amount, 1);
    return !sameBytes(*frames[0].image, *striped(gray, amplitude));
}

float inEightBits(float v) { return std::trunc(v * 255.0f) / 255.0f; }

// The whole definition, a step at a time and on planes of its own.
std::vector<std::shared_ptr<Picture>> stepByStep(const std::vector<HDRFrame>& frames, int amount, int referenceIndex)
{
    const Picture& reference = *frames[static_cast<std::size_t>(referenceIndex)].image;
    const int width = reference.width();
    const int height = reference.height();
    const std::size_t count = reference.pixelCount();
    const float sensitivity = static_cast<float>(amount) * 0.25f * 1.75f + 0.75f;
    std::vector<float> ghosts(count, 0.0f);
    std::vector<auto_exposure_data_t> maps(frames.size());
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const auto a = frames[i].image->copy({});
        const auto b = reference.copy({});
        const auto c = reference.copy({});
        autoExposureEstimateRGB(a->data(), b->data(), width, height, maps[i], 7);
        autoExposureApplyRGB(a->data(), b->data(), width, height, maps[i]);
        for (Picture* const picture : {a.get(), b.get()}) {
            grfx_guided_filter_rgb_fast(picture->data(), c->data(), width, height, static_cast<float>(width / 30),
                                        0.2f);
            for (std::size_t p = 0; p < count; ++p) {
                auto& v = picture->data()[p];
                const auto& smooth = c->data()[p];
                v = {std::abs(v.r - smooth.r), std::abs(v.g - smooth.g), std::abs(v.b - smooth.b)};
            }
        }
        for (std::size_t p = 0; p < count; ++p) {
            const auto sum = [p](const Picture& picture) {
                const auto v = clampValue(picture.data()[p]);
                return v.r + v.g + v.b;
            };
            const auto& ref = reference.data()[p];
            if (!((ref.r + ref.g + ref.b) / 3.0f * 255.0f < 245.0f))
                continue;
            float d = std::abs(sum(*a) - sum(*b));
            d = (d + d) * sensitivity;
            if ((std::clamp(d, 0.0f, 1.0f) - 0.5f) * 3.0f * sensitivity + 0.5f > 0.0f)
                ghosts[p] = 1.0f;
        }
    }
    std::vector<float> soft(count);
    std::vector<float> blurred(count);
    grfx_fast_blur_gray(soft.data(), ghosts.data(), width, height, 10);
    std::transform(soft.begin(), soft.end(), soft.begin(), inEightBits);
    for (int pass = 0; pass < 25; ++pass) {
        for (std::size_t p = 0; p < count; ++p)
            soft[p] = inEightBits(std::max(ghosts[p], soft[p]));
        grfx_fast_blur_gray(blurred.data(), soft.data(), width, height, 10);
        std::transform(blurred.begin(), blurred.end(), soft.begin(), inEightBits);
    }
    std::vector<std::shared_ptr<Picture>> result;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const auto frame = frames[i].image->copy({});
        const auto b = reference.copy({});
        autoExposureApplyRGB(frame->data(), b->data(), width, height, maps[i]);
        const auto mix = [](float v, float wanted, float m) { return std::clamp(v + (wanted - v) * m, 0.0f, 2.0f); };
        for (std::size_t p = 0; p < count && static_cast<int>(i) != referenceIndex; ++p) {
            const float m = std::clamp(soft[p] * 1.2f, 0.0f, 1.0f);
            auto& v = frame->data()[p];
            const auto& wanted = b->data()[p];
            v = {mix(v.r, wanted.r, m), mix(v.g, wanted.g, m), mix(v.b, wanted.b, m)};
        }
        result.push_back(frame);
    }
    return result;
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

TEST(Deghosting, IsItsStepsInOrder)
{
    // Two subjects, one of them beside the reference's, frames of three exposures, and values beyond white.
    const auto frames = [] {
        std::vector<HDRFrame> made = {frameOf(sceneWithSubject(60, 80, 0.6f)), frameOf(sceneWithSubject(200, 80)),
                                      frameOf(sceneWithSubject(230, 100, 1.5f))};
        return made;
    };
    for (const auto& [referenceIndex, amount] : {std::pair{0, 0}, {1, 2}, {2, 4}}) {
        auto done = frames();
        const auto expected = stepByStep(done, amount, referenceIndex);
        processDeghosting(done, static_cast<DeghostAmount>(amount), referenceIndex);
        for (std::size_t i = 0; i < done.size(); ++i)
            EXPECT_TRUE(sameBytes(*done[i].image, *expected[i])) << i << " of " << referenceIndex;
    }
}

TEST(Deghosting, EachAmountSeesFainterGhosts)
{
    // A difference d of fine structure is marked where (min(2 d s, 1) - 1/2) 3 s + 1/2 is above 0 at the sensitivity s
    // of the amount: beyond 0.185, 0.151, 0.122, 0.102 and 0.087.
    const float differences[] = {0.200f, 0.168f, 0.136f, 0.111f, 0.094f, 0.080f};
    for (int amount = 0; amount <= 4; ++amount)
        for (const int i : {amount, amount + 1}) {
            const float amplitude = differences[i] / 3.0f;          // of each of three channels
            const float lost = 3.0f * amplitude * amplitude / 0.2f; // kept by the guided filter
            const PixelRGB<float> gray = {0.5f, 0.5f, 0.5f};
            EXPECT_EQ(isMarked(0.5f, amplitude * (1.0f + lost), gray, static_cast<DeghostAmount>(amount)), i <= amount)
                << differences[i] << " at amount " << amount;
        }
}

TEST(Deghosting, AReferenceIsBlownOutFrom245Of255OnTheMeanOfItsChannels)
{
    float bound = 244.0f / 255.0f;
    while ((bound + bound + bound) / 3.0f * 255.0f < 245.0f)
        bound = std::nextafter(bound, 1.0f);
    const auto marked = [](const PixelRGB<float>& reference) {
        return isMarked(0.9f, 0.09f, reference, DeghostAmount::Highest);
    };
    const auto gray = [](float v) { return PixelRGB<float>{v, v, v}; };
    EXPECT_TRUE(marked(gray(244.9f / 255.0f)));
    EXPECT_TRUE(marked(gray(std::nextafter(bound, 0.0f))));
    EXPECT_FALSE(marked(gray(bound)));
    EXPECT_FALSE(marked(gray(245.1f / 255.0f)));
    // Neither the brightest channel nor the luminance decides.
    EXPECT_TRUE(marked({1.0f, 1.0f, 0.87f}));
    EXPECT_TRUE(marked({0.87f, 1.0f, 1.0f}));
    EXPECT_FALSE(marked({0.9f, 0.9f, 1.1f}));
}

TEST(Deghosting, ABlownOutPlaceIsExemptAndTheRestIsNot)
{
    // Far enough apart that the mask of the one does not grow over the other.
    const auto reference = [] {
        return drawn(900, 120, [](int x, int) {
            const float v = x < 450 ? 0.5f : 0.99f;
            return PixelRGB<float>{v, v, v};
        });
    };
    const auto frame = [] {
        return drawn(900, 120, [](int x, int y) {
            const bool structured = y >= 40 && y < 80 && ((x >= 40 && x < 80) || (x >= 820 && x < 860));
            const float v = (x < 450 ? 0.5f : 0.99f) + (structured ? (x % 2 == 0 ? 0.2f : -0.2f) : 0.0f);
            return PixelRGB<float>{v, v, v};
        });
    };
    std::vector<HDRFrame> frames = {frameOf(frame()), frameOf(reference())};
    processDeghosting(frames, DeghostAmount::Highest, 1);
    EXPECT_NEAR(frames[0].image->row(60)[60].g, 0.5f, 0.01f);
    EXPECT_EQ(frames[0].image->row(60)[840].g, frame()->row(60)[840].g);
}

TEST(Deghosting, WhatEntersAFrameIsLimitedToTwo)
{
    // Solid in the middle of the subject: there the frame takes the reference as it is.
    const auto reference = drawn(kWidth, kHeight, [](int x, int y) {
        auto p = texture(x, y);
        if (inSubject(x, y, 60, 80))
            p = x % 2 == 0 ? PixelRGB<float>{0.4f, -4.0f, 0.2f} : PixelRGB<float>{0.1f, 0.1f, 5.0f};
        return p;
    });
    std::vector<HDRFrame> frames = {frameOf(sceneAlone()), frameOf(reference)};
    processDeghosting(frames, DeghostAmount::Highest, 1);
    EXPECT_EQ(frames[0].image->row(110)[80].g, 0.0f);
    EXPECT_EQ(frames[0].image->row(110)[81].b, 2.0f);
    EXPECT_EQ(frames[1].image->row(110)[81].b, 5.0f) << "the reference keeps its own";
}
