/// A layer that a processor applies.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/identifier.hpp>
#include <orvo_extensions/document/base_layer.hpp>
#include <orvo_extensions/document/processor_records.hpp>

#include <memory>

namespace orvo {

class ProcessorAdaptor;

/// Copies share the adaptor.
class ORVO_EXPORT Layer : public BaseLayer
{
public:
    explicit Layer(const ProcessConfig& config);
    ~Layer() override;
    Layer(const Layer&);
    Layer& operator=(const Layer&);

    /// The caller owns `processor`, which must outlive the layer or be replaced; null removes it.
    void setProcessorAdaptor(ProcessorAdaptor* processor) { adaptor = processor; }
    [[nodiscard]] ProcessorAdaptor* getProcessorAdaptor() const { return adaptor; }
    /// The adaptor's base identifier; empty without an adaptor.
    [[nodiscard]] std::shared_ptr<const Identifier> getBaseUUID() const;
    /// Forwards to the adaptor; does nothing without one.
    void setClearCache(bool clear);
    [[nodiscard]] const ProcessConfig& getProcessConfig() const { return config; }

private:
    ProcessorAdaptor* adaptor = nullptr;
    ProcessConfig config;
};

} // namespace orvo
