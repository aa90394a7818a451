#include "progress_bar.hpp"

#include "output.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace orvo::cli {
namespace {

constexpr int kWidestBar = 40;  // characters; longer ones are harder to read, not easier
constexpr int kTextWidth = 30;  // characters beside the bar: brackets, percent, and the name of the step
constexpr int kUsualWidth = 80; // of a terminal that does not tell its own

bool isTerminal()
{
    const char* const kind = std::getenv("TERM");
    return ::isatty(STDERR_FILENO) == 1 && (kind == nullptr || std::string_view(kind) != "dumb");
}

int terminalWidth()
{
    winsize window = {};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col > 0 ? window.ws_col : kUsualWidth;
}

} // namespace

ProgressBar::ProgressBar(Talk talk_) : talk(talk_), bar(talk_ != Talk::Silent && isTerminal()) {}

std::function<void(const jobs::JobProgress&)> ProgressBar::follower()
{
    return [this](const jobs::JobProgress& progress) { show(progress); };
}

void ProgressBar::show(const jobs::JobProgress& progress)
{
    if (bar) {
        const int length = std::clamp(terminalWidth() - kTextWidth, 0, kWidestBar);
        const int filled = static_cast<int>(std::lround(progress.fraction * length));
        const std::string picture = std::string(static_cast<std::size_t>(filled), '#') +
                                    std::string(static_cast<std::size_t>(length - filled), '.');
        // The escape sequence of ECMA-48 that empties the line from the cursor on.
        std::fprintf(stderr, "\r[%s] %3d %% %s\033[K", picture.c_str(),
                     static_cast<int>(std::lround(progress.fraction * 100)), jobs::stepText(progress.step));
        std::fflush(stderr);
        shown = true;
    } else if (talk == Talk::Full && lastStep != progress.step) {
        say(std::string(jobs::stepText(progress.step)) + "\n");
    }
    lastStep = progress.step;
}

void ProgressBar::clear()
{
    if (shown)
        std::fputs("\r\033[K", stderr);
    shown = false;
}

} // namespace orvo::cli
