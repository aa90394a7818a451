#include "interrupt.hpp"

#include "command.hpp"

#include <jobs/beside_file.hpp>

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <string_view>

namespace orvo::cli {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr std::string_view kClearBar = "\r\033[K";
constexpr std::string_view kCancelledLine = "orvo: cancelled\n"; // as complain() writes it after a job
constexpr std::string_view kStopping = "\nstopping after the current step; interrupt again to stop at once\n";

// A step that does not stop within this time, such as a library that waits for memory, is abandoned.
constexpr unsigned kPatience = 20; // seconds

// State of the handlers, which may run on any thread at any time.
std::atomic<std::atomic<unsigned char>*> flagOfHandler{nullptr};
std::atomic<bool> barIsShown{false};
std::atomic<bool> stepIsOpaque{false};
static_assert(std::atomic<std::atomic<unsigned char>*>::is_always_lock_free);
static_assert(std::atomic<bool>::is_always_lock_free);

void writeError(std::string_view text)
{
    if (::write(STDERR_FILENO, text.data(), text.size()) < 0) {
        // Errors are ignored: the terminal may be gone.
    }
}

extern "C" void onInterrupt(int)
{
    const int errorBefore = errno;
    std::atomic<unsigned char>* const cancel = flagOfHandler.load();
    // The flag is set before the step is read: a job that begins an opaque step does it in the reverse order, so one of
    // the two stops it.
    const bool isFirst = cancel != nullptr && cancel->exchange(1) == 0;
    if (isFirst && !stepIsOpaque) {
        if (barIsShown)
            writeError(kStopping);
        ::alarm(kPatience);
        errno = errorBefore;
        return;
    }
    jobs::removeUnfinishedFiles();
    if (isFirst) {
        if (barIsShown)
            writeError(kClearBar);
        writeError(kCancelledLine);
    }
    ::_exit(kCancelled);
}

extern "C" void onPatienceEnd(int)
{
    jobs::removeUnfinishedFiles();
    if (barIsShown)
        writeError(kClearBar);
    writeError(kCancelledLine);
    ::_exit(kCancelled);
}

void setHandler(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    ::sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_IGN)
        return;
    action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART; // reading and writing continue; the job checks the flag itself
    ::sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
}

} // namespace

InterruptGuard::InterruptGuard(bool bar)
    : flag(std::make_shared<std::atomic<unsigned char>>(static_cast<unsigned char>(0)))
{
    barIsShown = bar;
    stepIsOpaque = false;
    flagOfHandler = flag.get();
    std::signal(SIGALRM, onPatienceEnd);
    for (const int signal : kSignals)
        setHandler(signal, onInterrupt);
}

void InterruptGuard::follow(const jobs::JobProgress& progress) { stepIsOpaque = progress.opaque; }

InterruptGuard::~InterruptGuard()
{
    ::alarm(0);
    std::signal(SIGALRM, SIG_DFL);
    for (const int signal : kSignals)
        setHandler(signal, SIG_DFL);
    flagOfHandler = nullptr;
}

} // namespace orvo::cli
