/// Exposure brackets with their ground truth.
#pragma once

#include <scenes/camera.hpp>

#include <memory>
#include <vector>

namespace orvo::scenes {

/// Describes a bracket. Lists per frame are empty or have as many entries as `evs`.
struct BracketRecipe
{
    SceneSettings scene;
    std::vector<double> evs{-2.0, 0.0, 2.0}; ///< of each frame, in the order of the shots, relative to `base`
    ExposureSettings base;                   ///< the EV changes the shutter time only
    CameraSettings camera;
    std::vector<CameraView> views;          ///< empty: a tripod
    std::vector<SubjectPlacement> subjects; ///< empty: no walker
    std::uint64_t noiseSeed = 1;            ///< each frame derives its own noise from it
};

/// One frame and its ground truth.
struct Frame
{
    std::shared_ptr<Picture> picture; ///< encoded values
    Shot shot;
    double ev = 0.0; ///< exposureValue() of the shot
    Homography sceneFromFrame = kIdentity;
    std::shared_ptr<MaskImage> subject; ///< coverage by the walker; empty if the bracket has none
};

/// Creates frames on request, so a bracket only stores the scene. Immutable, usable from any thread.
class Bracket
{
public:
    /// Throws std::invalid_argument that names the field if lists of the recipe do not match its EVs, or as
    /// RadianceScene does.
    explicit Bracket(const BracketRecipe& recipe);
    /// Uses an existing scene; ignores recipe.scene.
    Bracket(const BracketRecipe& recipe, std::shared_ptr<const RadianceScene> scene);

    [[nodiscard]] const RadianceScene& scene() const { return *place; }
    [[nodiscard]] const CameraSettings& camera() const { return settings; }
    [[nodiscard]] const std::vector<Shot>& shots() const { return plan; }
    [[nodiscard]] std::size_t size() const { return plan.size(); }

    /// Throws std::out_of_range.
    [[nodiscard]] Frame frame(std::size_t index) const;
    [[nodiscard]] std::vector<Frame> frames() const;
    /// Maps pixels of frame `source` to those of frame `target`, for static parts. Throws std::out_of_range.
    [[nodiscard]] Homography frameFromFrame(std::size_t target, std::size_t source) const;
    /// The light that frame `index` sees: seenRadiance(). Without the walker on request: the room behind.
    [[nodiscard]] std::shared_ptr<Picture> radiance(std::size_t index, bool withSubject) const;

private:
    std::shared_ptr<const RadianceScene> place;
    CameraSettings settings;
    std::vector<Shot> plan;
};

} // namespace orvo::scenes
