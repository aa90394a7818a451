#include "group_text.hpp"

#include "output.hpp"
#include "picture_command.hpp"

#include <orvo_common/wide_path.hpp>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace orvo::cli {
namespace {

[[gnu::format(printf, 1, 2)]] std::string formatted(const char* format, ...)
{
    char text[128];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    return text;
}

void add(std::string& list, const std::string& item) { list += (list.empty() ? "" : ", ") + item; }

std::string evText(float ev) { return formatted("%+.1f", static_cast<double>(ev) + 0.0); }

ValueRange rangeOf(const std::vector<float>& values)
{
    const auto [least, most] = std::minmax_element(values.begin(), values.end());
    return {*least, *most};
}

const char* exposureWord(const GroupEvidence& evidence) { return evidence.exposureFromMetadata ? "EV" : "brightness"; }

/// "EV -2.0 +0.0 +2.0"; a long bracket shows its range.
std::string exposures(const GroupEvidence& evidence, std::size_t count)
{
    constexpr std::size_t kMostListed = 9;
    std::string text = exposureWord(evidence);
    if (count > kMostListed) {
        const ValueRange range = rangeOf(evidence.evs);
        return text + " " + evText(range.least) + " to " + evText(range.most);
    }
    // The first bracket of several, around its own middle.
    std::vector<float> sorted(evidence.evs.begin(), evidence.evs.begin() + static_cast<std::ptrdiff_t>(count));
    std::sort(sorted.begin(), sorted.end());
    for (std::size_t i = 0; i < count; ++i)
        text += " " + evText(evidence.evs[i] - sorted[count / 2]);
    return text;
}

std::string equalExposure(const GroupEvidence& evidence)
{
    const ValueRange range = rangeOf(evidence.evs);
    constexpr float kVisible = 0.05f; // EV
    if (range.most - range.least < kVisible)
        return std::string("same ") + (evidence.exposureFromMetadata ? "exposure" : "brightness");
    return formatted("%s within %.1f", exposureWord(evidence), static_cast<double>(range.most - range.least));
}

std::string overlapText(const char* what, const ValueRange& overlap)
{
    const long least = std::lround(100.0 * static_cast<double>(overlap.least));
    const long most = std::lround(100.0 * static_cast<double>(overlap.most));
    return least == most ? formatted("%s %ld %%", what, least) : formatted("%s %ld to %ld %%", what, least, most);
}

std::string focusText(const GroupEvidence& evidence)
{
    if (!evidence.focusDistances.empty())
        return formatted("focus %.2f to %.2f m", static_cast<double>(evidence.focusDistances.front()),
                         static_cast<double>(evidence.focusDistances.back()));
    return evidence.sharpnessChange
               ? formatted("sharpness moves by %.1f octaves", static_cast<double>(*evidence.sharpnessChange))
               : std::string();
}

std::string timeText(const GroupEvidence& evidence)
{
    if (!evidence.seconds)
        return "no times, in the given order";
    return formatted(*evidence.seconds < 10.0 ? "within %.1f s" : "within %.0f s", *evidence.seconds);
}

std::string reasons(const PictureGroup& group)
{
    const GroupEvidence& evidence = group.evidence;
    std::string text;
    switch (group.kind) {
    case PictureGroupKind::Single:
        if (evidence.alike > 0)
            return "framing and exposure as " + counted(evidence.alike, "neighbour") + ", focus does not move";
        return "no neighbour belongs to it";
    case PictureGroupKind::Bracket:
        add(text, exposures(evidence, group.paths.size()));
        if (evidence.overlap)
            add(text, overlapText("same framing", *evidence.overlap));
        break;
    case PictureGroupKind::FocusSeries:
        add(text, focusText(evidence));
        add(text, equalExposure(evidence));
        if (evidence.overlap)
            add(text, overlapText("same framing", *evidence.overlap));
        break;
    case PictureGroupKind::Panorama:
        if (evidence.overlap)
            add(text, overlapText("neighbours overlap", *evidence.overlap));
        add(text, equalExposure(evidence));
        break;
    case PictureGroupKind::BracketPanorama:
        add(text, counted(group.paths.size() / group.bracketSize, "bracket") + " of " +
                      exposures(evidence, group.bracketSize));
        if (evidence.overlap)
            add(text, overlapText("neighbours overlap", *evidence.overlap));
        break;
    }
    add(text, timeText(evidence));
    return text;
}

std::string members(const PictureGroup& group)
{
    const std::string first = pathText(group.paths.front());
    if (group.paths.size() == 1)
        return first;
    const auto& last = group.paths.back();
    const bool isOneFolder = last.parent_path() == group.paths.front().parent_path();
    return first + " .. " + pathText(isOneFolder ? last.filename() : last);
}

nlohmann::ordered_json rangeAsJson(const ValueRange& range) { return {{"least", range.least}, {"most", range.most}}; }

const char* nameOf(jobs::LeftOutReason reason)
{
    switch (reason) {
    case jobs::LeftOutReason::Video:
        return "video";
    case jobs::LeftOutReason::NoPicture:
        return "no-picture";
    case jobs::LeftOutReason::Result:
        return "result";
    case jobs::LeftOutReason::Double:
        return "double";
    case jobs::LeftOutReason::Folder:
        return "folder";
    }
    return "";
}

} // namespace

const char* nameOf(PictureGroupKind kind)
{
    switch (kind) {
    case PictureGroupKind::Single:
        return "single";
    case PictureGroupKind::Bracket:
        return "bracket";
    case PictureGroupKind::FocusSeries:
        return "focus";
    case PictureGroupKind::Panorama:
        return "panorama";
    case PictureGroupKind::BracketPanorama:
        return "bracket-panorama";
    }
    return "";
}

std::string groupLine(const PictureGroup& group)
{
    return formatted("%-17s%3zu  ", nameOf(group.kind), group.paths.size()) + printable(members(group)) + ": " +
           reasons(group) + "\n";
}

nlohmann::ordered_json groupAsJson(const PictureGroup& group)
{
    const GroupEvidence& evidence = group.evidence;
    nlohmann::ordered_json json = {{"kind", nameOf(group.kind)}};
    if (group.bracketSize > 0)
        json["bracket_size"] = group.bracketSize;
    json["files"] = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < group.paths.size(); ++i) {
        json["files"].push_back({{"path", pathText(group.paths[i])}, {"ev", evidence.evs[i]}});
        if (!evidence.focusDistances.empty())
            json["files"].back()["focus_distance_metres"] = evidence.focusDistances[i];
    }
    auto& reason = json["evidence"];
    reason["exposure"] = evidence.exposureFromMetadata ? "metadata" : "brightness";
    reason["order"] = evidence.seconds ? "times" : "given";
    if (evidence.seconds)
        reason["seconds"] = *evidence.seconds;
    if (evidence.overlap)
        reason["overlap"] = rangeAsJson(*evidence.overlap);
    if (evidence.sharpnessChange)
        reason["sharpness_change_octaves"] = *evidence.sharpnessChange;
    if (group.kind == PictureGroupKind::Single)
        reason["alike"] = evidence.alike;
    return json;
}

nlohmann::ordered_json leftOutAsJson(const std::vector<jobs::LeftOutFile>& leftOut)
{
    auto json = nlohmann::ordered_json::array();
    for (const auto& file : leftOut)
        json.push_back({{"path", pathText(file.path)}, {"reason", nameOf(file.reason)}});
    return json;
}

} // namespace orvo::cli
