// The records and interfaces of image processors.

#include <orvo_extensions/document/image_detection.hpp>
#include <orvo_extensions/document/image_processor_interface.hpp>
#include <orvo_extensions/document/preset_util.hpp>
#include <orvo_extensions/document/processor_records.hpp>
#include <orvo_extensions/document/transformation.hpp>

#include <gmock/gmock.h>

namespace {

using namespace orvo;
using testing::ElementsAre;

TEST(ProcessConfig, StartsFromOneAndZeros)
{
    const ProcessConfig config;
    EXPECT_EQ(config.mode, 1);
    EXPECT_EQ(config.first, 0U);
    EXPECT_EQ(config.second, 0U);
    ProcessConfig copy{2, 3, 4};
    copy = config;
    EXPECT_EQ(copy.mode, 1);
    EXPECT_EQ(copy.second, 0U);
}

TEST(RenderResult, StartsEmptyAndSharesItsPictures)
{
    RenderResult result;
    EXPECT_EQ(result.image, nullptr);
    EXPECT_EQ(result.unedited, nullptr);
    EXPECT_FALSE(result.final);
    result.image = std::make_shared<_ImageData<PixelRGB<float>>>(_Size<int>(1, 1), nullptr);
    result.final = true;
    const RenderResult copy = result;
    EXPECT_EQ(copy.image, result.image);
    EXPECT_TRUE(copy.final);
    const RenderResult moved = std::move(result);
    EXPECT_EQ(moved.image, copy.image);
    EXPECT_EQ(moved.image.use_count(), 2);
}

TEST(RenderConfig, IsOffAtFirst)
{
    EXPECT_FALSE(RenderConfig().flag);
    static_assert(sizeof(RenderConfig) == sizeof(bool));
}

TEST(ImageHistogram, HasItsConstantsAndIsOneBlock)
{
    static_assert(ImageHistogram::_numBins == 256);
    static_assert(ImageHistogram::_countChannel == 4);
    static_assert(ImageHistogram::_kScale == 1);
    static_assert(ImageHistogram::_maxPixelValue == 255);
    static_assert(std::is_trivially_copyable_v<ImageHistogram>);
    ImageHistogram one;
    EXPECT_EQ(one.counts[3][255], 0U);
    one.counts[3][255] = 7;
    ImageHistogram other;
    other = one;
    one.counts[3][255] = 8;
    EXPECT_EQ(other.counts[3][255], 7U);
}

TEST(AffineTransformation, IsTheIdentityAtFirst)
{
    const AffineTransformation identity;
    EXPECT_THAT(identity.serialize(), ElementsAre(1.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f));
    EXPECT_EQ(identity.getType(), TransformationType::Affine);
    static_assert(std::is_base_of_v<Transformation, AffineTransformation>);
    static_assert(std::is_abstract_v<Transformation>);
}

TEST(AffineTransformation, SerializesInOrder)
{
    const AffineTransformation some(1, 2, 3, 4, 5, 6);
    AffineTransformation copy;
    copy = some;
    const Transformation& base = copy;
    EXPECT_THAT(base.serialize(), ElementsAre(1, 2, 3, 4, 5, 6));
}

class PlainProcessor : public ImageProcessorInterface, public iCacheProcessor
{
public:
    ~PlainProcessor() override = default;
};

class PlainDetection : public ImageDetectionPublicInterface
{};

TEST(ImageProcessorInterface, HasItsDefaultResults)
{
    PlainProcessor processor;
    ImageProcessorInterface& base = processor;
    EXPECT_EQ(base.getCurrentPersonIndex(), 0);
    EXPECT_EQ(base.getFirstCurrentEffectID(), "");
    base.resetAllLayers();
    EXPECT_EQ(base.getCurrentPersonIndex(), 0);
}

TEST(Interfaces, AreAbstractWithVirtualDestructors)
{
    static_assert(std::is_abstract_v<ImageProcessorInterface>);
    static_assert(std::has_virtual_destructor_v<ImageProcessorInterface>);
    static_assert(std::is_abstract_v<iCacheProcessor>);
    static_assert(std::has_virtual_destructor_v<iCacheProcessor>);
    static_assert(std::is_abstract_v<ImageDetectionPublicInterface>);
    static_assert(std::has_virtual_destructor_v<ImageDetectionPublicInterface>);
    const std::unique_ptr<iCacheProcessor> owner = std::make_unique<PlainProcessor>();
    const std::unique_ptr<ImageDetectionPublicInterface> detection = std::make_unique<PlainDetection>();
    EXPECT_NE(owner, nullptr);
    EXPECT_NE(detection, nullptr);
}

TEST(Handles, CanBeAssigned)
{
    static_assert(std::is_copy_assignable_v<PresetUtil> && std::is_move_assignable_v<PresetUtil>);
    static_assert(std::is_copy_assignable_v<StatesConverter> && std::is_move_assignable_v<StatesConverter>);
    PresetUtil preset;
    const PresetUtil otherPreset;
    EXPECT_EQ(&(preset = otherPreset), &preset);
    EXPECT_EQ(&(preset = PresetUtil()), &preset);
    StatesConverter states;
    const StatesConverter otherStates;
    EXPECT_EQ(&(states = otherStates), &states);
    EXPECT_EQ(&(states = StatesConverter()), &states);
}

} // namespace
