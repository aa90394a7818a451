#include <orvo_extensions/bracket.hpp>
#include <orvo_extensions/hdr.hpp>

#include <gtest/gtest.h>

using namespace orvo;

TEST(HDRSettings, Defaults)
{
    const HDRSettings settings;
    EXPECT_FALSE(settings.alignment);
    EXPECT_FALSE(settings.ghostReduction);
    EXPECT_EQ(settings.ghostRefImageIdx, 0);
    EXPECT_EQ(settings.deghostAmount, DeghostAmount::Lowest);
    EXPECT_EQ(settings.cancelFlag, nullptr);
    EXPECT_TRUE(settings.optionA);
    EXPECT_FALSE(settings.chromaticAberrations);
    EXPECT_TRUE(settings.optionB);
    EXPECT_EQ(settings.whiteBalance, 0.0f);
    EXPECT_EQ(settings.details, 0.0f);
    EXPECT_FALSE(settings.lensCorrection);
    EXPECT_EQ(settings.evLimits.rawLow, -4.0f);
    EXPECT_EQ(settings.evLimits.low, -3.0f);
    EXPECT_EQ(settings.evLimits.rawHigh, 4.0f);
    EXPECT_EQ(settings.evLimits.high, 3.0f);
    EXPECT_EQ(settings.evLimits.rawCount, 6);
    EXPECT_EQ(settings.evLimits.count, 4);
    EXPECT_EQ(settings.strength, 1.0f);
    EXPECT_EQ(settings.ll.edgeGain, 1.0f);
    EXPECT_EQ(settings.ll.edgeThreshold, 0.5f);
    EXPECT_EQ(settings.ll.detail, -2.0f);
    EXPECT_EQ(settings.ll.samples, 0);
}

TEST(HDRSettings, ACopySharesTheCancelFlag)
{
    HDRSettings original;
    EXPECT_FALSE(original.canceled());
    original.cancelFlag = std::make_shared<std::atomic<unsigned char>>(0);
    const HDRSettings copy = original; // NOLINT(performance-unnecessary-copy-initialization): the copy is the test
    EXPECT_FALSE(copy.canceled());
    *original.cancelFlag = 1;
    EXPECT_TRUE(copy.canceled());
    *original.cancelFlag = 255;
    EXPECT_TRUE(copy.canceled());
}

TEST(HDRSettings, AMoveTakesTheFlagAndCopiesTheRest)
{
    HDRSettings original;
    original.cancelFlag = std::make_shared<std::atomic<unsigned char>>(1);
    original.alignment = true;
    original.details = 0.5f;
    original.ll.samples = 3;
    HDRSettings moved = std::move(original);
    EXPECT_TRUE(moved.canceled());
    EXPECT_TRUE(moved.alignment);
    EXPECT_EQ(moved.details, 0.5f);
    EXPECT_EQ(moved.ll.samples, 3);
    HDRSettings assigned;
    assigned = std::move(moved);
    EXPECT_TRUE(assigned.canceled());
}

TEST(BracketSettings, Defaults)
{
    const BracketSettings::RawAutoCorrection correction;
    EXPECT_FALSE(correction.chromaticAberrations);
    EXPECT_FALSE(correction.lensCorrection);
    const BracketSettings::Adjust adjust;
    EXPECT_TRUE(adjust.enabled);
    EXPECT_EQ(adjust.referenceIndex, 0);
    const BracketSettings::GhostReduction ghosts;
    EXPECT_TRUE(ghosts.enabled);
    EXPECT_EQ(ghosts.referenceIndex, 0);
    EXPECT_EQ(ghosts.amount, 0);
}

TEST(BracketSettings, FocusStackingAlignsAndDoesNotDeghost)
{
    const BracketSettings::FocusStacking stacking;
    EXPECT_TRUE(stacking.adjust.enabled);
    EXPECT_FALSE(stacking.ghostReduction.enabled);
    BracketSettings::FocusStacking other;
    other.ghostReduction.amount = 3;
    other.adjust.referenceIndex = 2;
    other.rawAutoCorrection.lensCorrection = true;
    BracketSettings::FocusStacking assigned;
    assigned = other;
    EXPECT_EQ(assigned.ghostReduction.amount, 3);
    EXPECT_EQ(assigned.adjust.referenceIndex, 2);
    EXPECT_TRUE(assigned.rawAutoCorrection.lensCorrection);
}
