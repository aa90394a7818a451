#include <scenes/bracket.hpp>

#include <stdexcept>
#include <string>

namespace orvo::scenes {

namespace {

void checkCount(const char* field, std::size_t found, std::size_t expected)
{
    if (found != 0 && found != expected)
        throw std::invalid_argument(std::string("BracketRecipe.") + field + " has " + std::to_string(found) +
                                    " entries for " + std::to_string(expected) + " EVs");
}

} // namespace

Bracket::Bracket(const BracketRecipe& recipe) : Bracket(recipe, std::make_shared<RadianceScene>(recipe.scene)) {}

Bracket::Bracket(const BracketRecipe& recipe, std::shared_ptr<const RadianceScene> scene)
    : place(std::move(scene)), settings(recipe.camera)
{
    if (!place)
        throw std::invalid_argument("Bracket: the scene is missing");
    checkCount("views", recipe.views.size(), recipe.evs.size());
    checkCount("subjects", recipe.subjects.size(), recipe.evs.size());
    for (std::size_t i = 0; i < recipe.evs.size(); ++i) {
        Shot shot;
        shot.exposure = exposedBy(recipe.base, recipe.evs[i]);
        if (!recipe.views.empty())
            shot.view = recipe.views[i];
        if (!recipe.subjects.empty())
            shot.subject = recipe.subjects[i];
        shot.noiseSeed = recipe.noiseSeed * 1009 + i; // different from the frames of a bracket with the next seed
        plan.push_back(shot);
    }
}

Frame Bracket::frame(std::size_t index) const
{
    const Shot& shot = plan.at(index);
    return {takePicture(*place, settings, shot), shot, exposureValue(shot.exposure),
            sceneFromFrame(shot.view, place->size()), shot.subject ? subjectMask(*place, shot) : nullptr};
}

std::vector<Frame> Bracket::frames() const
{
    std::vector<Frame> all;
    for (std::size_t i = 0; i < plan.size(); ++i)
        all.push_back(frame(i));
    return all;
}

Homography Bracket::frameFromFrame(std::size_t target, std::size_t source) const
{
    return compose(inverse(sceneFromFrame(plan.at(target).view, place->size())),
                   sceneFromFrame(plan.at(source).view, place->size()));
}

std::shared_ptr<Picture> Bracket::radiance(std::size_t index, bool withSubject) const
{
    Shot shot = plan.at(index);
    if (!withSubject)
        shot.subject.reset();
    return seenRadiance(*place, shot);
}

} // namespace orvo::scenes
