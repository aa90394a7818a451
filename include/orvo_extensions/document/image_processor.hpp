/// What runs a document's layers, as seen from outside.
#pragma once

#include <orvo_common/export.hpp>

#include <cstdint>
#include <string>

namespace orvo {

/// Which pixels a view marks. Other values belong to whoever draws the marks.
enum class OverlayPixelsType : std::int32_t
{
    None = 0,
};

/// Abstract. Whoever runs layers derives from it and adds what running needs.
class ORVO_EXPORT ImageProcessorInterface
{
public:
    virtual ~ImageProcessorInterface() = 0;
    /// The person that edits are limited to. Here: 0.
    [[nodiscard]] virtual int getCurrentPersonIndex() const;
    /// The effect that the user is at. Here: empty.
    [[nodiscard]] virtual std::string getFirstCurrentEffectID() const;
    /// All layers become what they were before any edit. Here: nothing.
    virtual void resetAllLayers();

protected:
    ImageProcessorInterface() = default;
    ImageProcessorInterface(const ImageProcessorInterface&) = default;
    ImageProcessorInterface& operator=(const ImageProcessorInterface&) = default;
};

/// Marks processors that cache. Abstract.
class ORVO_EXPORT iCacheProcessor
{
public:
    virtual ~iCacheProcessor() = 0;

protected:
    iCacheProcessor() = default;
    iCacheProcessor(const iCacheProcessor&) = default;
    iCacheProcessor& operator=(const iCacheProcessor&) = default;
};

} // namespace orvo
