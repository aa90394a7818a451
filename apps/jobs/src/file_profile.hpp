/// Chooses the colour space of a result file.
#pragma once

#include <orvo_core/color_profile.hpp>

#include <memory>

namespace orvo::jobs {

/// `own`, the profile of a source file, if it is an RGB matrix profile with a curve; else sRGB. `own` may be empty.
[[nodiscard]] std::shared_ptr<ColorProfile> profileForResult(const std::shared_ptr<ColorProfile>& own);

} // namespace orvo::jobs
