/// Why an operation gave nothing, as a value.
///
/// Whoever fails says kind, file and sentence once: by throwing FailureError or, where the answer is an empty result,
/// by details::stateFailure(). The exported call that this ends keeps it for lastFailure() of its thread.
#pragma once

#include <orvo_common/export.hpp>

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvo {

enum class FailureKind
{
    Cancelled,         ///< the caller stopped it
    UnreadableFile,    ///< missing, damaged, or nothing that is read
    UnfittingPictures, ///< readable, but not fit for what was asked: of different sizes, too large, without overlap
    OutOfMemory,       ///< there is not enough memory
    FullDisk,          ///< there is no space left for the file, or a quota is used up
    Internal,          ///< anything else: a setting out of range, a folder that takes no files, an error of a library
};

struct Failure
{
    FailureKind kind = FailureKind::Internal;
    std::filesystem::path file; ///< as the caller named it; empty: the failure is about no single file
    std::string sentence;       ///< one line without a full stop, which does not repeat `file`

    bool operator==(const Failure&) const = default;
};

/// "photo.jpg: the file is empty", or the sentence alone if there is no file.
[[nodiscard]] ORVO_EXPORT std::string describe(const Failure& failure);

/// Why the last exported call of this thread gave nothing, or left a file out; empty if nothing failed. It is cleared
/// when an exported call begins and set when it ends; calls of other threads do not touch it. Exported calls are the
/// operations of include/orvo_extensions, ImageReader's, ImageLoader's, upscaleX(), upscaledSize() and writeImage().
/// A call that throws sets it, too.
[[nodiscard]] ORVO_EXPORT std::optional<Failure> lastFailure();

/// What the last exported call of this thread warned about although it went on: lines of its log, in their order, each
/// once. Cleared and set as lastFailure() is.
[[nodiscard]] ORVO_EXPORT std::vector<std::string> lastWarnings();

/// The exception as which a failure travels. what() is describe().
class ORVO_EXPORT FailureError : public std::runtime_error
{
public:
    explicit FailureError(Failure failure);
    [[nodiscard]] const Failure& failure() const noexcept { return *value; }

private:
    explicit FailureError(std::shared_ptr<const Failure> completed);
    std::shared_ptr<const Failure> value; // copies of an exception must not throw
};

/// FullDisk for ENOSPC and EDQUOT, OutOfMemory for ENOMEM, else `otherwise`.
[[nodiscard]] ORVO_EXPORT FailureKind kindOfSystemError(int code, FailureKind otherwise);

/// What a caller's cancel is reported as.
[[nodiscard]] ORVO_EXPORT Failure cancelledFailure();

/// The failure that the exception being handled stands for: that of a FailureError, OutOfMemory for std::bad_alloc,
/// FullDisk for a system error that says so, else Internal with the exception's text. To be called in a handler.
[[nodiscard]] ORVO_EXPORT Failure failureOfException() noexcept;

namespace details {

/// States why the result that follows is empty. The first statement of a call stands, but a cancel replaces it:
/// whatever fails after a cancel is its consequence. Has no effect outside of a call.
ORVO_EXPORT void stateFailure(Failure failure) noexcept;
/// Restates what the call that has just ended failed from; `otherwise` if that said nothing.
ORVO_EXPORT void stateLastFailure(Failure otherwise) noexcept;
/// Throws what has been stated, where that ends the call after all.
[[noreturn]] ORVO_EXPORT void throwStatedFailure();
/// Keeps a line for lastWarnings(). Has no effect outside of a call.
ORVO_EXPORT void keepWarning(const std::string& text) noexcept;

/// What a piece of work had to say.
struct Statements
{
    std::optional<Failure> failure;
    std::vector<std::string> warnings;
};

/// An exported call, from its first line to its last. A call inside another has its own statements; the outer one gets
/// its warnings, but its failure only by stateLastFailure(), since it may go on without that result.
class ORVO_EXPORT CallScope
{
public:
    CallScope() noexcept; ///< clears what lastFailure() and lastWarnings() return
    ~CallScope();         ///< sets them
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

    /// What ended the call, in place of anything stated before.
    void fail(Failure failure) noexcept;

private:
    Statements outer;
};

/// Collects the statements of a part of a call, such as one item of a parallel loop on whatever thread.
class ORVO_EXPORT StatementScope
{
public:
    StatementScope() noexcept;
    ~StatementScope(); ///< puts back what the thread had stated before
    StatementScope(const StatementScope&) = delete;
    StatementScope& operator=(const StatementScope&) = delete;

    /// What was stated since; nothing is left of it.
    [[nodiscard]] Statements take() noexcept;

private:
    Statements outer;
};

/// Adds the statements of a part to those of the calling thread.
ORVO_EXPORT void addStatements(Statements statements) noexcept;

/// Runs `body` as an exported call that lets exceptions out.
template <typename Body>
auto keepingFailure(const Body& body) -> decltype(body())
{
    CallScope scope;
    try {
        return body();
    } catch (...) {
        scope.fail(failureOfException());
        throw;
    }
}

} // namespace details
} // namespace orvo
