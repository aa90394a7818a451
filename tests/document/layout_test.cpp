// Libraries that are built separately rely on layouts. Needs the headers only, so that any compiler can run it.

#include "layout.hpp"

#include <orvo_extensions/document/adjustment_layer.hpp>
#include <orvo_extensions/document/base_layer.hpp>
#include <orvo_extensions/document/edit.hpp>
#include <orvo_extensions/document/effect.hpp>
#include <orvo_extensions/document/image_layer.hpp>
#include <orvo_extensions/document/image_provider.hpp>
#include <orvo_extensions/document/processor_records.hpp>
#include <orvo_extensions/document/resource_handler.hpp>
#include <orvo_extensions/document/transformation.hpp>
#include <orvo_extensions/masked_image.hpp>
#include <orvo_extensions/operations.hpp>
#include <orvo_extensions/preview.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <type_traits>
#include <vector>

using opq::Operation;
using orvo::AffineTransformation;
using orvo::Edit;
using orvo::EditCacheInfo;
using orvo::EditEffects;
using orvo::EditInfo;
using orvo::Effect;
using orvo::EffectCallContext;
using orvo::EffectMaskInfo;
using orvo::ImageProvider;
using orvo::Layer;
using orvo::PreviewContext;
using orvo::ProcessConfig;
using orvo::RenderedData;
using orvo::RenderResult;
using orvo::ResourceHandler;
using orvo::ToolDescription;
using test::entryOf;
using test::FieldOrder;
using test::fieldOrderOf;

template struct test::FieldOrder<ToolDescription, &ToolDescription::effectIDs, &ToolDescription::toolName>;
template struct test::FieldOrder<EditEffects, &EditEffects::parameters, &EditEffects::order, &EditEffects::masks>;
template struct test::FieldOrder<Edit, &Edit::tool, &Edit::effects, &Edit::mask, &Edit::noMask, &Edit::permanent,
                                 &Edit::enabled, &Edit::locked, &Edit::noEffectMask, &Edit::maskSetting, &Edit::name,
                                 &Edit::id, &Edit::parametersContext, &Edit::image, &Edit::prettyNames,
                                 &Edit::blendMode, &Edit::person, &Edit::processorLayerIndex, &Edit::developBase>;
template struct test::FieldOrder<EditInfo, &EditInfo::parameters, &EditInfo::mask, &EditInfo::hasMask,
                                 &EditInfo::enabled, &EditInfo::prettyNames, &EditInfo::locked, &EditInfo::permanent,
                                 &EditInfo::name>;
template struct test::FieldOrder<EffectMaskInfo, &EffectMaskInfo::identifier, &EffectMaskInfo::resource>;
template struct test::FieldOrder<EditCacheInfo, &EditCacheInfo::source, &EditCacheInfo::cache,
                                 &EditCacheInfo::sourceChanged>;
template struct test::FieldOrder<EffectCallContext, &EffectCallContext::source, &EffectCallContext::result,
                                 &EffectCallContext::unedited, &EffectCallContext::rect, &EffectCallContext::image,
                                 &EffectCallContext::blend, &EffectCallContext::cancelRun,
                                 &EffectCallContext::cancelEffect, &EffectCallContext::effect,
                                 &EffectCallContext::processed, &EffectCallContext::cache>;
template struct test::FieldOrder<ProcessConfig, &ProcessConfig::mode, &ProcessConfig::first, &ProcessConfig::second>;
template struct test::FieldOrder<RenderResult, &RenderResult::image, &RenderResult::unedited, &RenderResult::final>;
template struct test::FieldOrder<ImageProvider, &ImageProvider::held, &ImageProvider::path, &ImageProvider::opening,
                                 &ImageProvider::raw>;
template struct test::FieldOrder<ResourceHandler, &ResourceHandler::first, &ResourceHandler::second,
                                 &ResourceHandler::resources>;
template struct test::FieldOrder<AffineTransformation, &AffineTransformation::a, &AffineTransformation::b,
                                 &AffineTransformation::c, &AffineTransformation::d, &AffineTransformation::e,
                                 &AffineTransformation::f>;
