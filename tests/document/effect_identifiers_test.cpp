// The vocabulary of stored documents: one changed letter makes them unreadable.

#include <orvo_extensions/effect_identifiers.hpp>

#include <gmock/gmock.h>

namespace {

using namespace orvo;
using testing::ElementsAre;
using testing::Pair;

// Built before main(), in any order: constants and lists must work in initialisers of other files.
const std::string kBuiltEarly = std::string(ToolNames::kClone) + EffectIdentifiers::defaultEffects().back();

TEST(EffectIdentifiers, HaveTheirValues)
{
    using namespace EffectIdentifiers;
    EXPECT_EQ(kDeblurAI, "ORVODeblurAIEffect");
    EXPECT_EQ(kDenoiseAI, "ORVODenoiseAIEffect");
    EXPECT_EQ(kDenoiseAIRaw, "ORVODenoiseAIRawEffect");
    EXPECT_EQ(kLensCorrection, "ORVOLensCorrectionEffect");
    EXPECT_EQ(kDevelopCommon, "ORVODevelopCommonEffectID");
    EXPECT_EQ(kSharpen, "ORVOSharpenEffect");
    EXPECT_EQ(kDenoiseLaplacian, "ORVODenoiseLaplacianEffect");
    EXPECT_EQ(kBlackWhite, "ORVOBlackWhiteEffect");
    EXPECT_EQ(kCurve, "ORVOCurveEffect");
    EXPECT_EQ(kSaturation, "ORVOSaturationEffect");
    EXPECT_EQ(kVibrance, "ORVOVibranceEffect");
    EXPECT_EQ(kRawDevelop, "ORVORawDevelopEffect");
}

TEST(EffectIdentifiers, ListsHaveTheirOrder)
{
    using namespace EffectIdentifiers;
    EXPECT_THAT(denoiseAI(), ElementsAre("ORVODenoiseAIEffect"));
    EXPECT_THAT(denoiseAIRaw(), ElementsAre("ORVODenoiseAIRawEffect"));
    EXPECT_THAT(defaultEffects(), ElementsAre("ORVOLensCorrectionEffect", "ORVODevelopCommonEffectID",
                                              "ORVOSharpenEffect", "ORVODenoiseLaplacianEffect", "ORVOBlackWhiteEffect",
                                              "ORVOCurveEffect", "ORVOSaturationEffect", "ORVOVibranceEffect"));
    EXPECT_THAT(defaultEffectsRaw(),
                ElementsAre("ORVOLensCorrectionEffect", "ORVORawDevelopEffect", "ORVODenoiseLaplacianEffect",
                            "ORVOCurveEffect", "ORVOBlackWhiteEffect", "ORVOSaturationEffect", "ORVOVibranceEffect",
                            "ORVOSharpenEffect"));
}

TEST(EffectIdentifiers, ListsHaveTheirNames)
{
    using namespace EffectIdentifiers;
    EXPECT_EQ(kDenoiseAIList, "DenoiseAI");
    EXPECT_EQ(kDenoiseAIRawList, "DenoiseAIRaw");
    EXPECT_EQ(kDefaultEffectsList, "DefaultEffects");
    EXPECT_EQ(kDefaultEffectsRawList, "DefaultEffectsRAW");
}

TEST(ToolNames, HaveTheirValues)
{
    using namespace ToolNames;
    EXPECT_EQ(kClone, "CLONE");
    EXPECT_EQ(kErase, "ERASE");
    EXPECT_EQ(kPreset, "PRESET");
    EXPECT_EQ(kAIAdjustments, "AI Adjustments");
    EXPECT_EQ(kEraseMasked, "ERASE_MASKED");
    EXPECT_EQ(kEraseWires, "ERASE_WIRES");
    EXPECT_EQ(kEraseDust, "ERASE_DUST");
    EXPECT_EQ(kRestoreMasked, "RESTORE_MASKED");
    EXPECT_EQ(kCloneActions, "CLONE_ACTIONS");
    EXPECT_EQ(kCloneGeometry, "CLONE_GEOMETRY");
    EXPECT_EQ(kSetClonePoint, "SET_CLONE_POINT");
    EXPECT_EQ(kSetStampPoint, "SET_STAMP_POINT");
    EXPECT_EQ(kCloneStroke, "CLONE_STROKE");
    EXPECT_EQ(kCloneStartStroke, "CLONE_START_STROKE");
    EXPECT_EQ(kCloneFinishStroke, "CLONE_FINISH_STROKE");
    EXPECT_EQ(kNonDestructiveEdit, "NonDestructiveEdit");
    EXPECT_EQ(kSupportDestructiveImage, "SupportDestructiveImage");
}

TEST(ModelNames, TableHasItsNumbers)
{
    EXPECT_THAT(ModelNames::table(),
                ElementsAre(Pair(0, "denoised_image"), Pair(1, "EMotionBlurNormal"), Pair(2, "EMotionBlurHard"),
                            Pair(3, "EMotionBlurFull"), Pair(7, "EDeblurUniversalNormal"),
                            Pair(8, "EDeblurUniversalHard"), Pair(9, "EDeblurUniversalFull"),
                            Pair(10, "EDeblurUniversalNormalFaceEnhance"), Pair(11, "EDeblurUniversalHardFaceEnhance"),
                            Pair(12, "EDeblurUniversalFullFaceEnhance"), Pair(13, "EMotionBlurNormalFaceEnhance"),
                            Pair(14, "EMotionBlurHardFaceEnhance"), Pair(15, "EMotionBlurFullFaceEnhance")));
}

TEST(ModelNames, UnusedNumbersHaveNoName)
{
    static_assert(ModelNames::nameOf(9) == "EDeblurUniversalFull");
    for (const int number : {-1, 4, 5, 6, 16})
        EXPECT_EQ(ModelNames::nameOf(number), "") << number;
}

TEST(ResourceKeys, HaveTheirValues)
{
    using namespace ResourceKeys;
    EXPECT_THAT((std::vector<std::string_view>{kMask, kTiledMask, kBaseTiledImageData, kMaskState, kCloneState,
                                               kDrawingState, kEraseState}),
                ElementsAre("msk", "tmsk", "btid", "mskstt", "clnstt", "drwstt", "erstt"));
    EXPECT_EQ(kTiledImageDataCompressed, "orvoTiledImageDataCompressedData");
    EXPECT_EQ(kLogFile, "log_orvo.txt");
    EXPECT_EQ(kGeneratedResponsePrefix, "data:image/png;base64,");
}

TEST(EffectIdentifiers, ServeInitialisersOfOtherFiles) { EXPECT_EQ(kBuiltEarly, "CLONEORVOVibranceEffect"); }

} // namespace
