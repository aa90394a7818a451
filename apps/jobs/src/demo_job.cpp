#include "run_job.hpp"

#include <jobs/demo_job.hpp>
#include <scenes/bracket_files.hpp>

#include <array>
#include <memory>
#include <system_error>

namespace orvo::jobs {
namespace {

namespace fs = std::filesystem;

/// One bracket of the demonstration, before its size is known.
struct Exhibit
{
    const char* name; ///< of its folder, and the beginning of the name of its result
    const char* about;
    scenes::BracketFileFormat format;
    const char* frameEnding;
    const char* resultEnding;
    std::vector<double> evs; ///< not in order, as cameras shoot them
    bool handheld;
    bool walker;
};

const std::array<Exhibit, 3>& exhibits()
{
    static const std::array<Exhibit, 3> all = {
        Exhibit{"handheld",
                "Three JPEGs taken by hand while a person walks by; aligned, the person kept as in the middle frame.",
                scenes::BracketFileFormat::Jpeg,
                ".jpg",
                ".jpg",
                {0.0, -3.0, 3.0},
                true,
                true},
        Exhibit{"tripod",
                "Five TIFFs of 16 bits from a tripod, eight stops from the darkest to the brightest.",
                scenes::BracketFileFormat::Tiff16,
                ".tiff",
                ".tif",
                {0.0, -2.0, 2.0, -4.0, 4.0},
                false,
                false},
        Exhibit{"raw",
                "Three raw DNGs taken by hand; developed and aligned.",
                scenes::BracketFileFormat::Dng,
                ".dng",
                ".tif",
                {0.0, -3.0, 3.0},
                true,
                false},
    };
    return all;
}

constexpr double kRenderShare = 0.4; // of the time of one bracket, the rest is the merge

scenes::BracketRecipe recipeOf(const Exhibit& exhibit, _Size<int> size)
{
    scenes::BracketRecipe recipe;
    recipe.scene.size = size;
    recipe.evs = exhibit.evs;
    recipe.camera.noise = scenes::SensorNoise{};
    if (exhibit.format == scenes::BracketFileFormat::Jpeg)
        recipe.camera.response = scenes::ResponseCurve::Filmic;
    if (exhibit.handheld) {
        constexpr double kShake = 0.004; // of the picture's height: a calm hand
        constexpr double kTurnDegrees = 0.12;
        const scenes::CameraView amplitude{
            .rotationDegrees = kTurnDegrees, .shiftX = kShake * size.height, .shiftY = kShake * size.height};
        recipe.views = scenes::handShake(exhibit.evs.size(), 0, amplitude, /*seed=*/7);
    }
    for (std::size_t i = 0; exhibit.walker && i < exhibit.evs.size(); ++i) {
        const double step = static_cast<double>(i);
        recipe.subjects.push_back({.x = (0.66 + 0.11 * step) * size.width, // along the brick wall
                                   .y = 0.97 * size.height,
                                   .height = 0.6 * size.height,
                                   .stride = 0.5 + 0.7 * step});
    }
    return recipe;
}

void makeFolder(const fs::path& folder)
{
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        throw JobError(JobOutcome::Failed, folder.string() + ": the folder cannot be made: " + error.message());
}

class DemoRun
{
public:
    DemoRun(const DemoJobRequest& request_, const JobCallbacks& callbacks_, DemoJobResult& result_)
        : request(request_), callbacks(callbacks_), result(result_), size{request_.size, request_.size * 2 / 3}
    {}

    void run()
    {
        for (const Exhibit& exhibit : exhibits())
            show(exhibit);
    }

private:
    void report(JobStep step, double fractionOfBracket) const
    {
        if (callbacks.progress)
            callbacks.progress({step, (static_cast<double>(result.brackets.size()) + fractionOfBracket) /
                                          static_cast<double>(exhibits().size())});
    }

    void show(const Exhibit& exhibit)
    {
        DemoBracket bracket{exhibit.about, render(exhibit), {}};
        HdrJobRequest merge;
        merge.frames = bracket.frames;
        merge.output = request.folder / (exhibit.name + std::string("-merged") + exhibit.resultEnding);
        merge.align = exhibit.handheld;
        if (exhibit.walker)
            merge.deghost = DeghostAmount::Medium;
        const auto follow = [this](const JobProgress& progress) {
            report(progress.step, kRenderShare + (1.0 - kRenderShare) * progress.fraction);
        };
        bracket.merged = hdrJob(merge, {follow, callbacks.cancelFlag});
        if (!bracket.merged.done())
            throw JobError(bracket.merged.outcome, bracket.merged.message);
        result.brackets.push_back(std::move(bracket));
    }

    std::vector<fs::path> render(const Exhibit& exhibit)
    {
        const fs::path folder = request.folder / exhibit.name;
        makeFolder(folder);
        std::unique_ptr<scenes::Bracket> bracket;
        std::vector<fs::path> frames;
        for (std::size_t i = 0; i < exhibit.evs.size(); ++i) {
            throwIfCancelled(callbacks);
            report(JobStep::Render, kRenderShare * static_cast<double>(i) / static_cast<double>(exhibit.evs.size()));
            frames.push_back(folder / ("frame_" + std::to_string(i) + exhibit.frameEnding));
            if (request.keep && fs::exists(frames.back()))
                continue;
            if (!bracket)
                bracket = std::make_unique<scenes::Bracket>(recipeOf(exhibit, size), scene());
            // Under a name of its own first: a half-written frame must not be kept by the next run.
            const scenes::BracketFileSettings file{.format = exhibit.format, .prefix = ".part"};
            fs::rename(scenes::writeFrame(*bracket, i, folder, file), frames.back());
        }
        return frames;
    }

    /// The room of all brackets, painted when the first frame is missing.
    const std::shared_ptr<const scenes::RadianceScene>& scene()
    {
        if (!room)
            room = std::make_shared<scenes::RadianceScene>(scenes::SceneSettings{.size = size});
        return room;
    }

    const DemoJobRequest& request;
    const JobCallbacks& callbacks;
    DemoJobResult& result;
    const _Size<int> size;
    std::shared_ptr<const scenes::RadianceScene> room;
};

} // namespace

DemoJobResult demoJob(const DemoJobRequest& request, const JobCallbacks& callbacks)
{
    DemoJobResult result;
    runJob(result, callbacks, [&] {
        if (request.size < kSmallestDemo || request.size > kLargestDemo)
            throw JobError(JobOutcome::Refused, "the size of the pictures is " + std::to_string(request.size) +
                                                    ", expected " + std::to_string(kSmallestDemo) + " to " +
                                                    std::to_string(kLargestDemo));
        makeFolder(request.folder);
        DemoRun(request, callbacks, result).run();
    });
    return result;
}

} // namespace orvo::jobs
