#include "bracket/frames.hpp"

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
    EXPECT_EQ(adjust.quality, AlignmentQuality::Fast);
    EXPECT_EQ(HDRSettings().alignmentQuality, AlignmentQuality::Fast);
    EXPECT_EQ(HDRSettings().highlightHue, HighlightHue::PerChannel);
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

TEST(BracketSettings, EveryRecordAssignsAllItsFields)
{
    BracketSettings::RawAutoCorrection correction;
    correction.chromaticAberrations = correction.lensCorrection = true;
    BracketSettings::RawAutoCorrection correctionCopy;
    correctionCopy = correction;
    EXPECT_TRUE(correctionCopy.chromaticAberrations);
    EXPECT_TRUE(correctionCopy.lensCorrection);

    BracketSettings::Adjust adjust;
    adjust.enabled = false;
    adjust.referenceIndex = 5;
    adjust.quality = AlignmentQuality::Fine;
    BracketSettings::Adjust adjustCopy;
    adjustCopy = adjust;
    EXPECT_FALSE(adjustCopy.enabled);
    EXPECT_EQ(adjustCopy.referenceIndex, 5);
    EXPECT_EQ(adjustCopy.quality, AlignmentQuality::Fine);

    BracketSettings::GhostReduction ghosts;
    ghosts.enabled = false;
    ghosts.referenceIndex = 6;
    ghosts.amount = 2;
    BracketSettings::GhostReduction ghostsCopy;
    ghostsCopy = ghosts;
    EXPECT_FALSE(ghostsCopy.enabled);
    EXPECT_EQ(ghostsCopy.referenceIndex, 6);
    EXPECT_EQ(ghostsCopy.amount, 2);

    BracketSettings::FocusStacking stacking;
    stacking.rawAutoCorrection = correction;
    stacking.adjust = adjust;
    stacking.ghostReduction = ghosts;
    BracketSettings::FocusStacking stackingCopy;
    stackingCopy.ghostReduction.enabled = true;
    stackingCopy = stacking;
    EXPECT_TRUE(stackingCopy.rawAutoCorrection.chromaticAberrations);
    EXPECT_EQ(stackingCopy.adjust.referenceIndex, 5);
    EXPECT_FALSE(stackingCopy.ghostReduction.enabled);
}

TEST(HDRSettings, AssignmentCopiesEveryField)
{
    HDRSettings original;
    original.alignment = original.ghostReduction = original.chromaticAberrations = original.lensCorrection = true;
    original.ghostRefImageIdx = 4;
    original.deghostAmount = DeghostAmount::High;
    original.cancelFlag = std::make_shared<std::atomic<unsigned char>>(1);
    original.optionA = original.optionB = false;
    original.whiteBalance = 0.25f;
    original.details = 0.75f;
    original.evLimits = {-1.0f, -2.0f, 1.0f, 2.0f, 9, 8};
    original.strength = 0.5f;
    original.ll.edgeGain = 0.1f;
    original.ll.edgeThreshold = 0.2f;
    original.ll.detail = 0.3f;
    original.ll.samples = 7;
    HDRSettings copied;
    copied = original;
    HDRSettings moved;
    moved = std::move(original);
    for (const HDRSettings* const settings : {&copied, &moved}) {
        EXPECT_TRUE(settings->alignment && settings->ghostReduction && settings->chromaticAberrations &&
                    settings->lensCorrection);
        EXPECT_EQ(settings->ghostRefImageIdx, 4);
        EXPECT_EQ(settings->deghostAmount, DeghostAmount::High);
        EXPECT_TRUE(settings->canceled());
        EXPECT_FALSE(settings->optionA || settings->optionB);
        EXPECT_EQ(settings->whiteBalance, 0.25f);
        EXPECT_EQ(settings->details, 0.75f);
        EXPECT_EQ(settings->evLimits.rawLow, -1.0f);
        EXPECT_EQ(settings->evLimits.low, -2.0f);
        EXPECT_EQ(settings->evLimits.rawHigh, 1.0f);
        EXPECT_EQ(settings->evLimits.high, 2.0f);
        EXPECT_EQ(settings->evLimits.rawCount, 9);
        EXPECT_EQ(settings->evLimits.count, 8);
        EXPECT_EQ(settings->strength, 0.5f);
        EXPECT_EQ(settings->ll.edgeGain, 0.1f);
        EXPECT_EQ(settings->ll.edgeThreshold, 0.2f);
        EXPECT_EQ(settings->ll.detail, 0.3f);
        EXPECT_EQ(settings->ll.samples, 7);
    }
    EXPECT_EQ(copied.cancelFlag, moved.cancelFlag) << "shared, so that the owner can still cancel";
}

TEST(Frames, AreEmptyAtFirstAndShareTheirPixelsWithCopies)
{
    HDRFrame frame;
    EXPECT_TRUE(frame.path.empty());
    EXPECT_FALSE(frame.image || frame.metadata || frame.rawMetadata);
    EXPECT_FALSE(frame.developed || frame.isGhostReference);
    EXPECT_EQ(frame.ev, 0.0f);
    EXPECT_EQ(frame.evExtra, 0.0f);
    frame.image = std::make_shared<_ImageData<PixelRGB<float>>>(_Size<int>(2, 2), ColorProfileType::melissaRGB());
    frame.evExtra = 3.0f;
    const HDRFrame copy = frame; // NOLINT(performance-unnecessary-copy-initialization): the copy is the test
    EXPECT_EQ(copy.image, frame.image);
    EXPECT_EQ(copy.evExtra, 3.0f);
}
