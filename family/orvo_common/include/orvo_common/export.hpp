/// Marks the symbols that the shared library exports; all others stay hidden.
#pragma once

#define ORVO_EXPORT __attribute__((visibility("default")))
