/// One step of a document: a tool, the parameters of its effects, and where they apply.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/identifier.hpp>
#include <orvo_extensions/document/edit_records.hpp>
#include <orvo_extensions/document/parameter.hpp>
#include <orvo_extensions/document/tool_description.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace orvo {

/// The effects of an edit, by their identifiers.
struct ORVO_EXPORT EditEffects
{
    static constexpr std::size_t kBuckets = 8; ///< initial; a tool has few effects

    std::map<std::string, Parameters> parameters;
    std::vector<std::string> order; ///< as the tool applies them
    std::unordered_map<std::string, EffectMaskInfo> masks{kBuckets};
};

/// A value. Copies are deep, except that they share the identifier, the context of the parameters and the stored
/// picture, which never change.
class ORVO_EXPORT Edit
{
public:
    /// Initially no effect of `tool` has parameters or a mask. `id`: the identity of this edit; may be empty.
    /// `permanent`: the edit cannot be removed. `locked`: it cannot be changed. `person`: the number of the person that
    /// it is limited to. `processorLayerIndex`: the layer that applies it. `developBase`: it is part of the development
    /// of the picture.
    Edit(const ToolDescription& tool, std::shared_ptr<const Identifier> id, bool permanent,
         std::shared_ptr<const EffectParametersContext> parametersContext, bool locked, int person,
         int processorLayerIndex, bool developBase);
    virtual ~Edit();
    Edit(const Edit&);
    Edit& operator=(const Edit&);
    Edit(Edit&&) noexcept;
    Edit& operator=(Edit&&) noexcept;

    /// Spelled as in the document libraries.
    [[nodiscard]] const ToolDescription& getToolDesription() const { return tool; }
    [[nodiscard]] const EditEffects& getEffects() const { return effects; }
    /// Both throw std::invalid_argument if the tool has no such effect.
    void setEffectParameters(const std::string& effectID, const Parameters& parameters);
    void setEffectMask(const std::string& effectID, const EffectMaskInfo& info);
    /// Removes the masks of all effects.
    void initEffectMasks();

    [[nodiscard]] const std::string& getMask() const { return mask; }
    void setMask(std::string resource) { mask = std::move(resource); }
    [[nodiscard]] bool hasMask() const { return !noMask; }
    /// Stores the negation of hasMask(): true means that there is no mask.
    void setMaskFlag(bool flag) { noMask = flag; }
    [[nodiscard]] bool isPermanentEdit() const { return permanent; }
    [[nodiscard]] bool getEnabled() const { return enabled; }
    void setEnabled(bool value) { enabled = value; }
    [[nodiscard]] bool getLocked() const { return locked; }
    void setLocked(bool value) { locked = value; }
    [[nodiscard]] bool hasEffectMask() const { return !noEffectMask; }
    /// Like setMaskFlag(), for hasEffectMask().
    void setEffectMaskFlag(bool flag) { noEffectMask = flag; }
    [[nodiscard]] const MaskSetting& getMaskSetting() const { return maskSetting; }
    void setMaskSetting(const MaskSetting& setting) { maskSetting = setting; }
    [[nodiscard]] const std::wstring& getName() const { return name; }
    void setName(std::wstring text) { name = std::move(text); }
    [[nodiscard]] const std::shared_ptr<const Identifier>& getID() const { return id; }
    [[nodiscard]] const std::shared_ptr<const EffectParametersContext>& getParametersContext() const
    {
        return parametersContext;
    }
    [[nodiscard]] const ImageDump& getImage() const { return image; }
    void setImageDump(ImageDump dump) { image = std::move(dump); }
    [[nodiscard]] const PrettyNames& getPrettyNames() const { return prettyNames; }
    void setPrettyNames(PrettyNames names) { prettyNames = std::move(names); }
    [[nodiscard]] BlendModeType getBlendMode() const { return blendMode; }
    void setBlendMode(BlendModeType mode) { blendMode = mode; }
    [[nodiscard]] int getPerson() const { return person; }
    [[nodiscard]] int getProcessorLayerIndex() const { return processorLayerIndex; }
    [[nodiscard]] bool isDevelopBase() const { return developBase; }

    /// These compare the name of the tool (ToolNames).
    [[nodiscard]] bool isCloneEdit() const;
    [[nodiscard]] bool isEraseEdit() const;

private:
    void initParameters();

    ToolDescription tool;
    EditEffects effects;
    std::string mask;
    bool noMask = true;
    bool permanent;
    bool enabled = true;
    bool locked;
    bool noEffectMask = true;
    MaskSetting maskSetting;
    std::wstring name;
    std::shared_ptr<const Identifier> id;
    std::shared_ptr<const EffectParametersContext> parametersContext;
    ImageDump image;
    PrettyNames prettyNames;
    BlendModeType blendMode = BlendModeType::Normal;
    std::int32_t person;
    std::int32_t processorLayerIndex;
    bool developBase;
};

} // namespace orvo
