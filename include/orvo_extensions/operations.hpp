/// The units of work of a queue.
///
/// An operation is made by one thread, runs once on the worker of an opq::OperationQueue, and is released. All that is
/// read and written across threads is whether it is cancelled; name and function are set before it is added.
///
/// Example:
///   const auto render = std::make_shared<opq::FunctionOperation>([view] { draw(view); }, "render");
///   queue.addOperation(render);
///   render->cancel(); // a newer one makes it superfluous; without effect once it runs
#pragma once

#include <orvo_common/export.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

namespace opq {

/// Held by std::shared_ptr: by the queue, and by whoever may want to cancel it.
class ORVO_EXPORT Operation
{
public:
    virtual ~Operation();
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    /// The work. Called at most once, by the queue.
    virtual void execute() = 0;
    /// Makes the queue leave the operation out. Does not wait and interrupts nothing: one that runs goes on to its end.
    /// From any thread.
    virtual void cancel();
    /// From any thread.
    [[nodiscard]] virtual bool isCanceled();

    /// The name, for log lines; empty at first. To be set before the operation is added.
    void setIdentifier(const std::string& name) { identifier = name; }
    [[nodiscard]] const std::string& getIdentifier() const { return identifier; }

protected:
    Operation();
    explicit Operation(std::string identifier);

    std::atomic<bool> canceled{false};
    std::string identifier;
    std::int32_t priority = 1; ///< for the queue's owner; operations run in the order in which they are added
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

/// A render, of which a queue's owner needs no more than the latest.
class ORVO_EXPORT RenderOperation final : public FunctionOperation
{
public:
    RenderOperation(const std::function<void()>& function, std::string identifier);
    ~RenderOperation() override;

protected:
    bool isUnderlay = false; ///< for the queue's owner
};

/// A change of settings, on which all that is added after it relies: it cannot be cancelled.
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
