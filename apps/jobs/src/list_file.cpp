#include "checks.hpp"

#include <jobs/list_file.hpp>
#include <orvo_extensions/failure.hpp>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

namespace orvo::jobs {
namespace {

[[noreturn]] void fail(const std::filesystem::path& path, const std::string& sentence)
{
    throw FailureError({FailureKind::UnreadableFile, path, sentence});
}

std::string textOf(const std::filesystem::path& path)
{
    constexpr std::size_t kLongest = std::size_t{64} << 20; // bytes; a list of a million names
    checkIsFile(path, "list");
    std::ifstream file(path, std::ios::binary);
    std::string text;
    for (std::istreambuf_iterator<char> at(file), end; at != end; ++at) {
        if (*at == '\0')
            fail(path, "this is no text, a list of file names was expected");
        if (text.size() == kLongest)
            fail(path, "the list is longer than 64 MiB");
        text += *at;
    }
    if (file.bad())
        fail(path, "the list cannot be read");
    return text;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

/// Reads the words of one line.
class Words
{
public:
    Words(std::string_view line_, const std::filesystem::path& path_, int number_)
        : line(line_), path(path_), number(number_)
    {}

    /// Empty at the end of the line.
    [[nodiscard]] std::optional<std::string> next()
    {
        while (at < line.size() && isBlank(line[at]))
            ++at;
        if (at == line.size() || line[at] == '#')
            return std::nullopt;
        std::string word;
        while (at < line.size() && !isBlank(line[at])) {
            const char c = line[at++];
            if (c == '\'')
                takeLiteral(word);
            else if (c == '"')
                takeQuoted(word);
            else if (c == '\\')
                word += character();
            else
                word += c;
        }
        return word;
    }

private:
    char character()
    {
        if (at == line.size())
            fail(path, "line " + std::to_string(number) + " ends with a backslash or within quotes");
        return line[at++];
    }

    void takeLiteral(std::string& word)
    {
        for (char c = character(); c != '\''; c = character())
            word += c;
    }

    void takeQuoted(std::string& word)
    {
        constexpr std::string_view kEscaped = "\"\\$`";
        for (char c = character(); c != '"'; c = character()) {
            const bool isEscape = c == '\\' && at < line.size() && kEscaped.find(line[at]) != std::string_view::npos;
            word += isEscape ? character() : c;
        }
    }

    std::string_view line;
    const std::filesystem::path& path;
    int number;
    std::size_t at = 0;
};

} // namespace

std::vector<ListLine> readListFile(const std::filesystem::path& path)
{
    const std::string text = textOf(path);
    std::vector<ListLine> lines;
    int number = 0;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        ListLine line{++number, {}};
        Words words(std::string_view(text).substr(begin, end - begin), path, number);
        while (const auto word = words.next()) {
            if (word->empty())
                fail(path, "line " + std::to_string(number) + " has an empty file name");
            line.files.emplace_back(*word);
        }
        if (!line.files.empty())
            lines.push_back(std::move(line));
        begin = end + 1;
    }
    return lines;
}

} // namespace orvo::jobs
