#include <orvo_core/image_metadata.hpp>

namespace orvo {

AdditionalRawMetadata::~AdditionalRawMetadata() = default;

AdditionalRawMetadataSync::AdditionalRawMetadataSync(float autoDetectedTone) : tone(autoDetectedTone) {}

AdditionalRawMetadataSync::~AdditionalRawMetadataSync() = default;

} // namespace orvo
