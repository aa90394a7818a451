#include <orvo_extensions/bracket.hpp>

namespace orvo::BracketSettings {

RawAutoCorrection::RawAutoCorrection() = default;
RawAutoCorrection& RawAutoCorrection::operator=(const RawAutoCorrection&) = default;

Adjust::Adjust() = default;
Adjust& Adjust::operator=(const Adjust&) = default;

GhostReduction::GhostReduction() = default;
GhostReduction& GhostReduction::operator=(const GhostReduction&) = default;

FocusStacking::FocusStacking() { ghostReduction.enabled = false; }
FocusStacking& FocusStacking::operator=(const FocusStacking&) = default;

} // namespace orvo::BracketSettings
