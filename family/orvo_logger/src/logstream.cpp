#include <orvo_common/failure.hpp>
#include <orvo_common/text.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_logger/log_file.hpp>
#include <orvo_logger/logstream.hpp>

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <sstream>
#include <vector>

namespace orvo {
namespace {

struct Outputs
{
    std::mutex mutex;
    std::shared_ptr<spdlog::logger> file;
    std::atomic<bool> hasLost = false; // lines of the file
    std::vector<std::shared_ptr<LogSink>> sinks;
};

Outputs& outputs()
{
    // Never destroyed: static objects may still log while the program ends.
    static auto* const all = new Outputs;
    return *all;
}

spdlog::level::level_enum levelOf(LogMessageType type)
{
    switch (type) {
    case LogMessageType::Trace:
        return spdlog::level::trace;
    case LogMessageType::Progress:
        return spdlog::level::info;
    case LogMessageType::Warning:
        return spdlog::level::warn;
    case LogMessageType::Error:
        return spdlog::level::err;
    case LogMessageType::Diagnostic:
        return spdlog::level::debug;
    }
    return spdlog::level::info;
}

void dropSink(const std::shared_ptr<LogSink>& sink)
{
    Outputs& all = outputs();
    const std::lock_guard lock(all.mutex);
    all.sinks.erase(std::remove(all.sinks.begin(), all.sinks.end(), sink), all.sinks.end());
}

} // namespace

logstream& logstream::operator<<(LogMessageType type_)
{
    messageType = type_;
    return *this;
}

logstream& logstream::operator<<(const char* piece) { return append(piece == nullptr ? "" : piece); }

logstream& logstream::operator<<(const std::string& piece) { return append(piece); }

logstream& logstream::operator<<(const std::wstring& piece) { return append(ws2s(piece)); }

logstream& logstream::append(const std::string& piece)
{
    line += piece;
    return *this;
}

logstream& logstream::appendNumber(double number)
{
    std::ostringstream out;
    out << number;
    return append(out.str());
}

logstream __orvolog() { return {}; }

void LOG(const logstream& stream) noexcept
{
    try {
        Outputs& all = outputs();
        // Locked while the sinks run, so that lines have one order everywhere and a dropped sink is never called again.
        const std::lock_guard lock(all.mutex);
        if (all.file)
            all.file->log(levelOf(stream.type()), stream.text());
        for (const auto& sink : all.sinks)
            (*sink)(stream);
    } catch (...) { // NOLINT(bugprone-empty-catch): the header promises not to throw
    }
}

void setLogFile(const std::filesystem::path& fileOrFolder)
{
    std::shared_ptr<spdlog::logger> file;
    if (!fileOrFolder.empty()) {
        std::error_code ignored;
        const auto path =
            std::filesystem::is_directory(fileOrFolder, ignored) ? fileOrFolder / kLogFileName : fileOrFolder;
        if (std::filesystem::is_fifo(path, ignored))
            throw std::runtime_error("cannot open the log file " + pathText(path) + " for writing: it is a pipe");
        try {
            auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path.string()); // narrow name
            file = std::make_shared<spdlog::logger>("orvo", std::move(sink));
        } catch (const spdlog::spdlog_ex&) {
            throw std::runtime_error("cannot open the log file " + pathText(path) + " for writing");
        }
        file->set_level(spdlog::level::trace);
        file->set_pattern("%Y-%m-%d %H:%M:%S.%e [%t] %l: %v");
        file->set_error_handler([](const std::string&) { outputs().hasLost = true; }); // else it prints them
        file->flush_on(spdlog::level::trace); // the last lines before a crash are the ones that matter
    }
    Outputs& all = outputs();
    const std::lock_guard lock(all.mutex);
    all.file = std::move(file);
    all.hasLost = false;
}

bool logFileIsWhole() { return !outputs().hasLost; }

std::shared_ptr<void> addLogSink(LogSink sink)
{
    auto entry = std::make_shared<LogSink>(std::move(sink));
    Outputs& all = outputs();
    const std::lock_guard lock(all.mutex);
    all.sinks.push_back(entry);
    return {entry.get(), [entry](void*) { dropSink(entry); }};
}

namespace details {

void logErrorMessage(const std::string& text) noexcept
{
    try {
        LOG(__orvolog() << LogMessageType::Error << text);
    } catch (...) { // NOLINT(bugprone-empty-catch): out of memory for a log line
    }
}

void logWarning(const std::string& text) noexcept
{
    try {
        LOG(__orvolog() << LogMessageType::Warning << text);
    } catch (...) { // NOLINT(bugprone-empty-catch): no memory for a log line
    }
    keepWarning(text);
}

} // namespace details
} // namespace orvo
