#include <orvo_extensions/operations.hpp>

#include <utility>

namespace opq {

Operation::Operation() = default;
Operation::Operation(std::string name) : identifier(std::move(name)) {}
Operation::~Operation() = default;

void Operation::cancel() { canceled.exchange(true); }

bool Operation::isCanceled() { return canceled; }

FunctionOperation::FunctionOperation(const std::function<void()>& work, std::string name)
    : Operation(std::move(name)), function(work)
{}
FunctionOperation::~FunctionOperation() = default;

void FunctionOperation::execute() { function(); }

RenderOperation::RenderOperation(const std::function<void()>& work, std::string name)
    : FunctionOperation(work, std::move(name))
{}
RenderOperation::~RenderOperation() = default;

ConfigOperation::ConfigOperation(const std::function<void()>& work) : function(work) {}
ConfigOperation::~ConfigOperation() = default;

void ConfigOperation::execute() { function(); }

void ConfigOperation::cancel() {}

} // namespace opq
