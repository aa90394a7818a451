/// Converts paths to text and back, independent of the locale.
#pragma once

#include <orvo_common/export.hpp>

#include <filesystem>
#include <string>

namespace orvo {

/// The wide text of a path. On systems whose file names are bytes they are read as UTF-8; a byte that is not part of
/// a character becomes U+DC00 plus its value (as in Python's PEP 383), so that every name has a unique text.
/// std::filesystem::path::wstring() does not work here: it depends on the locale, and throws on unknown characters.
[[nodiscard]] ORVO_EXPORT std::wstring wideFromPath(const std::filesystem::path& path);

/// The path of such a text. A code unit that is neither a character nor such a byte becomes U+FFFD.
[[nodiscard]] ORVO_EXPORT std::filesystem::path pathFromWide(const std::wstring& wide);

/// The text of a path for messages, logs and JSON: UTF-8. Where file names are bytes these are given as they are.
/// std::filesystem::path::string() does not work here: on Windows it throws where the code page of the system lacks a
/// character.
[[nodiscard]] ORVO_EXPORT std::string pathText(const std::filesystem::path& path);

} // namespace orvo
