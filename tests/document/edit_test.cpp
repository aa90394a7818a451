// Tools, edits and collections of them as plain data.

#include <orvo_extensions/document/edit.hpp>
#include <orvo_extensions/document/edit_collection.hpp>

#include <gmock/gmock.h>

#include <limits>
#include <stdexcept>

namespace {

using namespace orvo;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;

const std::vector<std::string> kEffects = {"b", "a"};

Edit editOf(const std::string& toolName, std::shared_ptr<const Identifier> id = {})
{
    return {ToolDescription(kEffects, toolName), std::move(id), false, nullptr, false, 0, 0, false};
}

TEST(ToolDescription, ReturnsCopies)
{
    const ToolDescription tool(kEffects, "EXPOSURE");
    EXPECT_THAT(tool.getEffectIDs(), ElementsAre("b", "a"));
    EXPECT_EQ(tool.getToolName(), "EXPOSURE");
    static_assert(std::is_same_v<decltype(tool.getEffectIDs()), std::vector<std::string>>);
    static_assert(std::is_same_v<decltype(tool.getToolName()), std::string>);
    static_assert(std::has_virtual_destructor_v<ToolDescription>);
    auto ids = tool.getEffectIDs();
    ids.clear();
    EXPECT_EQ(tool.getEffectIDs(), kEffects);
}

TEST(Edit, StartsFromItsDefaults)
{
    const Edit edit = editOf("CURVE");
    EXPECT_EQ(edit.getMask(), "");
    EXPECT_FALSE(edit.hasMask());
    EXPECT_TRUE(edit.getEnabled());
    EXPECT_FALSE(edit.hasEffectMask());
    EXPECT_EQ(edit.getMaskSetting(), MaskSetting());
    EXPECT_EQ(edit.getMaskSetting().bits, 0U);
    EXPECT_EQ(edit.getName(), L"");
    EXPECT_TRUE(edit.getImage().empty());
    EXPECT_THAT(edit.getPrettyNames(), IsEmpty());
    EXPECT_EQ(static_cast<int>(edit.getBlendMode()), 0);
    static_assert(std::has_virtual_destructor_v<Edit>);
}

TEST(Edit, TakesTheRestFromItsConstructor)
{
    const auto id = UUIDGenerator()();
    const auto context = std::make_shared<const EffectParametersContext>();
    const Edit first(ToolDescription(kEffects, "CURVE"), id, true, context, false, 3, 5, false);
    EXPECT_EQ(first.getToolDesription().getToolName(), "CURVE");
    EXPECT_EQ(first.getID(), id);
    EXPECT_TRUE(first.isPermanentEdit());
    EXPECT_EQ(first.getParametersContext(), context);
    EXPECT_FALSE(first.getLocked());
    EXPECT_EQ(first.getPerson(), 3);
    EXPECT_EQ(first.getProcessorLayerIndex(), 5);
    EXPECT_FALSE(first.isDevelopBase());

    const Edit second(ToolDescription(kEffects, "CURVE"), id, false, context, true, 7, -1, true);
    EXPECT_FALSE(second.isPermanentEdit());
    EXPECT_TRUE(second.getLocked());
    EXPECT_EQ(second.getPerson(), 7);
    EXPECT_EQ(second.getProcessorLayerIndex(), -1);
    EXPECT_TRUE(second.isDevelopBase());
}

TEST(Edit, ReturnsTheValuesSet)
{
    Edit edit = editOf("CURVE");
    edit.setMask("mask.bin");
    edit.setEnabled(false);
    edit.setLocked(true);
    edit.setMaskSetting({42});
    edit.setName(L"Sky");
    const auto pixels = std::make_shared<_ImageData<PixelRGB<float>>>(_Size<int>(1, 1), nullptr);
    edit.setImageDump({pixels});
    edit.setPrettyNames({{"a", L"Curve"}});
    edit.setBlendMode(BlendModeType(4));
    EXPECT_EQ(edit.getMask(), "mask.bin");
    EXPECT_FALSE(edit.getEnabled());
    EXPECT_TRUE(edit.getLocked());
    EXPECT_EQ(edit.getMaskSetting().bits, 42U);
    EXPECT_EQ(edit.getName(), L"Sky");
    EXPECT_EQ(edit.getImage().pixels, pixels);
    EXPECT_EQ(edit.getPrettyNames(), (PrettyNames{{"a", L"Curve"}}));
    EXPECT_EQ(edit.getBlendMode(), BlendModeType(4));
}

TEST(Edit, MaskFlagsAreNegatedOnlyByTheirGetters)
{
    Edit edit = editOf("CURVE");
    edit.setMaskFlag(false);
    EXPECT_TRUE(edit.hasMask());
    EXPECT_FALSE(edit.hasEffectMask());
    edit.setEffectMaskFlag(false);
    EXPECT_TRUE(edit.hasEffectMask());
    edit.setMaskFlag(true);
    EXPECT_FALSE(edit.hasMask());
    EXPECT_TRUE(edit.hasEffectMask());
    edit.setEffectMaskFlag(true);
    EXPECT_FALSE(edit.hasEffectMask());
}

TEST(Edit, KnowsItsEffects)
{
    Edit edit = editOf("CURVE");
    EXPECT_THAT(edit.getEffects().order, ElementsAre("b", "a"));
    EXPECT_THAT(edit.getEffects().parameters, ElementsAre(Key("a"), Key("b")));
    EXPECT_EQ(edit.getEffects().masks.size(), 2U);
    EXPECT_GE(edit.getEffects().masks.bucket_count(), 8U);
    EXPECT_EQ(edit.getEffects().masks.max_load_factor(), 1.0f);

    edit.setEffectParameters("a", Parameters({{"amount", 2.0f}}));
    edit.setEffectMask("b", {"id", "file"});
    EXPECT_EQ(edit.getEffects().parameters.at("a").value("amount", 0.0f), 2.0f);
    EXPECT_FALSE(edit.getEffects().masks.at("b").empty());
    EXPECT_THROW(edit.setEffectParameters("c", {}), std::invalid_argument);
    EXPECT_THROW(edit.setEffectMask("c", {}), std::invalid_argument);

    edit.initEffectMasks();
    EXPECT_TRUE(edit.getEffects().masks.at("b").empty());
    EXPECT_EQ(edit.getEffects().masks.size(), 2U);
    EXPECT_EQ(edit.getEffects().parameters.at("a").value("amount", 0.0f), 2.0f);
}

TEST(Edit, KnowsCloneAndEraseByTheWholeName)
{
    EXPECT_TRUE(editOf("CLONE").isCloneEdit());
    EXPECT_FALSE(editOf("CLONE").isEraseEdit());
    EXPECT_TRUE(editOf("ERASE").isEraseEdit());
    EXPECT_FALSE(editOf("ERASE").isCloneEdit());
    for (const char* const name : {"", "CLON", "CLONE_STROKE", "clone", "ERASE_MASKED", "ERAS", "erase"}) {
        EXPECT_FALSE(editOf(name).isCloneEdit()) << name;
        EXPECT_FALSE(editOf(name).isEraseEdit()) << name;
    }
    EXPECT_FALSE(editOf(std::string("ERASE\0", 6)).isEraseEdit());
}

TEST(Edit, CopiesAreDeepExceptForWhatNeverChanges)
{
    Edit original(ToolDescription(kEffects, "CURVE"), UUIDGenerator()(), false,
                  std::make_shared<const EffectParametersContext>(), false, 0, 0, false);
    original.setImageDump({std::make_shared<_ImageData<PixelRGB<float>>>(_Size<int>(1, 1), nullptr)});
    Edit copy = original;
    copy.setEffectParameters("a", Parameters({{"amount", 2.0f}}));
    copy.setEffectMask("a", {"id", "file"});
    copy.setPrettyNames({{"a", L"Curve"}});
    copy.setName(L"Copy");
    EXPECT_THAT(original.getEffects().parameters.at("a").list(), IsEmpty());
    EXPECT_TRUE(original.getEffects().masks.at("a").empty());
    EXPECT_THAT(original.getPrettyNames(), IsEmpty());
    EXPECT_EQ(original.getName(), L"");
    EXPECT_EQ(copy.getID(), original.getID());
    EXPECT_EQ(copy.getParametersContext(), original.getParametersContext());
    EXPECT_EQ(copy.getImage().pixels, original.getImage().pixels);
}

TEST(EditCollection, NoEditIsTheLargestIndex)
{
    static_assert(std::is_same_v<decltype(EditCollection::NoEdit), const std::uint64_t>);
    EXPECT_EQ(EditCollection::NoEdit, std::numeric_limits<std::uint64_t>::max());
    static_assert(std::has_virtual_destructor_v<EditCollection>);
}

TEST(EditCollection, KeepsEditsInOrder)
{
    EditCollection edits;
    EXPECT_EQ(edits.size(), 0U);
    const auto id = UUIDGenerator()();
    EXPECT_EQ(edits.append(editOf("FIRST")), 0U);
    EXPECT_EQ(edits.append(editOf("SECOND", id)), 1U);
    EXPECT_EQ(edits.at(1).getToolDesription().getToolName(), "SECOND");
    std::vector<unsigned char> bytes;
    id->serialize(bytes);
    EXPECT_EQ(edits.indexOf(Identifier::deserialize(bytes)), 1U) << "identities are compared by value";
    EXPECT_EQ(edits.indexOf(UUIDGenerator()()), EditCollection::NoEdit);
    EXPECT_EQ(edits.indexOf(nullptr), EditCollection::NoEdit);
    EXPECT_THROW(static_cast<void>(edits.at(EditCollection::NoEdit)), std::out_of_range);
}

TEST(EditCollection, CopiesHaveTheirOwnEdits)
{
    EditCollection edits;
    edits.append(editOf("FIRST"));
    EditCollection copy = edits;
    copy.at(0).setName(L"Copy");
    copy.append(editOf("SECOND"));
    EXPECT_EQ(edits.size(), 1U);
    EXPECT_EQ(edits.at(0).getName(), L"");
    edits = copy;
    EXPECT_EQ(edits.size(), 2U);
}

TEST(EditInfo, StartsEmpty)
{
    const EditInfo info;
    EXPECT_FALSE(info);
    EXPECT_TRUE(info.isResetState());
    EXPECT_EQ(info.mask, "");
    EXPECT_FALSE(info.hasMask);
    EXPECT_TRUE(info.enabled);
    EXPECT_THAT(info.prettyNames, IsEmpty());
    EXPECT_FALSE(info.locked);
    EXPECT_FALSE(info.permanent);
    EXPECT_EQ(info.name, L"");
}

TEST(EditInfo, IsValidOnceItHasParameters)
{
    EditInfo info;
    info.mask = "mask";
    info.name = L"name";
    EXPECT_FALSE(info);
    info.parameters = {{"amount", 0.0f}};
    EXPECT_TRUE(info);
    EXPECT_FALSE(info.isResetState());
    EditInfo copy = info;
    copy.parameters.clear();
    EXPECT_TRUE(info);
    const EditInfo moved = std::move(info);
    EXPECT_TRUE(moved);
    EXPECT_EQ(moved.name, L"name");
}

TEST(EffectMaskInfo, NeedsBothTexts)
{
    EXPECT_TRUE(EffectMaskInfo().empty());
    EXPECT_TRUE((EffectMaskInfo{"id", ""}).empty());
    EXPECT_TRUE((EffectMaskInfo{"", "file"}).empty());
    EXPECT_FALSE((EffectMaskInfo{"id", "file"}).empty());
}

TEST(Parameters, KeepOneValueForEachName)
{
    Parameters parameters({{"b", 1.0f}, {"a", 2.0f}, {"b", 3.0f}});
    EXPECT_THAT(parameters.list(), ElementsAre(Parameter{"b", 3.0f}, Parameter{"a", 2.0f}));
    parameters.set({"a", 4.0f});
    parameters.set({"c", 5.0f});
    EXPECT_THAT(parameters.list(), ElementsAre(Parameter{"b", 3.0f}, Parameter{"a", 4.0f}, Parameter{"c", 5.0f}));
    EXPECT_EQ(parameters.value("c", 0.0f), 5.0f);
    EXPECT_EQ(parameters.value("d", -1.0f), -1.0f);
}

} // namespace
