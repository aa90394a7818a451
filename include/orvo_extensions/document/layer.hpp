/// A layer that a processor applies.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/identifier.hpp>
#include <orvo_extensions/document/base_layer.hpp>
#include <orvo_extensions/document/processor_records.hpp>

#include <memory>

namespace orvo {

class ProcessorAdaptor;

/// Copies belong to the same adaptor.
class ORVO_EXPORT Layer : public BaseLayer
{
public:
    explicit Layer(const ProcessConfig& config);
    ~Layer() override;
    Layer(const Layer&);
    Layer& operator=(const Layer&);

    /// `processor` is the caller's and outlives the layer, or is taken away by a null pointer.
    void setProcessorAdaptor(ProcessorAdaptor* processor) { adaptor = processor; }
    [[nodiscard]] ProcessorAdaptor* getProcessorAdaptor() const { return adaptor; }
    /// The adaptor's; empty without an adaptor.
    [[nodiscard]] std::shared_ptr<const Identifier> getBaseUUID() const;
    /// Goes to the adaptor; without one nothing happens.
    void setClearCache(bool clear);
    [[nodiscard]] const ProcessConfig& getProcessConfig() const { return config; }

private:
    ProcessorAdaptor* adaptor = nullptr;
    ProcessConfig config;
};

} // namespace orvo