template struct test::FieldOrder<Operation, &Operation::canceled, &Operation::identifier, &Operation::priority>;
template struct test::FieldOrder<PreviewContext, &PreviewContext::size, &PreviewContext::roi>;
template struct test::FieldOrder<RenderedData, &RenderedData::image, &RenderedData::mask, &RenderedData::option0,
                                 &RenderedData::option1, &RenderedData::context, &RenderedData::colorProfile,
                                 &RenderedData::option2, &RenderedData::isPlaceholder, &RenderedData::option3>;
template struct test::FieldOrder<Layer, &Layer::adaptor, &Layer::config>;
template struct test::FieldOrder<MaskedImage, &MaskedImage::tag, &MaskedImage::imageWidth, &MaskedImage::imageHeight,
                                 &MaskedImage::pixels>;
template struct test::FieldOrder<MaskedImageExt, &MaskedImageExt::points, &MaskedImageExt::runs>;

namespace {

// Counterexamples: the helper itself must distinguish orders.
struct Swapped
{
    int first = 0;
    int second = 0;
    virtual ~Swapped() = default;
    virtual void one() {}
    virtual void two() {}
    void plain() {}
};

TEST(Layout, FieldsAreInOrder)
{
    EXPECT_EQ(fieldOrderOf<ToolDescription>(), true);
    EXPECT_EQ(fieldOrderOf<EditEffects>(), true);
    EXPECT_EQ(fieldOrderOf<Edit>(), true);
    EXPECT_EQ(fieldOrderOf<EditInfo>(), true);
    EXPECT_EQ(fieldOrderOf<EffectMaskInfo>(), true);
    EXPECT_EQ(fieldOrderOf<EditCacheInfo>(), true);
    EXPECT_EQ(fieldOrderOf<EffectCallContext>(), true);
    EXPECT_EQ(fieldOrderOf<ProcessConfig>(), true);
    EXPECT_EQ(fieldOrderOf<RenderResult>(), true);
    EXPECT_EQ(fieldOrderOf<ImageProvider>(), true);
    EXPECT_EQ(fieldOrderOf<ResourceHandler>(), true);
    EXPECT_EQ(fieldOrderOf<AffineTransformation>(), true);
    EXPECT_EQ(fieldOrderOf<Operation>(), true);
    EXPECT_EQ(fieldOrderOf<PreviewContext>(), true);
    EXPECT_EQ(fieldOrderOf<RenderedData>(), true);
    EXPECT_EQ(fieldOrderOf<Layer>(), true);
    EXPECT_EQ(fieldOrderOf<MaskedImage>(), true);
    EXPECT_EQ(fieldOrderOf<MaskedImageExt>(), true);
}

TEST(Layout, HelpersDistinguishOrders)
{
    EXPECT_TRUE((FieldOrder<Swapped, &Swapped::first, &Swapped::second>::ascending()));
    EXPECT_FALSE((FieldOrder<Swapped, &Swapped::second, &Swapped::first>::ascending()));
    EXPECT_EQ(entryOf(&Swapped::one), 2);
    EXPECT_EQ(entryOf(&Swapped::two), 3);
    EXPECT_EQ(entryOf(&Swapped::plain), std::nullopt);
}

// Reaches the protected operation, and adds its own after the last.
struct EffectProbe : Effect
{
    using Effect::Effect;
    static auto amounts() { return &EffectProbe::amountParameters; }
    virtual void next() {}
};

TEST(Layout, OperationsOfEffectsHaveTheirSlots)
{
    const std::vector<std::optional<std::ptrdiff_t>> entries = {
        entryOf(&Effect::clearCache),
        entryOf(&Effect::preProcess),
        entryOf(&Effect::preRemove),
        entryOf(&Effect::computeSuggestedParameters),
        entryOf(&Effect::getLastProcessMask),
        entryOf(&Effect::getLastProcessMaskThumbnail),
        entryOf(&Effect::processImage),
        entryOf(&Effect::clone),
        entryOf(&Effect::setParametersDefault),
        entryOf(&Effect::removeMasks),
        entryOf(&Effect::setParameters),
        entryOf(&Effect::setParametersContext),
        entryOf(&Effect::scaleAmountParameters),
        entryOf(&Effect::isNeedProcessing),
        entryOf(&Effect::setAdditionalSettings),
        entryOf(&Effect::getInRectForOutRect),
        entryOf(&Effect::getOutRectForInRect),
        entryOf(&Effect::setContext),
        entryOf(&Effect::getMaskLayersIdentifiers),
        entryOf(&Effect::makeMaskLayerForIdentifier),
        entryOf(&Effect::setMaskLayerForIdentifier),
        entryOf(&Effect::isDependOfEffectMaskLayerMaskVisibility),
        entryOf(EffectProbe::amounts()),
        entryOf(&Effect::setEditInfo),
        entryOf(&Effect::checkAndSetEditInfoSource),
        entryOf(&Effect::freeEditInfoSource),
        entryOf(&Effect::getTransforms),
    };
    ASSERT_EQ(entries.size(), 27U); // and the destructor
    for (std::size_t i = 0; i < entries.size(); ++i)
        EXPECT_EQ(entries[i], static_cast<std::ptrdiff_t>(i) + 2) << "slot " << i + 2;
    EXPECT_EQ(entryOf(&EffectProbe::next), 29); // 28 slots, of which the destructor takes two entries
}

TEST(Layout, AccessorsOfEffectsAreNotVirtual)
{
    EXPECT_FALSE(entryOf(&Effect::getProperties));
    EXPECT_FALSE(entryOf(&Effect::getPrarmetersContext));
    EXPECT_FALSE(entryOf(&Effect::getSuggestedParameters));
    EXPECT_FALSE(entryOf(&Effect::parameters));
    EXPECT_FALSE(entryOf(&Effect::setPersonIndex));
    EXPECT_FALSE(entryOf(&Effect::markAsDevelopBase));
}

TEST(Layout, DestructorOfEffectsComesFirst)
{
    // The first entry that is not a destructor's is the third.
    EXPECT_EQ(entryOf(&Effect::clearCache), 2);
    EXPECT_TRUE(std::has_virtual_destructor_v<Effect>);
}

TEST(Layout, OperationsOfQueuesHaveTheirSlots)
{
    EXPECT_EQ(entryOf(&Operation::execute), 2); // after the two entries of the destructor
    EXPECT_EQ(entryOf(&Operation::cancel), 3);
    EXPECT_EQ(entryOf(&Operation::isCanceled), 4);
    EXPECT_FALSE(entryOf(&Operation::setIdentifier));
    EXPECT_TRUE(std::has_virtual_destructor_v<Operation>);
}

TEST(Layout, MaskedImagesHaveTheirSlots)
{
    EXPECT_EQ(entryOf(&MaskedImage::commit_changes), 2);
    EXPECT_EQ(entryOf(&MaskedImageExt::commit_changes), 2);
    EXPECT_TRUE(std::has_virtual_destructor_v<MaskedImage>);
}

TEST(Layout, PixelsAndRunsAreRecordsWithFixedOffsets)
{
    static_assert(offsetof(pixel_t, r) == 0 && offsetof(pixel_t, g) == 4 && offsetof(pixel_t, b) == 8);
    static_assert(offsetof(pixel_t, further) == 12 && sizeof(pixel_t::further) == 8);
    static_assert(offsetof(pixel_t, mask) == 20 && sizeof(pixel_t) == 24);
    static_assert(offsetof(rle_t, start) == 0 && offsetof(rle_t, length) == 4);
    static_assert(sizeof(rle_t::start) == 4 && sizeof(rle_t::length) == 2);
    static_assert(offsetof(walsh_t, values) == 0 && sizeof(walsh_t::values) == 128);
    static_assert(offsetof(walsh_t, small) == 128 && sizeof(walsh_t::small) == 4);
    static_assert(offsetof(walsh_t, first) == 136 && offsetof(walsh_t, second) == 144 && sizeof(walsh_t) == 152);
    static_assert(sizeof(ProcessConfig::mode) == 4 && sizeof(ProcessConfig::first) == 8);
    static_assert(sizeof(ProcessConfig::second) == 8);
    SUCCEED(); // checked by the compiler
}

} // namespace
