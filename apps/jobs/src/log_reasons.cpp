#include "log_reasons.hpp"

#include <algorithm>

namespace orvo::jobs {
namespace {

/// The loader's line for every file that did not open. The reader has said before why.
constexpr const char* kDidNotOpen = "Can't open image at path: ";

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

} // namespace

std::string reasonForFile(const LogCapture& log, const std::filesystem::path& file, const std::string& otherwise)
{
    const std::string path = file.string();
    const std::string name = file.filename().string();
    for (const LogCapture::Line& line : log.lines()) {
        if (!isComplaint(line) || line.text.starts_with(kDidNotOpen))
            continue;
        if (line.text.find(path) != std::string::npos)
            return oneLine(line.text);
        // Two files of one name may lie in different folders: only the path says which one is meant.
        if (line.text.starts_with(name + ":"))
            return path + oneLine(line.text.substr(name.size()));
    }
    return path + ": " + otherwise;
}

std::string reasonOfMerge(const LogCapture& log, const std::vector<std::filesystem::path>& files)
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
        return oneLine(lastError);
    return lastWarning.empty() ? "the merge gave no picture and no reason" : oneLine(lastWarning);
}

} // namespace orvo::jobs
