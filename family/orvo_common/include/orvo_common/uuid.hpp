/// New ids as text.
#pragma once

#include <orvo_common/export.hpp>

#include <string>

namespace orvo {

/// A new random id, version 4 of RFC 4122, in its 36-character lower-case form. Usable from any thread.
[[nodiscard]] ORVO_EXPORT std::string generateUUID();

} // namespace orvo
