/// The units of work of a queue.
///
/// One thread creates an operation, it runs once on the worker of an opq::OperationQueue, and is released. Threads
/// share only whether it is cancelled; name and function are set before it is added.
///
/// Example:
///   const auto render = std::make_shared<opq::FunctionOperation>([view] { draw(view); }, "render");
///   queue.addOperation(render);
///   render->cancel(); // replaced by a newer one; no effect once it runs
#pragma once

#include <orvo_common/export.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

namespace opq {

/// Owned by std::shared_ptr, by the queue and by callers that may cancel it.
class ORVO_EXPORT Operation
{
public:
    virtual ~Operation();
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    /// The work. Called at most once, by the queue.
    virtual void execute() = 0;
    /// Makes the queue skip the operation. Does not wait, and does not interrupt an operation that runs. From any
    /// thread.
    virtual void cancel();
    /// From any thread.
    [[nodiscard]] virtual bool isCanceled();

    /// The name for log lines; initially empty. Set it before the operation is added.
    void setIdentifier(const std::string& name) { identifier = name; }
    [[nodiscard]] const std::string& getIdentifier() const { return identifier; }

protected:
    Operation();
    explicit Operation(std::string identifier);

    std::atomic<bool> canceled{false};
    std::string identifier;
    std::int32_t priority = 1; ///< for the owner of the queue; the queue runs operations in the order of addition
};

/// Calls a function; an empty one throws std::bad_function_call.
class ORVO_EXPORT FunctionOperation : public Operation
{
public:
    FunctionOperation(const std::function<void()>& function, std::string identifier);
    ~FunctionOperation() override;
    void execute() override;

private:
    std::function<void()> function;
};

/// A render, of which the owner of the queue needs only the latest.
class ORVO_EXPORT RenderOperation final : public FunctionOperation
{
public:
    RenderOperation(const std::function<void()>& function, std::string identifier);
    ~RenderOperation() override;

protected:
    bool isUnderlay = false; ///< for the owner of the queue
};

/// A change of settings that later operations rely on, so it cannot be cancelled.
class ORVO_EXPORT ConfigOperation final : public Operation
{
public:
    /// An empty function throws std::bad_function_call when the operation runs.
    explicit ConfigOperation(const std::function<void()>& function);
    ~ConfigOperation() override;
    void execute() override;
    void cancel() override;

private:
    std::function<void()> function;
};

} // namespace opq
