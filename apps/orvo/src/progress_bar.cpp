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

constexpr int kWidestBar = 40;  // characters; longer bars are harder to read
constexpr int kTextWidth = 32;  // characters around the bar: brackets, percent, and the name of the step
constexpr int kUsualWidth = 80; // of a terminal that does not report its width
constexpr int kBlock = 6;       // characters of the block that moves during an opaque step
constexpr std::chrono::milliseconds kMove(250); // slow, but visible

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

std::string rightAligned(long number)
{
    constexpr std::size_t kDigits = 3;
    const std::string digits = std::to_string(number);
    return std::string(kDigits - std::min(kDigits, digits.size()), ' ') + digits;
}

/// A block that moves back and forth in a bar of `length`, by one character each time.
std::string movingBlock(int length, long moves)
{
    const int block = std::min(kBlock, length);
    const int way = length - block;
    const int phase = way == 0 ? 0 : static_cast<int>(moves % (2 * way));
    std::string picture(static_cast<std::size_t>(length), '.');
    const auto at = static_cast<std::size_t>(std::min(phase, 2 * way - phase));
    return picture.replace(at, static_cast<std::size_t>(block), static_cast<std::size_t>(block), '#');
}

} // namespace

ProgressBar::ProgressBar(Talk talk_) : talk(talk_), bar(talk_ != Talk::Silent && isTerminal())
{
    if (bar)
        mover = std::thread(&ProgressBar::keepMoving, this);
}

ProgressBar::~ProgressBar()
{
    if (!bar)
        return;
    {
        const std::lock_guard lock(mutex);
        isEnded = true;
    }
    ended.notify_one();
    mover.join();
    if (last)
        std::fputs("\r\033[K", stderr);
}

void ProgressBar::show(const jobs::JobProgress& progress)
{
    const std::lock_guard lock(mutex);
    const bool isNewStep = !last || last->step != progress.step;
    last = progress;
    if (isNewStep)
        stepBegan = Clock::now();
    if (bar)
        draw();
    else if (talk == Talk::Full && isNewStep)
        say(std::string(jobs::stepText(progress.step)) + "\n");
}

void ProgressBar::draw()
{
    const int length = std::clamp(terminalWidth() - kTextWidth, 0, kWidestBar);
    const auto elapsed = Clock::now() - stepBegan;
    std::string picture;
    std::string amount;
    if (last->opaque) {
        picture = movingBlock(length, elapsed / kMove);
        amount = rightAligned(elapsed / std::chrono::seconds(1)) + " s";
    } else {
        const int filled = static_cast<int>(std::lround(last->fraction * length));
        picture = std::string(static_cast<std::size_t>(filled), '#') +
                  std::string(static_cast<std::size_t>(length - filled), '.');
        amount = rightAligned(std::lround(last->fraction * 100)) + " %";
    }
    // The ECMA-48 escape sequence that clears the line from the cursor.
    std::fprintf(stderr, "\r[%s] %s %s\033[K", picture.c_str(), amount.c_str(), jobs::stepText(last->step));
    std::fflush(stderr);
}

void ProgressBar::keepMoving()
{
    std::unique_lock lock(mutex);
    while (!ended.wait_for(lock, kMove, [this] { return isEnded; }))
        if (last && last->opaque)
            draw();
}

} // namespace orvo::cli
