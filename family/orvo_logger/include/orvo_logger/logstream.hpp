/// The family's log: get a stream, stream a level and a text, emit it.
#pragma once

#include <orvo_common/export.hpp>

#include <concepts>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <source_location>
#include <string>

namespace orvo {

/// How much a log line matters. The values are part of the interface.
enum class LogMessageType : std::int32_t
{
    Trace = 0,      ///< progress of single steps
    Progress = 2,   ///< what an operation is doing; the level of a stream that was given none
    Warning = 3,    ///< a recoverable problem
    Error = 4,      ///< an operation failed
    Diagnostic = 6, ///< values for whoever looks into a result
};

/// One log line in the making. Belongs to one thread; LOG() writes it out.
class ORVO_EXPORT logstream
{
public:
    /// Free for marks of the line's origin; 0 for ordinary lines. Sinks pass it on, nothing else reads it.
    std::uint64_t marks = 0;

    logstream& operator<<(LogMessageType messageType);
    logstream& operator<<(const char* piece);
    logstream& operator<<(const std::string& piece);
    logstream& operator<<(const std::wstring& piece);
    template <typename Number>
    requires(std::integral<Number> || std::floating_point<Number>) logstream& operator<<(Number number)
    {
        if constexpr (std::same_as<Number, bool>)
            return append(number ? "1" : "0");
        else if constexpr (std::floating_point<Number>)
            return appendNumber(static_cast<double>(number));
        else
            return append(std::to_string(number));
    }

    [[nodiscard]] LogMessageType type() const { return messageType; }
    [[nodiscard]] const std::string& text() const { return line; }

private:
    logstream& append(const std::string& piece);
    logstream& appendNumber(double number);

    LogMessageType messageType = LogMessageType::Progress;
    std::string line;
};

/// A new, empty line.
[[nodiscard]] ORVO_EXPORT logstream __orvolog();

/// Writes the line to the log file, if one is open, and hands it to every sink. Usable from any thread; a line stays
/// whole. Never throws: a log that cannot be written must not end the operation that it tells about.
ORVO_EXPORT void LOG(const logstream& stream) noexcept;

/// The family's name of the log file.
inline constexpr const char* kLogFileName = "log_orvo.txt";

/// Opens a log file, which is appended to; a folder gets kLogFileName in it. The empty path closes the log file.
/// Nothing is written to disk before the first call. Throws std::runtime_error, naming the file, if it cannot be
/// opened.
ORVO_EXPORT void setLogFile(const std::filesystem::path& fileOrFolder);

/// Receives every line from then on, on the thread that logs, until the returned handle is dropped. The sink must not
/// log itself.
using LogSink = std::function<void(const logstream& line)>;
[[nodiscard]] ORVO_EXPORT std::shared_ptr<void> addLogSink(LogSink sink);

/// One log line of an error: the long form of __orvolog, Error, text, LOG.
namespace details {
ORVO_EXPORT void logErrorMessage(const std::string& text) noexcept;
}

/// The full signature of the function that calls this, as messages carry it. Clang before 16 knows its bare name only.
#ifdef __cpp_lib_source_location
using SourceLocation = std::source_location;
[[nodiscard]] inline std::string functionSignature(const std::source_location& where = std::source_location::current())
{
    return where.function_name();
}
#else
class SourceLocation
{
public:
    static SourceLocation current(const char* name = __builtin_FUNCTION())
    {
        SourceLocation here;
        here.function = name;
        return here;
    }
    [[nodiscard]] const char* function_name() const { return function; }

private:
    const char* function = "";
};
[[nodiscard]] inline std::string functionSignature(const char* name = __builtin_FUNCTION()) { return name; }
#endif

} // namespace orvo
