/// Callbacks on detached threads.
#pragma once

#include <functional>

namespace orvo {

/// Runs `call` on a new detached thread, or on this one if no thread can be started. Logs what it throws. There,
/// lastFailure() is that of the calling thread.
void callDetached(std::function<void()> call);

} // namespace orvo
