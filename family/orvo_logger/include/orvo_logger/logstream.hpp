/// The family's log: create a stream, stream a level and a text into it, emit it.
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

/// The severity of a log line. The values are part of the interface.
enum class LogMessageType : std::int32_t
{
    Trace = 0,      ///< progress of single steps
    Progress = 2,   ///< what an operation is doing; the default level of a stream
    Warning = 3,    ///< a recoverable problem
    Error = 4,      ///< an operation failed
    Diagnostic = 6, ///< values for inspecting a result
};

/// One log line under construction. Belongs to one thread; LOG() writes it.
class ORVO_EXPORT logstream
{
public:
    /// Reserved for marks of the line's origin; 0 for ordinary lines. Passed to sinks, otherwise unused.
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

/// Writes the line to the log file, if one is open, and passes it to every sink. Usable from any thread; a line stays
/// whole. Never throws: a log that cannot be written must not end the operation it reports on.
ORVO_EXPORT void LOG(const logstream& stream) noexcept;

/// The family's log file name.
inline constexpr const char* kLogFileName = "log_orvo.txt";

/// Opens a log file for appending; a folder gets kLogFileName in it. The empty path closes the log file. Nothing is
/// written to disk before the first call. Throws std::runtime_error that names the file if it cannot be opened.
ORVO_EXPORT void setLogFile(const std::filesystem::path& fileOrFolder);

/// Receives every line from now on, on the thread that logs, until the returned handle is dropped. The sink must not
/// log.
using LogSink = std::function<void(const logstream& line)>;
[[nodiscard]] ORVO_EXPORT std::shared_ptr<void> addLogSink(LogSink sink);

/// Logs one error line: the long form of __orvolog, Error, text, LOG.
namespace details {
ORVO_EXPORT void logErrorMessage(const std::string& text) noexcept;
/// The same for a warning, which is also kept for lastWarnings() (orvo_common/failure.hpp).
ORVO_EXPORT void logWarning(const std::string& text) noexcept;
} // namespace details

/// The full signature of the calling function, as used in messages. Clang before 16 only knows its bare name.
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
