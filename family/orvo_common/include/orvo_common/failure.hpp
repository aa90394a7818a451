/// The reason why an operation returned nothing, as a value.
///
/// Failing code reports kind, file and sentence once: it throws FailureError or, if it returns an empty result, calls
/// details::stateFailure(). The enclosing exported call keeps the failure for lastFailure() of its thread.
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
    Cancelled,         ///< stopped by the caller
    UnreadableFile,    ///< missing, damaged, or of an unsupported format
    UnfittingPictures, ///< readable but unusable together or for the operation: sizes differ, too large, no overlap
    OutOfMemory,       ///< not enough memory
    FullDisk,          ///< no space left for the file, or quota exceeded
    Internal,          ///< anything else: a setting out of range, an unwritable folder, an error of a library
};

struct Failure
{
    FailureKind kind = FailureKind::Internal;
    std::filesystem::path file; ///< as passed by the caller; empty if the failure concerns no single file
    std::string sentence;       ///< one line without a full stop and without `file`

    bool operator==(const Failure&) const = default;
};

/// "photo.jpg: the file is empty", or the sentence alone if there is no file.
[[nodiscard]] ORVO_EXPORT std::string describe(const Failure& failure);

/// Why the last exported call of this thread returned nothing, or skipped a file; empty if nothing failed. An exported
/// call clears it at its start and sets it at its end, also when it throws; other threads do not affect it. Exported
/// calls are the operations of include/orvo_extensions, ImageReader's, ImageLoader's, upscaleX(), upscaledSize() and
/// writeImage().
[[nodiscard]] ORVO_EXPORT std::optional<Failure> lastFailure();

/// Warnings of the last exported call of this thread, which it survived: lines of its log, in order, without
/// duplicates. Cleared and set like lastFailure().
[[nodiscard]] ORVO_EXPORT std::vector<std::string> lastWarnings();

/// Where the result of the last exported call of this thread falls short of what was asked, in the order of the files:
/// a frame that could not be aligned, for example. Kind, file, and a sentence with the consequence. Empty if the result
/// is as asked, or if there is none. Cleared and set like lastFailure().
[[nodiscard]] ORVO_EXPORT std::vector<Failure> lastShortfalls();

/// Carries a failure as an exception. what() is describe().
class ORVO_EXPORT FailureError : public std::runtime_error
{
public:
    explicit FailureError(Failure failure);
    [[nodiscard]] const Failure& failure() const noexcept { return *value; }

private:
    explicit FailureError(std::shared_ptr<const Failure> completed);
    std::shared_ptr<const Failure> value; // shared, since copies of an exception must not throw
};

/// FullDisk for ENOSPC and EDQUOT, OutOfMemory for ENOMEM, else `otherwise`.
[[nodiscard]] ORVO_EXPORT FailureKind kindOfSystemError(int code, FailureKind otherwise);

/// The failure of a call cancelled by its caller.
[[nodiscard]] ORVO_EXPORT Failure cancelledFailure();

/// The failure for the exception being handled: that of a FailureError, OutOfMemory for std::bad_alloc, FullDisk for a
/// matching system error, else Internal with the exception's text. Call it in a handler.
[[nodiscard]] ORVO_EXPORT Failure failureOfException() noexcept;

namespace details {

/// Records why the coming result is empty. The first record of a call wins, but a cancel replaces it, since any failure
/// after a cancel is its consequence. Has no effect outside of a call.
ORVO_EXPORT void stateFailure(Failure failure) noexcept;
/// Records the failure of the call that has just ended; `otherwise` if it recorded none.
ORVO_EXPORT void stateLastFailure(Failure otherwise) noexcept;
/// Throws the recorded failure, for code where it does end the call.
[[noreturn]] ORVO_EXPORT void throwStatedFailure();
/// Keeps a line for lastWarnings(). Has no effect outside of a call.
ORVO_EXPORT void keepWarning(const std::string& text) noexcept;
/// Keeps an entry for lastShortfalls(), each once. Has no effect outside of a call.
ORVO_EXPORT void keepShortfall(Failure shortfall) noexcept;

/// What a piece of work has to say beside its result.
struct Statements
{
    std::optional<Failure> failure;
    std::vector<std::string> warnings;
    std::vector<Failure> shortfalls;
};

/// Spans an exported call. A nested call has its own statements; the outer one gets its warnings and shortfalls, but
/// its failure only through stateLastFailure(), since it may go on without that result.
class ORVO_EXPORT CallScope
{
public:
    CallScope() noexcept; ///< clears lastFailure(), lastWarnings() and lastShortfalls()
    ~CallScope();         ///< sets them
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

    /// Records the failure that ended the call and replaces earlier ones.
    void fail(Failure failure) noexcept;

private:
    Statements outer;
};

/// Collects the statements of a part of a call, such as one item of a parallel loop, on any thread.
class ORVO_EXPORT StatementScope
{
public:
    StatementScope() noexcept;
    ~StatementScope(); ///< restores the earlier statements of the thread
    StatementScope(const StatementScope&) = delete;
    StatementScope& operator=(const StatementScope&) = delete;

    /// Takes the statements made since the start of the scope.
    [[nodiscard]] Statements take() noexcept;

private:
    Statements outer;
};

/// Adds the statements of a part to those of the calling thread.
ORVO_EXPORT void addStatements(Statements statements) noexcept;

/// Runs `body` as an exported call and lets exceptions pass.
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
