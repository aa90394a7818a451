/// Why an operation returned nothing: Failure, lastFailure(), lastWarnings(), lastShortfalls().
///
/// Example:
///
///     const auto [merged, middle] = orvo::make_HDR(paths, settings, {}, nullptr);
///     if (!merged)
///         if (const auto failure = orvo::lastFailure())
///             std::puts(orvo::describe(*failure).c_str()); // "b.jpg: the file is empty"
#pragma once

#include <orvo_common/failure.hpp>
