#include <jobs/default_output.hpp>
#include <jobs/input_files.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_extensions/failure.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/picture_file.hpp>

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>

namespace orvo::jobs {
namespace {

namespace fs = std::filesystem;

std::string folded(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// Below, at or above 0 like a comparison of the numbers that begin at `i` and `j`, which are moved behind them.
int compareNumbers(std::string_view a, std::size_t& i, std::string_view b, std::size_t& j)
{
    const auto take = [](std::string_view text, std::size_t& at) {
        while (at < text.size() && text[at] == '0')
            ++at;
        const std::size_t begin = at;
        while (at < text.size() && isDigit(text[at]))
            ++at;
        return text.substr(begin, at - begin);
    };
    const std::string_view first = take(a, i);
    const std::string_view second = take(b, j);
    if (first.size() != second.size())
        return first.size() < second.size() ? -1 : 1;
    return first.compare(second);
}

int compareNames(std::string_view a, std::string_view b)
{
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < a.size() && j < b.size()) {
        int order = 0;
        if (isDigit(a[i]) && isDigit(b[j])) {
            order = compareNumbers(a, i, b, j);
        } else {
            order = std::tolower(static_cast<unsigned char>(a[i])) - std::tolower(static_cast<unsigned char>(b[j]));
            ++i;
            ++j;
        }
        if (order != 0)
            return order;
    }
    return static_cast<int>(a.size() - i) - static_cast<int>(b.size() - j);
}

/// MPEG-4 and QuickTime, AVI, Matroska, MPEG streams, by their first bytes.
bool beginsLikeVideo(const fs::path& path)
{
    using namespace std::string_view_literals;
    std::array<char, 12> bytes{};
    std::ifstream(path, std::ios::binary).read(bytes.data(), bytes.size());
    const std::string_view begin(bytes.data(), bytes.size());
    return begin.substr(4, 4) == "ftyp" || begin.substr(4, 4) == "moov" ||
           (begin.starts_with("RIFF") && begin.substr(8) == "AVI ") || begin.starts_with("\x1a\x45\xdf\xa3"sv) ||
           begin.starts_with("\0\0\1\xba"sv) || (begin[0] == 'G' && folded(pathText(path.extension())) == ".mts");
}

/// The part of a name before what was done, for a name as defaultOutput() gives; empty for others.
std::string stemBeforeResult(const std::string& stem)
{
    for (const char* const word : kDoneWords) {
        const std::string ending = std::string("-") + word;
        if (stem.size() > ending.size() && stem.ends_with(ending))
            return stem.substr(0, stem.size() - ending.size());
    }
    return {};
}

/// Names of a folder's files without their endings.
using Stems = std::multiset<std::string>;

bool isResult(const fs::path& path, const Stems& stems)
{
    for (std::string stem = stemBeforeResult(pathText(path.stem())); !stem.empty(); stem = stemBeforeResult(stem))
        if (stems.contains(folded(stem)))
            return true;
    return false;
}

bool isHidden(const fs::path& path) { return pathText(path.filename()).starts_with("."); }

/// Cameras keep a small picture beside each video.
bool isVideoThumbnail(const fs::path& path) { return folded(pathText(path.extension())) == ".thm"; }

/// Why a file of a folder or of a card is not used; empty if it is. `stems`: of all files of its folder.
std::optional<LeftOutReason> reasonAgainst(const fs::path& path, const Stems& stems)
{
    if (!beginsLikePicture(path))
        return beginsLikeVideo(path) ? LeftOutReason::Video : LeftOutReason::NoPicture;
    if (isVideoThumbnail(path))
        return LeftOutReason::NoPicture;
    return isResult(path, stems) ? std::optional(LeftOutReason::Result) : std::nullopt;
}

/// Moves pictures that a camera also stored raw to `leftOut`.
void dropDoubles(InputFiles& input)
{
    std::map<fs::path, std::vector<fs::path>> byName;
    for (const fs::path& file : input.files)
        byName[file.parent_path() / folded(pathText(file.stem()))].push_back(file);
    std::set<fs::path> doubles;
    for (const auto& [name, files] : byName) {
        if (files.size() < 2 || std::none_of(files.begin(), files.end(), isRawImageFile))
            continue;
        for (const fs::path& file : files)
            if (!isRawImageFile(file))
                doubles.insert(file);
    }
    std::erase_if(input.files, [&](const fs::path& file) { return doubles.contains(file); });
    for (const fs::path& file : doubles)
        input.leftOut.push_back({file, LeftOutReason::Double});
}

[[noreturn]] void failToRead(const fs::path& folder, const std::string& sentence)
{
    throw FailureError({FailureKind::UnreadableFile, folder, sentence});
}

struct Listing
{
    std::vector<fs::path> files; ///< in order, not hidden
    std::vector<fs::path> folders;
};

Listing listed(const fs::path& folder)
{
    Listing listing;
    std::error_code error;
    for (auto entry = fs::directory_iterator(folder, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        if (isHidden(entry->path()))
            continue;
        std::error_code gone;
        if (entry->is_directory(gone))
            listing.folders.push_back(entry->path());
        else if (entry->is_regular_file(gone))
            listing.files.push_back(entry->path());
    }
    if (error)
        failToRead(folder, "the folder cannot be read: " + error.message());
    std::sort(listing.files.begin(), listing.files.end(), orderedByName);
    std::sort(listing.folders.begin(), listing.folders.end(), orderedByName);
    return listing;
}

std::string countText(std::size_t count, const std::string& one, const std::string& more)
{
    return std::to_string(count) + " " + (count == 1 ? one : more);
}

InputFiles picturesIn(const fs::path& folder, const fs::path& output)
{
    const Listing listing = listed(folder);
    Stems stems;
    for (const fs::path& file : listing.files)
        stems.insert(folded(pathText(file.stem())));
    InputFiles found;
    for (const fs::path& file : listing.files) {
        std::error_code missing;
        const auto reason = !output.empty() && fs::equivalent(file, output, missing) ? LeftOutReason::Result
                                                                                     : reasonAgainst(file, stems);
        if (reason)
            found.leftOut.push_back({file, *reason});
        else
            found.files.push_back(file);
    }
    if (found.files.empty())
        failToRead(folder,
                   "there are no pictures in this folder" +
                       (listing.files.empty()
                            ? ""
                            : ", only " + countText(listing.files.size(), "other file", "other files")) +
                       (listing.folders.empty()
                            ? ""
                            : "; " + countText(listing.folders.size(), "folder", "folders") + " in it, such as " +
                                  pathText(listing.folders.front().filename()) + ", must be given by name"));
    for (const fs::path& inner : listing.folders)
        found.leftOut.push_back({inner, LeftOutReason::Folder});
    dropDoubles(found);
    return found;
}

void append(InputFiles& to, const InputFiles& more)
{
    to.files.insert(to.files.end(), more.files.begin(), more.files.end());
    to.leftOut.insert(to.leftOut.end(), more.leftOut.begin(), more.leftOut.end());
}

bool isFolder(const fs::path& path)
{
    std::error_code error; // a job reports what is missing
    return fs::is_directory(path, error);
}

std::map<fs::path, Stems> stemsByFolder(const std::vector<fs::path>& given)
{
    std::map<fs::path, Stems> stems;
    for (const fs::path& path : given)
        if (!isFolder(path))
            stems[path.parent_path()].insert(folded(pathText(path.stem())));
    return stems;
}

} // namespace

const char* leftOutText(LeftOutReason reason)
{
    switch (reason) {
    case LeftOutReason::Video:
        return "a video";
    case LeftOutReason::NoPicture:
        return "no picture";
    case LeftOutReason::Result:
        return "a result";
    case LeftOutReason::Double:
        return "also there as raw file";
    case LeftOutReason::Folder:
        return "a folder";
    }
    return "";
}

bool orderedByName(const fs::path& a, const fs::path& b)
{
    const int order = compareNames(pathText(a.filename()), pathText(b.filename()));
    return order != 0 ? order < 0 : a.native() < b.native();
}

InputFiles inputFiles(const std::vector<fs::path>& given, const fs::path& output)
{
    InputFiles input;
    for (const fs::path& path : given)
        if (isFolder(path))
            append(input, picturesIn(path, output));
        else
            input.files.push_back(path);
    return input;
}

std::vector<fs::path> resultsAmong(const std::vector<fs::path>& files)
{
    std::map<fs::path, Stems> stems = stemsByFolder(files);
    std::vector<fs::path> results;
    std::copy_if(files.begin(), files.end(), std::back_inserter(results),
                 [&](const fs::path& file) { return isResult(file, stems[file.parent_path()]); });
    return results;
}

InputFiles cardFiles(const std::vector<fs::path>& given)
{
    InputFiles card;
    std::map<fs::path, Stems> stems = stemsByFolder(given);
    for (const fs::path& path : given) {
        if (isFolder(path)) {
            append(card, picturesIn(path, {}));
            continue;
        }
        std::error_code error;
        const bool isThere = fs::is_regular_file(path, error) && fs::file_size(path, error) > 0;
        const auto reason = isThere ? reasonAgainst(path, stems[path.parent_path()]) : std::nullopt;
        if (reason)
            card.leftOut.push_back({path, *reason});
        else
            card.files.push_back(path);
    }
    dropDoubles(card);
    return card;
}

std::vector<std::string> leftOutNotes(const std::vector<LeftOutFile>& leftOut)
{
    constexpr std::size_t kMostNames = 6; // a longer line is not read
    std::vector<fs::path> folders;        // in the order of their first files
    std::map<fs::path, std::vector<const LeftOutFile*>> byFolder;
    for (const LeftOutFile& file : leftOut) {
        auto& files = byFolder[file.path.parent_path()];
        if (files.empty())
            folders.push_back(file.path.parent_path());
        files.push_back(&file);
    }
    std::vector<std::string> notes;
    for (const fs::path& folder : folders) {
        const auto& files = byFolder[folder];
        std::string line = (folder.empty() ? std::string() : pathText(folder) + ": ") + "left out ";
        for (std::size_t i = 0; i < std::min(files.size(), kMostNames); ++i)
            line +=
                (i == 0 ? "" : ", ") + pathText(files[i]->path.filename()) + " (" + leftOutText(files[i]->reason) + ")";
        if (files.size() > kMostNames)
            line += " and " + std::to_string(files.size() - kMostNames) + " more";
        notes.push_back(line);
    }
    return notes;
}

} // namespace orvo::jobs
