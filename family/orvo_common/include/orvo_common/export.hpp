/// Marks what the shared library offers; everything else stays hidden inside it.
#pragma once

#define ORVO_EXPORT __attribute__((visibility("default")))
