#include "bracket_groups.hpp"

#include "run_job.hpp"

#include <jobs/job.hpp>
#include <orvo_extensions/failure.hpp>
#include <orvo_extensions/picture_groups.hpp>

#include <algorithm>
#include <map>
#include <string>

namespace orvo::jobs {
namespace {

using Paths = std::vector<std::filesystem::path>;

[[noreturn]] void refuse(const std::string& text) { throw JobRefusal(text); }

/// Pictures that belong to no bracket are brackets of one frame.
std::vector<Paths> byGroups(const Paths& files, const std::function<bool()>& cancel)
{
    const PictureGroups groups = groupPictures(files, {}, cancel);
    if (!groups.unreadable.empty())
        throw FailureError(groups.unreadable.front());
    if (groups.groups.empty())
        throwLastFailure("grouping gave no groups and no reason");
    std::vector<Paths> brackets;
    for (const PictureGroup& group : groups.groups) {
        const auto size = static_cast<std::ptrdiff_t>(std::max<std::size_t>(group.bracketSize, 1));
        for (auto first = group.paths.begin(); first != group.paths.end(); first += size)
            brackets.emplace_back(first, first + size);
    }
    return brackets;
}

std::string frameCount(std::size_t count) { return std::to_string(count) + (count == 1 ? " frame" : " frames"); }

void checkSizes(const std::vector<Paths>& brackets)
{
    std::map<std::size_t, int> counts;
    for (const Paths& bracket : brackets)
        ++counts[bracket.size()];
    const std::size_t usual = std::max_element(counts.begin(), counts.end(), [](const auto& a, const auto& b) {
                                  return a.second < b.second || (a.second == b.second && a.first < b.first);
                              })->first;
    if (usual == 1 && counts.size() == 1)
        refuse("all files have the same exposure, so that there are no brackets; --bracket-size sets how many frames "
               "each has");
    for (const Paths& bracket : brackets)
        if (bracket.size() != usual)
            throw FailureError(
                {FailureKind::UnfittingPictures, bracket.front(),
                 "its bracket has " + frameCount(bracket.size()) + ", the others have " + frameCount(usual)});
}

std::vector<Paths> bySize(const Paths& files, std::size_t size)
{
    if (files.size() % size != 0)
        refuse(std::to_string(files.size()) + " files make no brackets of " + frameCount(size) + "; one is incomplete");
    std::vector<Paths> brackets;
    for (std::size_t i = 0; i < files.size(); i += size) {
        const auto first = files.begin() + static_cast<std::ptrdiff_t>(i);
        brackets.emplace_back(first, first + static_cast<std::ptrdiff_t>(size));
    }
    return brackets;
}

} // namespace

std::vector<Paths> groupBrackets(const Paths& files, int size, const std::function<bool()>& cancel)
{
    std::vector<Paths> brackets;
    if (size > 0) {
        brackets = bySize(files, static_cast<std::size_t>(size));
    } else {
        brackets = byGroups(files, cancel);
        checkSizes(brackets);
    }
    if (brackets.size() < 2)
        refuse("a panorama needs two brackets or more");
    return brackets;
}

} // namespace orvo::jobs
