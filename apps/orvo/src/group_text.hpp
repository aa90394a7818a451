/// Groups of pictures for the terminal and for scripts.
#pragma once

#include <jobs/groups_job.hpp>

#include <nlohmann/json.hpp>

#include <string>

namespace orvo::cli {

/// One line with the kind, the pictures and the evidence.
[[nodiscard]] std::string groupLine(const PictureGroup& group);

[[nodiscard]] nlohmann::ordered_json groupAsJson(const PictureGroup& group);

/// Such as "bracket".
[[nodiscard]] const char* nameOf(PictureGroupKind kind);

[[nodiscard]] nlohmann::ordered_json leftOutAsJson(const std::vector<jobs::LeftOutFile>& leftOut);

} // namespace orvo::cli
