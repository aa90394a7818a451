#include <orvo_logger/log_capture.hpp>

namespace orvo {

LogCapture::LogCapture()
    : sink(addLogSink([this](const logstream& line) {
          const std::lock_guard lock(mutex);
          collected.push_back({line.type(), line.text(), line.marks});
      }))
{}

LogCapture::~LogCapture() { sink.reset(); }

std::vector<LogCapture::Line> LogCapture::lines() const
{
    const std::lock_guard lock(mutex);
    return collected;
}

std::vector<std::string> LogCapture::texts(LogMessageType type) const
{
    const std::lock_guard lock(mutex);
    std::vector<std::string> found;
    for (const Line& line : collected)
        if (line.type == type)
            found.push_back(line.text);
    return found;
}

} // namespace orvo
