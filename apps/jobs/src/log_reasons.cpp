#include "log_reasons.hpp"

#include <algorithm>
#include <optional>
#include <string_view>

namespace orvo::jobs {
namespace {

/// The loader's line for every file that did not open. The reader has said before why.
constexpr const char* kDidNotOpen = "Can't open image at path: ";

/// The beginning of a call frame's line on an exception.
constexpr std::string_view kErrorIn = "Error in ";
/// What the enlargement puts before its reasons in the log.
constexpr std::string_view kUpscaling = "Upscaling: ";

/// How an exception tells that memory was wanting: the end of the standard one's text, and what stands in OpenCV's,
/// amid the place in its source. OpenCV's bears the code StsNoMem, whatever the version.
constexpr std::string_view kNoMemory = "std::bad_alloc";
constexpr std::string_view kNoMemoryInOpenCV = "(-4:Insufficient memory)";
constexpr const char* kTooLarge = "there is not enough memory for pictures of this size";

bool tellsOfNoMemory(const std::string& text)
{
    return text.ends_with(kNoMemory) || text.find(kNoMemoryInOpenCV) != std::string::npos;
}

bool isComplaint(const LogCapture::Line& line)
{
    return line.type == LogMessageType::Warning || line.type == LogMessageType::Error;
}

/// Log lines may hold several lines of text, such as those of OpenCV; an answer is one.
std::string oneLine(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

/// The text if it is about `file`, with the whole path in it.
std::optional<std::string> naming(const std::filesystem::path& file, const std::string& text)
{
    const std::string path = file.string();
    const std::string name = file.filename().string();
    if (tellsOfNoMemory(text) && (text.find(path) != std::string::npos || text.starts_with(name + ":")))
        return path + ": " + kTooLarge;
    if (text.find(path) != std::string::npos)
        return oneLine(text);
    // Two files of one name may lie in different folders: only the path says which one is meant.
    if (text.starts_with(name + ":"))
        return path + oneLine(text.substr(name.size()));
    return std::nullopt;
}

} // namespace

std::string forPeople(const std::string& error)
{
    const std::string text = oneLine(error);
    if (tellsOfNoMemory(text))
        return kTooLarge;
    if (text.starts_with(kUpscaling))
        return text.substr(kUpscaling.size());
    constexpr std::string_view kSeparator = ": ";
    const auto separator = text.find(kSeparator);
    const bool namesFunction = text.starts_with(kErrorIn) && separator != std::string::npos;
    return namesFunction ? text.substr(separator + kSeparator.size()) : text;
}

std::string reasonForFile(const LogCapture& log, const std::filesystem::path& file, const std::string& otherwise)
{
    for (const LogCapture::Line& line : log.lines())
        if (isComplaint(line) && !line.text.starts_with(kDidNotOpen))
            if (const auto text = naming(file, line.text))
                return *text;
    return file.string() + ": " + otherwise;
}

std::string reasonOfRunOn(const LogCapture& log, const std::filesystem::path& file, const std::string& otherwise)
{
    const auto errors = log.texts(LogMessageType::Error);
    if (errors.empty())
        return reasonForFile(log, file, otherwise);
    const std::string error = forPeople(errors.back());
    return naming(file, error).value_or(file.string() + ": " + error);
}

std::string reasonOfRun(const LogCapture& log, const std::vector<std::filesystem::path>& files,
                        const std::string& otherwise)
{
    std::string lastWarning;
    std::string lastError;
    for (const LogCapture::Line& line : log.lines()) {
        for (const auto& file : files)
            if (line.text == kDidNotOpen + file.string())
                return reasonForFile(log, file, "the picture cannot be read");
        if (line.type == LogMessageType::Warning)
            lastWarning = line.text;
        if (line.type == LogMessageType::Error)
            lastError = line.text;
    }
    if (!lastError.empty())
        return forPeople(lastError);
    return lastWarning.empty() ? otherwise : forPeople(lastWarning);
}

} // namespace orvo::jobs
