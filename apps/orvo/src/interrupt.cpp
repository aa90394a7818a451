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
constexpr std::string_view kStopping = "\nstopping after the step at hand; once more stops at once\n";

// What the handler touches. It may run on any thread at any time.
std::atomic<std::atomic<unsigned char>*> flagOfHandler{nullptr};
std::atomic<bool> tellFromHandler{false};
static_assert(std::atomic<std::atomic<unsigned char>*>::is_always_lock_free);

extern "C" void onInterrupt(int)
{
    const int errorBefore = errno;
    std::atomic<unsigned char>* const cancel = flagOfHandler.load();
    if (cancel == nullptr || *cancel != 0) {
        jobs::removeUnfinishedFiles();
        ::_exit(kCancelled);
    }
    *cancel = 1;
    if (tellFromHandler.load() && ::write(STDERR_FILENO, kStopping.data(), kStopping.size()) < 0) {
        // A terminal that has gone away needs no words.
    }
    errno = errorBefore;
}

void setHandler(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    ::sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_IGN)
        return;
    action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART; // reading and writing go on; the job looks at the flag by itself
    ::sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
}

} // namespace

InterruptGuard::InterruptGuard(bool tell)
    : flag(std::make_shared<std::atomic<unsigned char>>(static_cast<unsigned char>(0)))
{
    tellFromHandler = tell;
    flagOfHandler = flag.get();
    for (const int signal : kSignals)
        setHandler(signal, onInterrupt);
}

InterruptGuard::~InterruptGuard()
{
    for (const int signal : kSignals)
        setHandler(signal, SIG_DFL);
    flagOfHandler = nullptr;
}

} // namespace orvo::cli
