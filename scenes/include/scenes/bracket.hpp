/// Exposure brackets with all that is true of them.
#pragma once

#include <scenes/camera.hpp>

#include <memory>
#include <vector>

namespace orvo::scenes {

/// What a bracket is to be. Lists per frame are empty or have as many entries as `evs`.
struct BracketRecipe
{
    SceneSettings scene;
    std::vector<double> evs{-2.0, 0.0, 2.0}; ///< of each frame, in the order of the shots, against `base`
    ExposureSettings base;                   ///< the shutter time changes by the EV, the rest stays
    CameraSettings camera;
    std::vector<CameraView> views;          ///< empty: a tripod
    std::vector<SubjectPlacement> subjects; ///< empty: nobody walks by
    std::uint64_t noiseSeed = 1;            ///< each frame draws noise of its own from it
};

/// One frame and its truth.
struct Frame
{
    std::shared_ptr<Picture> picture; ///< encoded values
    Shot shot;
    double ev = 0.0; ///< exposureValue() of the shot
    Homography sceneFromFrame = kIdentity;
    std::shared_ptr<MaskImage> subject; ///< coverage by the walker; empty if the bracket has none
};

/// Frames are made when asked for, so a bracket holds the scene only. Immutable, usable from any thread.
class Bracket
{
public:
    /// Throws std::invalid_argument that names the field if lists of the recipe do not fit its EVs, or as
    /// RadianceScene does.
    explicit Bracket(const BracketRecipe& recipe);
    /// In a scene that is there already; recipe.scene is not looked at.
    Bracket(const BracketRecipe& recipe, std::shared_ptr<const RadianceScene> scene);

    [[nodiscard]] const RadianceScene& scene() const { return *place; }
    [[nodiscard]] const CameraSettings& camera() const { return settings; }
    [[nodiscard]] const std::vector<Shot>& shots() const { return plan; }
    [[nodiscard]] std::size_t size() const { return plan.size(); }

    /// Throws std::out_of_range.
    [[nodiscard]] Frame frame(std::size_t index) const;
    [[nodiscard]] std::vector<Frame> frames() const;
    /// Maps pixels of frame `source` to those of frame `target`, for what does not move. Throws std::out_of_range.
    [[nodiscard]] Homography frameFromFrame(std::size_t target, std::size_t source) const;
    /// The light that frame `index` sees: seenRadiance(). Without the walker on request: the room behind.
    [[nodiscard]] std::shared_ptr<Picture> radiance(std::size_t index, bool withSubject) const;

private:
    std::shared_ptr<const RadianceScene> place;
    CameraSettings settings;
    std::vector<Shot> plan;
};

} // namespace orvo::scenes
