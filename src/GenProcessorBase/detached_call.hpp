/// Callbacks on threads of their own.
#pragma once

#include <functional>

namespace orvo {

/// Runs `call` on a new thread that nobody waits for; if there is none to be had, right here. What it throws is logged.
void callDetached(std::function<void()> call);

} // namespace orvo
