/// Which pictures of a memory card belong together: brackets, focus series, panoramas.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_extensions/failure.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

namespace orvo {

enum class PictureGroupKind : std::int32_t
{
    Single,          ///< one picture, which belongs to no other
    Bracket,         ///< one framing, different exposures
    FocusSeries,     ///< one framing, one exposure, different planes of focus
    Panorama,        ///< framings that overlap
    BracketPanorama, ///< brackets whose framings overlap
};

/// The smallest and the largest of some values.
struct ValueRange
{
    float least = 0.0f;
    float most = 0.0f;
};

/// Why pictures form a group, or why a single picture forms none. What was not looked at is empty.
struct GroupEvidence
{
    /// From the first to the last capture; empty if a picture has no time. Without times the given order counts.
    std::optional<double> seconds;
    /// Whether the exposures are those of the metadata; else they are measured in the pictures.
    bool exposureFromMetadata = false;
    /// EV of each picture relative to the middle one by exposure, in the order of the paths.
    std::vector<float> evs;
    /// Focus distance of each picture in m, in the order of the paths; empty if one has none, or if it does not change.
    std::vector<float> focusDistances;
    /// How far the sharp part of the picture moves from the first to the last picture: the difference in octaves of
    /// fine detail between the tiles that gain and those that lose. Empty if it was not measured.
    std::optional<float> sharpnessChange;
    /// Shares of a picture that its neighbours in the group show too, 0..1; of bracket panoramas between brackets.
    std::optional<ValueRange> overlap;
    /// Single: how many neighbours have the same framing and exposure, as in a burst.
    std::size_t alike = 0;
};

struct PictureGroup
{
    PictureGroupKind kind = PictureGroupKind::Single;
    /// In the order of capture: by the times of the camera, without times in the given order.
    std::vector<std::filesystem::path> paths;
    /// BracketPanorama: every so many neighbours are a bracket. Bracket: the number of paths. Else 0.
    std::size_t bracketSize = 0;
    GroupEvidence evidence;
};

struct PictureGroups
{
    std::vector<PictureGroup> groups; ///< each path is in one of them; in the given order of their first pictures
    std::vector<Failure> unreadable;  ///< files that are in no group, in the given order
};

/// Reads metadata and thumbnails only. Pictures of different cameras (maker, model, serial number) never share a group,
/// so interleaved cards are separated. A file without exposure data is judged by its brightness, and one without times
/// by its position among `paths`. The result does not depend on the number of threads.
///
/// Framings are compared by local features of thumbnails and the homography between them; docs/groups.md has the rules.
/// Peak: about 0.2 MB for each picture.
///
/// Empty on failure and on cancel, with the reason in lastFailure(). `progress`, if any, gets the finished share of the
/// pictures, 0 to 1, and `cancel` is polled, both on the calling thread.
[[nodiscard]] ORVO_EXPORT PictureGroups groupPictures(const std::vector<std::filesystem::path>& paths,
                                                      const std::function<void(float)>& progress = {},
                                                      const std::function<bool()>& cancel = {});

} // namespace orvo
