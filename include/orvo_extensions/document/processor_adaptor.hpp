/// A layer's access to the processor that it belongs to.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/identifier.hpp>
#include <orvo_core/image_data.hpp>

#include <map>
#include <memory>
#include <string>
#include <utility>

namespace orvo {

/// Copies have their own table and share its masks.
class ORVO_EXPORT ProcessorAdaptor
{
public:
    /// Keyed by the erase that they belong to.
    using EraseMasks = std::map<std::string, std::shared_ptr<const MaskImage>>;

    /// `base`: the identity of the processed picture; may be empty.
    explicit ProcessorAdaptor(std::shared_ptr<const Identifier> base);
    virtual ~ProcessorAdaptor();
    ProcessorAdaptor(const ProcessorAdaptor&);
    ProcessorAdaptor& operator=(const ProcessorAdaptor&);

    [[nodiscard]] const std::shared_ptr<const Identifier>& getBaseUUID() const { return baseUUID; }
    /// Makes the next run ignore cached results.
    void setClearCache(bool clear) { clearCache = clear; }
    [[nodiscard]] bool isClearCache() const { return clearCache; }
    /// Returns a copy of the table.
    [[nodiscard]] EraseMasks getEraseMasks() const { return eraseMasks; }
    void setEraseMask(const std::string& key, std::shared_ptr<const MaskImage> mask)
    {
        eraseMasks[key] = std::move(mask);
    }

protected:
    /// The visible part of a mask in that view. Here: empty.
    [[nodiscard]] virtual std::shared_ptr<_ImageData<float>> getMaskPreview(const ResizeParameters& view);

private:
    std::shared_ptr<const Identifier> baseUUID;
    EraseMasks eraseMasks;
    bool clearCache = false;
};

} // namespace orvo
