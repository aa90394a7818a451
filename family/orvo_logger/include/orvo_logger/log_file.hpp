/// How the log file fared.
#pragma once

#include <orvo_common/export.hpp>

namespace orvo {

/// Whether all lines since the last setLogFile() were written; false where the disk is full, for example.
[[nodiscard]] ORVO_EXPORT bool logFileIsWhole();

} // namespace orvo
