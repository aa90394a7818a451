/// Interfaces of the processor that runs a document's layers.
#pragma once

#include <orvo_common/export.hpp>

#include <string>

namespace orvo {

/// Abstract. The library that runs layers derives from it.
class ORVO_EXPORT ImageProcessorInterface
{
public:
    virtual ~ImageProcessorInterface() = 0;
    /// The number of the person that edits are limited to. Here: 0.
    [[nodiscard]] virtual int getCurrentPersonIndex() const;
    /// The identifier of the effect that the user works with. Here: empty.
    [[nodiscard]] virtual std::string getFirstCurrentEffectID() const;
    /// Resets all layers to the state before any edit. Here: does nothing.
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
