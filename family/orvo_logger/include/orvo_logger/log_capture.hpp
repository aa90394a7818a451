/// Keeps log lines in memory, for tests and for programs that report to the user why something failed.
#pragma once

#include <orvo_logger/logstream.hpp>

#include <mutex>
#include <vector>

namespace orvo {

/// Collects every log line during its lifetime. Usable from any thread.
class ORVO_EXPORT LogCapture
{
public:
    struct Line
    {
        LogMessageType type;
        std::string text;
        std::uint64_t marks;
        bool operator==(const Line&) const = default;
    };

    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    [[nodiscard]] std::vector<Line> lines() const;
    /// Texts of the lines of one level, in order.
    [[nodiscard]] std::vector<std::string> texts(LogMessageType type) const;

private:
    mutable std::mutex mutex;
    std::vector<Line> collected;
    std::shared_ptr<void> sink; // last: destroyed before its targets
};

} // namespace orvo
