// The description of the sensor's picture in a DNG, read independently of LibRaw.
#pragma once

#include "source_file.hpp"

#include <orvo_core/geometry.hpp>

namespace orvo::io {

// Throws ReadFailure if none of the directories of a DNG describes a sensor's picture of this size, or if the one that
// does contradicts itself or announces more samples than the file has. Does nothing for a file without such a
// directory, and for BigTIFF.
void checkDngTags(const SourceFile& file, _Size<int> raw);

} // namespace orvo::io
