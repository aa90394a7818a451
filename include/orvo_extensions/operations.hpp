/// The units of work of a queue.
///
/// One thread creates an operation; the worker of an opq::OperationQueue runs it once and releases it. Only the
/// cancelled flag is shared between threads; name and function are set before the operation is added.
///
/// Example:
///   const auto render = std::make_shared<opq::FunctionOperation>([view] { draw(view); }, "render");
///   queue.addOperation(render);
///   render->cancel(); // superseded by a newer one; no effect once it runs
#pragma once

#include <orvo_common/export.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

namespace opq {

/// Held by std::shared_ptr, by the queue and by callers that may cancel it.
class ORVO_EXPORT Operation
{
public:
    virtual ~Operation();
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    /// The work. Called at most once, by the queue.
    virtual void execute() = 0;
    /// Makes the queue skip the operation. Does not wait, and does not interrupt an operation that runs already.
    /// From any thread.
    virtual void cancel();
    /// From any thread.
    [[nodiscard]] virtual bool isCanceled();

    /// The name for log lines, initially empty. Set it before adding the operation.
    void setIdentifier(const std::string& name) { identifier = name; }
    [[nodiscard]] const std::string& getIdentifier() const { return identifier; }

protected:
    Operation();
    explicit Operation(std::string identifier);

    std::atomic<bool> canceled{false};
    std::string identifier;
    std::int32_t priority = 1; ///< for the queue's owner; operations run in the order they were added
};

/// Calls a function; an empty one raises std::bad_function_call.
class ORVO_EXPORT FunctionOperation : public Operation
{
public:
    FunctionOperation(const std::function<void()>& function, std::string identifier);
    ~FunctionOperation() override;
    void execute() override;

private:
    std::function<void()> function;
};

/// A render. The queue's owner needs only the latest one.
class ORVO_EXPORT RenderOperation final : public FunctionOperation
{
public:
    RenderOperation(const std::function<void()>& function, std::string identifier);
    ~RenderOperation() override;

protected:
    bool isUnderlay = false; ///< for the queue's owner
};

/// A change of settings. It cannot be cancelled, since later operations rely on it.
class ORVO_EXPORT ConfigOperation final : public Operation
{
public:
    /// An empty function raises std::bad_function_call when it runs.
    explicit ConfigOperation(const std::function<void()>& function);
    ~ConfigOperation() override;
    void execute() override;
    void cancel() override;

private:
    std::function<void()> function;
};

} // namespace opq
