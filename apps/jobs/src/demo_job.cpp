#include "demo_sheet.hpp"
#include "run_job.hpp"

#include <jobs/demo_job.hpp>
#include <jobs/erase_job.hpp>
#include <jobs/expand_job.hpp>
#include <jobs/hdr_job.hpp>
#include <jobs/pano_job.hpp>
#include <jobs/restore_job.hpp>
#include <jobs/stack_job.hpp>
#include <jobs/upscale_job.hpp>
#include <orvo_io/image_reader.hpp>
#include <scenes/bracket_files.hpp>
#include <scenes/focus_series_files.hpp>
#include <scenes/sphere_view_files.hpp>

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <system_error>

namespace orvo::jobs {
namespace {

namespace fs = std::filesystem;

/// A bracket of the demonstration, independent of its size.
struct Exhibit
{
    const char* name; ///< of its folder, and the prefix of its result
    const char* about;
    scenes::BracketFileFormat format;
    const char* frameEnding;
    const char* resultEnding;
    std::vector<double> evs; ///< not sorted, as in cameras
    bool handheld;
    bool walker;
};

const std::array<Exhibit, 3>& exhibits()
{
    static const std::array<Exhibit, 3> all = {
        Exhibit{"handheld",
                "Three handheld JPEGs with a person walking by; aligned, the person kept as in the middle frame.",
                scenes::BracketFileFormat::Jpeg,
                ".jpg",
                ".jpg",
                {0.0, -3.0, 3.0},
                true,
                true},
        Exhibit{"tripod",
                "Five 16-bit TIFFs from a tripod, eight stops from the darkest to the brightest.",
                scenes::BracketFileFormat::Tiff16,
                ".tiff",
                ".tif",
                {0.0, -2.0, 2.0, -4.0, 4.0},
                false,
                false},
        Exhibit{"raw",
                "Three handheld raw DNGs; developed and aligned.",
                scenes::BracketFileFormat::Dng,
                ".dng",
                ".tif",
                {0.0, -3.0, 3.0},
                true,
                false},
    };
    return all;
}

constexpr double kRenderShare = 0.4;   // of the time of a piece; the rest is its job
constexpr const char* kPart = ".part"; // prefix of the name of an incomplete frame

scenes::BracketRecipe recipeOf(const Exhibit& exhibit, _Size<int> size)
{
    scenes::BracketRecipe recipe;
    recipe.scene.size = size;
    recipe.evs = exhibit.evs;
    recipe.camera.noise = scenes::SensorNoise{};
    if (exhibit.format == scenes::BracketFileFormat::Jpeg)
        recipe.camera.response = scenes::ResponseCurve::Filmic;
    if (exhibit.handheld) {
        constexpr double kShake = 0.004; // of the picture's height: a steady hand
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
        throw FailureError({kindOfSystemError(error.value(), FailureKind::Internal), folder,
                            "cannot create the folder: " + error.message()});
}

/// A table with objects, focused from near to far by a steady hand, through a lens that breathes.
scenes::FocusSeriesSettings focusRecipe(_Size<int> size)
{
    scenes::FocusSeriesSettings recipe;
    recipe.size = size;
    recipe.frames = 8; // enough for every point to be sharp in one of them
    recipe.breathing = 0.02;
    constexpr double kShake = 0.002; // of the picture's height: leaning on the table
    recipe.shake = {.shiftX = kShake * size.height, .shiftY = kShake * size.height, .rotationDegrees = 0.05};
    recipe.noise = scenes::SensorNoise{};
    return recipe;
}

/// One shot of the room, for operations on a single picture.
scenes::BracketRecipe smallRecipe(_Size<int> size, double isoSpeed = 100.0)
{
    scenes::BracketRecipe recipe;
    recipe.scene.size = size;
    recipe.evs = {0.0};
    recipe.camera.noise = scenes::SensorNoise{};
    recipe.camera.response = scenes::ResponseCurve::Filmic;
    recipe.base.isoSpeed = isoSpeed;
    recipe.base.shutterSeconds *= 100.0 / isoSpeed;
    return recipe;
}

/// A brush stroke over the person in the merged handheld bracket, who stays as in its middle frame.
std::vector<BrushPoint> strokeOver(_Size<int> size)
{
    const auto width = static_cast<float>(size.width);
    const auto height = static_cast<float>(size.height);
    return {{0.654f * width, 0.402f * height, 0.0524f * width}, {0.654f * width, 0.939f * height, 0.0597f * width}};
}

/// Handheld views of a surrounding scene, each rotated relative to the previous one and with a different exposure.
std::vector<scenes::SphereView> viewsAround(int pictureSide)
{
    constexpr int kSmallestView = 400; // pixels; smaller views have too few features to match their neighbours
    const int side = std::max(kSmallestView, pictureSide / 2);
    scenes::SphereView view;
    view.size = {side, side * 2 / 3};
    view.focal = side;
    view.vignetting = {0.1, 0.02, 0.0};
    view.noise = 0.004;
    constexpr double kStepDegrees = 22.0; // half of a view overlaps the next one
    auto views = scenes::rowOfViews(4, kStepDegrees, /*pitch=*/4.0, view, /*shake=*/1.0, /*seed=*/5);
    for (std::size_t i = 0; i < views.size(); ++i)
        views[i].ev = i % 2 == 0 ? 0.0 : 0.3;
    return views;
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
            showBracket(exhibit);
        room.reset();
        showFocusSeries();
        showSmallPicture();
        showViewsAround();
        showErasing();
        showExpanding();
        showRestoring();
    }

private:
    void report(JobProgress progress, double fractionOfPiece) const
    {
        constexpr std::size_t kOthers = 6; // pieces in addition to the brackets
        progress.fraction = (static_cast<double>(result.pieces.size()) + fractionOfPiece) /
                            static_cast<double>(exhibits().size() + kOthers);
        if (callbacks.progress)
            callbacks.progress(progress);
    }

    /// Runs `job` on the frames of a piece; the request names the result.
    template <typename Request>
    void finish(DemoPiece piece, const Request& work, PictureJobResult (*job)(const Request&, const JobCallbacks&),
                SheetPart part = SheetPart::Whole)
    {
        const auto follow = [this](const JobProgress& progress) {
            report(progress, kRenderShare + (1.0 - kRenderShare) * progress.fraction);
        };
        const PictureJobResult done = job(work, {follow, callbacks.cancelFlag});
        if (done.failure)
            throw FailureError(*done.failure);
        if (!done.done())
            throw JobRefusal(done.message);
        piece.result = done.output;
        if (request.sheets) {
            makeFolder(request.folder / "sheets");
            piece.sheet = request.folder / "sheets" / done.output.stem().concat(".jpg");
            writeDemoSheet(piece.frames, piece.result, part, piece.sheet);
        }
        result.pieces.push_back(std::move(piece));
    }

    void showBracket(const Exhibit& exhibit)
    {
        const DemoPiece piece{exhibit.about, bracketFrames(exhibit), "merged", {}, {}};
        HdrJobRequest merge;
        merge.frames = piece.frames;
        merge.output = request.folder / (exhibit.name + std::string("-merged") + exhibit.resultEnding);
        merge.align = exhibit.handheld;
        if (exhibit.walker)
            merge.deghost = DeghostAmount::Medium;
        finish<HdrJobRequest>(piece, merge, [](const HdrJobRequest& work, const JobCallbacks& follow) {
            return PictureJobResult(hdrJob(work, follow));
        });
    }

    void showFocusSeries()
    {
        std::unique_ptr<scenes::FocusSeries> series;
        const auto recipe = focusRecipe(size);
        const auto write = [&](std::size_t i, const fs::path& folder) {
            if (!series)
                series = std::make_unique<scenes::FocusSeries>(recipe);
            return scenes::writeFocusFrame(*series, static_cast<int>(i), folder, {.prefix = kPart});
        };
        const DemoPiece piece{"Eight handheld JPEGs of a table, focused from near to far; aligned and stacked.",
                              frames("focus", ".jpg", static_cast<std::size_t>(recipe.frames), write),
                              "stacked",
                              {},
                              {}};
        series.reset();
        StackJobRequest stack;
        stack.frames = piece.frames;
        stack.output = request.folder / "focus-stacked.jpg";
        finish<StackJobRequest>(piece, stack, [](const StackJobRequest& work, const JobCallbacks& follow) {
            return PictureJobResult(stackJob(work, follow));
        });
    }

    void showSmallPicture()
    {
        constexpr int kSmaller = 3;
        const auto write = [&](std::size_t i, const fs::path& folder) {
            const scenes::Bracket shot(smallRecipe({size.width / kSmaller, size.height / kSmaller}));
            return scenes::writeFrame(shot, i, folder, {.prefix = kPart});
        };
        const DemoPiece piece{"One small JPEG; enlarged to twice its width and height.",
                              frames("small", ".jpg", 1, write),
                              "enlarged",
                              {},
                              {}};
        UpscaleJobRequest upscale;
        upscale.source = piece.frames.front();
        upscale.output = request.folder / "small-enlarged.jpg";
        finish<UpscaleJobRequest>(
            piece, upscale,
            [](const UpscaleJobRequest& work, const JobCallbacks& follow) {
                return PictureJobResult(upscaleJob(work, follow));
            },
            SheetPart::Detail);
    }

    void showViewsAround()
    {
        const auto views = viewsAround(request.size);
        const scenes::SphereScene world;
        const auto write = [&](std::size_t i, const fs::path& folder) {
            const fs::path path = folder / (kPart + std::to_string(i) + ".jpg");
            scenes::writeSphereView(world, views[i], path, {.noiseSeed = i + 1});
            return path;
        };
        const DemoPiece piece{"Four handheld JPEGs from one point, each turned to the right; stitched.",
                              frames("around", ".jpg", views.size(), write),
                              "stitched",
                              {},
                              {}};
        PanoJobRequest pano;
        pano.files = piece.frames;
        pano.output = request.folder / "around-stitched.jpg";
        pano.devignette = true;
        finish<PanoJobRequest>(piece, pano, [](const PanoJobRequest& work, const JobCallbacks& follow) {
            return PictureJobResult(panoJob(work, follow));
        });
    }

    void showErasing()
    {
        const fs::path frame = result.pieces.front().result;
        EraseJobRequest erase;
        erase.source = frame;
        const auto metadata = ImageReader::readMetadata(frame);
        if (!metadata)
            throwLastFailure("the picture cannot be read");
        erase.strokes = {strokeOver(metadata->size)};
        erase.output = request.folder / "person-erased.jpg";
        finish<EraseJobRequest>({"The merged handheld bracket; the person erased.", {frame}, "erased", {}, {}}, erase,
                                [](const EraseJobRequest& work, const JobCallbacks& follow) {
                                    return PictureJobResult(eraseJob(work, follow));
                                });
    }

    void showExpanding()
    {
        const fs::path frame = request.folder / "small" / "frame_0.jpg";
        ExpandJobRequest expand;
        expand.source = frame;
        const BorderWidth border{6.0, true};
        expand.add = BorderWidths{border, border, border, border};
        expand.output = request.folder / "small-expanded.jpg";
        finish<ExpandJobRequest>({"The small JPEG; 6 percent added on each side.", {frame}, "expanded", {}, {}}, expand,
                                 [](const ExpandJobRequest& work, const JobCallbacks& follow) {
                                     return PictureJobResult(expandJob(work, follow));
                                 });
    }

    void showRestoring()
    {
        constexpr int kSmaller = 2;
        constexpr double kHighIso = 6400.0;
        const auto write = [&](std::size_t i, const fs::path& folder) {
            const scenes::Bracket shot(smallRecipe({size.width / kSmaller, size.height / kSmaller}, kHighIso));
            return scenes::writeFrame(shot, i, folder, {.prefix = kPart});
        };
        const DemoPiece piece{
            "One JPEG at ISO 6400; less noise.", frames("noisy", ".jpg", 1, write), "restored", {}, {}};
        RestoreJobRequest restore;
        restore.source = piece.frames.front();
        restore.output = request.folder / "noisy-restored.jpg";
        finish<RestoreJobRequest>(
            piece, restore,
            [](const RestoreJobRequest& work, const JobCallbacks& follow) {
                return PictureJobResult(restoreJob(work, follow));
            },
            SheetPart::Detail);
    }

    std::vector<fs::path> bracketFrames(const Exhibit& exhibit)
    {
        std::unique_ptr<scenes::Bracket> bracket;
        return frames(exhibit.name, exhibit.frameEnding, exhibit.evs.size(),
                      [&](std::size_t i, const fs::path& folder) {
                          if (!bracket)
                              bracket = std::make_unique<scenes::Bracket>(recipeOf(exhibit, size), scene());
                          return scenes::writeFrame(*bracket, i, folder, {.format = exhibit.format, .prefix = kPart});
                      });
    }

    /// The frames of a piece in the folder `name`. `write` creates each under a temporary name first: the next run must
    /// not keep a partial frame.
    std::vector<fs::path> frames(const std::string& name, const std::string& ending, std::size_t count,
                                 const std::function<fs::path(std::size_t, const fs::path&)>& write)
    {
        const fs::path folder = request.folder / name;
        makeFolder(folder);
        std::vector<fs::path> paths;
        for (std::size_t i = 0; i < count; ++i) {
            throwIfCancelled(callbacks);
            report({JobStep::Render}, kRenderShare * static_cast<double>(i) / static_cast<double>(count));
            paths.push_back(folder / ("frame_" + std::to_string(i) + ending));
            if (!request.keep || !fs::exists(paths.back()))
                fs::rename(write(i, folder), paths.back());
        }
        return paths;
    }

    /// The room of all brackets, rendered when the first frame is missing.
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
            throw JobRefusal("the size of the pictures is " + std::to_string(request.size) + ", expected " +
                             std::to_string(kSmallestDemo) + " to " + std::to_string(kLargestDemo));
        makeFolder(request.folder);
        DemoRun(request, callbacks, result).run();
    });
    return result;
}

} // namespace orvo::jobs
