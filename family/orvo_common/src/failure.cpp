#include <orvo_common/failure.hpp>
#include <orvo_common/wide_path.hpp>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

namespace orvo {
namespace {

constexpr const char* kTooLarge = "there is not enough memory for pictures of this size";

struct ThreadState
{
    details::Statements stated; // by the running call
    details::Statements last;   // of the call that ended last
    int scopes = 0;             // number of open ones; statements outside of all are dropped
};

ThreadState& threadState()
{
    thread_local ThreadState state;
    return state;
}

// Messages of libraries may have several lines and full stops.
std::string oneLine(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    while (!text.empty() && (text.back() == ' ' || text.back() == '.'))
        text.pop_back();
    return text;
}

Failure complete(Failure failure)
{
    // Without memory the sentence stays empty; it is filled in when read.
    failure.sentence = failure.kind == FailureKind::OutOfMemory && failure.sentence.empty()
                           ? kTooLarge
                           : oneLine(std::move(failure.sentence));
    return failure;
}

} // namespace

std::string describe(const Failure& failure)
{
    return failure.file.empty() ? failure.sentence : pathText(failure.file) + ": " + failure.sentence;
}

std::optional<Failure> lastFailure()
{
    const std::optional<Failure>& failure = threadState().last.failure;
    return failure ? std::optional(complete(*failure)) : std::nullopt;
}

std::vector<std::string> lastWarnings() { return threadState().last.warnings; }

std::vector<Failure> lastShortfalls()
{
    const details::Statements& last = threadState().last;
    return last.failure ? std::vector<Failure>() : last.shortfalls;
}

FailureError::FailureError(Failure failure)
    : FailureError(std::make_shared<const Failure>(complete(std::move(failure))))
{}

FailureError::FailureError(std::shared_ptr<const Failure> completed)
    : std::runtime_error(describe(*completed)), value(std::move(completed))
{}

FailureKind kindOfSystemError(int code, FailureKind otherwise)
{
    if (code == ENOSPC || code == EDQUOT)
        return FailureKind::FullDisk;
    return code == ENOMEM ? FailureKind::OutOfMemory : otherwise;
}

Failure cancelledFailure() { return {FailureKind::Cancelled, {}, "cancelled"}; }

Failure failureOfException() noexcept
try {
    try {
        throw;
    } catch (const FailureError& error) {
        return error.failure();
    } catch (const std::bad_alloc&) {
        return {FailureKind::OutOfMemory, {}, {}};
    } catch (const std::filesystem::filesystem_error& error) {
        return {kindOfSystemError(error.code().value(), FailureKind::Internal), error.path1(), error.code().message()};
    } catch (const std::system_error& error) {
        return {kindOfSystemError(error.code().value(), FailureKind::Internal), {}, error.what()};
    } catch (const std::exception& error) {
        return {FailureKind::Internal, {}, error.what()};
    } catch (...) {
        return {FailureKind::Internal, {}, "an error of unknown kind ended the work"};
    }
} catch (...) { // no memory for the text
    return {FailureKind::OutOfMemory, {}, {}};
}

namespace details {

void stateFailure(Failure failure) noexcept
{
    ThreadState& state = threadState();
    std::optional<Failure>& stated = state.stated.failure;
    if (state.scopes > 0 && (!stated || failure.kind == FailureKind::Cancelled))
        stated = std::move(failure);
}

void stateLastFailure(Failure otherwise) noexcept
{
    try {
        stateFailure(threadState().last.failure.value_or(std::move(otherwise)));
    } catch (...) {
        stateFailure({FailureKind::OutOfMemory, {}, {}});
    }
}

void throwStatedFailure()
{
    throw FailureError(threadState().stated.failure.value_or(Failure{FailureKind::Internal, {}, "no reason is known"}));
}

void keepWarning(const std::string& text) noexcept
{
    try {
        ThreadState& state = threadState();
        std::vector<std::string>& warnings = state.stated.warnings;
        if (state.scopes > 0 && std::find(warnings.begin(), warnings.end(), text) == warnings.end())
            warnings.push_back(text);
    } catch (...) { // NOLINT(bugprone-empty-catch): no memory for a warning; the log has it
    }
}

void keepShortfall(Failure shortfall) noexcept
{
    try {
        ThreadState& state = threadState();
        std::vector<Failure>& shortfalls = state.stated.shortfalls;
        if (state.scopes > 0 && std::find(shortfalls.begin(), shortfalls.end(), shortfall) == shortfalls.end())
            shortfalls.push_back(std::move(shortfall));
    } catch (...) { // NOLINT(bugprone-empty-catch): no memory for it; the log has it
    }
}

void addStatements(Statements statements) noexcept
{
    if (statements.failure)
        stateFailure(std::move(*statements.failure));
    for (const std::string& warning : statements.warnings)
        keepWarning(warning);
    for (Failure& shortfall : statements.shortfalls)
        keepShortfall(std::move(shortfall));
}

CallScope::CallScope() noexcept : outer(std::exchange(threadState().stated, {}))
{
    threadState().last = {};
    ++threadState().scopes;
}

CallScope::~CallScope()
{
    ThreadState& state = threadState();
    state.last = std::exchange(state.stated, std::move(outer));
    --state.scopes;
    for (const std::string& warning : state.last.warnings)
        keepWarning(warning);
    for (const Failure& shortfall : state.last.shortfalls)
        keepShortfall(shortfall);
}

void CallScope::fail(Failure failure) noexcept { threadState().stated.failure = std::move(failure); }

StatementScope::StatementScope() noexcept : outer(std::exchange(threadState().stated, {})) { ++threadState().scopes; }

StatementScope::~StatementScope()
{
    threadState().stated = std::move(outer);
    --threadState().scopes;
}

Statements StatementScope::take() noexcept { return std::exchange(threadState().stated, {}); }

} // namespace details
} // namespace orvo
