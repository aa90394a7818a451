/// orvo pano: stitches a panorama.
#include "batch_command.hpp"
#include "picture_command.hpp"

#include <jobs/default_output.hpp>
#include <jobs/pano_job.hpp>
#include <orvo_common/wide_path.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvo::cli {
namespace {

constexpr const char* kAbout =
    "Stitches pictures that were taken from one point in different directions\n"
    "into one wide picture. In any order and in several rows; neighbours should overlap by a third.\n"
    "Also stitches exposure brackets, or a video of a pan.\n";
constexpr const char* kWhatWasDone = jobs::kDonePanorama;
constexpr const char* kExamples = "Examples:\n"
                                  "  A valley in five pictures:\n"
                                  "    orvo pano IMG_1.jpg IMG_2.jpg IMG_3.jpg IMG_4.jpg IMG_5.jpg -o valley.jpg\n"
                                  "  A facade with straight edges:\n"
                                  "    orvo pano *.jpg -o facade.tif --projection plane\n"
                                  "  Three exposures at each position, level, without ragged edges:\n"
                                  "    orvo pano --brackets *.jpg -o hall.tif --straighten --crop auto\n"
                                  "  Every panorama of a memory card, several at once:\n"
                                  "    orvo pano --batch /media/card/DCIM/100CANON -o panoramas\n"
                                  "  A pan:\n"
                                  "    orvo pano --video pan.mp4 -o pan.jpg --projection cylindrical\n"
                                  "  A small preview:\n"
                                  "    orvo pano *.jpg -o preview.jpg --max-size 1600\n";

// The first name of a projection is the one that is reported.
constexpr std::array<std::pair<std::string_view, WarpType>, 9> kProjections = {{
    {"plane", WarpType::Plane},
    {"cylindrical", WarpType::Cylindrical},
    {"spherical", WarpType::Spherical},
    {"fisheye", WarpType::Fisheye},
    {"planet", WarpType::Stereographic},
    {"mercator", WarpType::Mercator},
    {"rectilinear", WarpType::Plane},
    {"equirectangular", WarpType::Spherical},
    {"little-planet", WarpType::Stereographic},
}};

std::string_view nameOf(WarpType type)
{
    return std::find_if(kProjections.begin(), kProjections.end(), [type](const auto& p) { return p.second == type; })
        ->first;
}

WarpType projectionOf(const std::string& name)
{
    return std::find_if(kProjections.begin(), kProjections.end(), [&name](const auto& p) { return p.first == name; })
        ->second;
}

// "12:10,20,300,200" or "10,20,300,200" as numbers; empty if it is not that. `separators` between the numbers.
std::vector<double> numbersIn(const std::string& text, std::string_view separators)
{
    std::vector<double> numbers;
    std::size_t begin = 0;
    for (std::size_t i = 0; i <= separators.size(); ++i) {
        const std::size_t end = i < separators.size() ? text.find(separators[i], begin) : text.size();
        double number = 0.0;
        if (end == std::string::npos || !CLI::detail::lexical_cast(text.substr(begin, end - begin), number) ||
            !std::isfinite(number))
            return {};
        numbers.push_back(number);
        begin = end + 1;
    }
    return numbers;
}

_Rect<int> rectOf(const std::vector<double>& numbers, std::size_t first)
{
    const auto at = [&](std::size_t i) { return static_cast<int>(numbers[first + i]); };
    return {at(0), at(1), at(2), at(3)};
}

// Whole, not negative, and a rectangle with pixels in its last four.
bool areWholeWithRect(const std::vector<double>& numbers)
{
    constexpr double kMost = 1e9;
    return !numbers.empty() && numbers[numbers.size() - 1] >= 1.0 && numbers[numbers.size() - 2] >= 1.0 &&
           std::all_of(numbers.begin(), numbers.end(),
                       [](double n) { return n >= 0.0 && n <= kMost && n == std::floor(n); });
}

constexpr std::string_view kRectSeparators = ",,,";
constexpr std::string_view kFrameSeparators = ":,,,";

CLI::Validator cropText()
{
    return CLI::Validator(
        [](std::string& text) -> std::string {
            if (text == "none" || text == "auto" || areWholeWithRect(numbersIn(text, kRectSeparators)))
                return {};
            return "expected none, auto or X,Y,W,H, found " + text;
        },
        "");
}

CLI::Validator frameText()
{
    return CLI::Validator(
        [](std::string& text) -> std::string {
            return areWholeWithRect(numbersIn(text, kFrameSeparators)) ? std::string()
                                                                       : "expected N:X,Y,W,H, found " + text;
        },
        "");
}

CLI::Validator shiftText()
{
    return CLI::Validator(
        [](std::string& text) -> std::string {
            const auto numbers = numbersIn(text, ",");
            const bool fits = !numbers.empty() && std::abs(numbers[0]) <= 1.0 && std::abs(numbers[1]) <= 1.0;
            return fits ? std::string() : "expected X,Y, each -1 to 1, found " + text;
        },
        "");
}

struct PanoOptions
{
    std::vector<std::string> files;
    std::string video;
    std::vector<std::string> frames;
    std::string crop = "none";
    std::string shift;
    OutputOptions output;
    std::string projection = "spherical";
    std::optional<int> maxSize;
    jobs::PanoJobRequest request; ///< without files
    BatchOptions batch;
    RunOptions run;
};

void bindPanoOptions(Options& app, PanoOptions& options)
{
    app.add_option("--projection", options.projection,
                   "plane (rectilinear), cylindrical, spherical (equirectangular),\n"
                   "fisheye, planet (little-planet) or mercator (default: spherical)")
        ->type_name("NAME")
        ->check(oneOf(kProjections));
    app.add_option("--max-size", options.maxSize,
                   "longest side in pixels, 1 to " + std::to_string(kLongestPanoramaSide) +
                       " (default: full resolution)")
        ->type_name("N")
        ->check(between(1, kLongestPanoramaSide));
    app.add_flag("--devignette", options.request.devignette, "remove dark corners, measured in the overlaps");
    bindCorrections(app, options.request.chromaticAberrations, options.request.lensCorrection);
    bindStrict(app, options.request, "fail if a picture matches no other, instead of omitting it");
}

void bindSourceOptions(Options& app, PanoOptions& options)
{
    constexpr int kMostFrames = 1'000'000'000;
    auto* const brackets = app.add_flag("--brackets", options.request.brackets,
                                        "FILES are exposure brackets, one for each view;\n"
                                        "'orvo frames --group' shows how they are separated");
    app.add_option("--bracket-size", options.request.bracketSize,
                   "with --brackets: every N consecutive FILES are a bracket")
        ->type_name("N")
        ->needs(brackets)
        ->check(between(1, 100));
    auto* const video =
        app.add_option("--video", options.video, "stitch the video of a pan instead of FILES")->type_name("FILE");
    app.add_option("--from", options.request.from, "with --video: the first frame, from 0 (default: 0)")
        ->type_name("N")
        ->needs(video)
        ->check(between(0, kMostFrames));
    app.add_option("--to", options.request.to, "with --video: the frame after the last one (default: the end)")
        ->type_name("N")
        ->needs(video)
        ->check(between(1, kMostFrames));
    app.add_option("--frame", options.frames,
                   "with --video: also use this part of frame N, in pixels;\nmay be repeated")
        ->type_name("N:X,Y,W,H")
        ->needs(video)
        ->expected(1)
        ->take_all()
        ->check(frameText());
}

void bindViewOptions(Options& app, PanoOptions& options)
{
    app.add_option("--shift", options.shift, "move the view right and down by fractions of the canvas, -1 to 1")
        ->type_name("X,Y")
        ->check(shiftText());
    constexpr double kHalfTurn = 180.0;
    app.add_option("--turn", options.request.turnDegrees, "turn the view clockwise, -180 to 180 degrees; after --shift")
        ->type_name("DEG")
        ->check(between(-kHalfTurn, kHalfTurn));
    app.add_flag("--straighten", options.request.straighten, "level the horizon; after --turn");
    app.add_flag("--transparent", options.request.transparent,
                 "make areas that no picture covers transparent instead of\nwhite; PNG, TIFF and EXR");
    app.add_option("--crop", options.crop,
                   "none, auto (the largest rectangle without gaps; of a planet the\n"
                   "largest one in it, also if nothing covers its foot), or X,Y,W,H\n"
                   "in pixels of the uncropped result (default: none)")
        ->type_name("CROP")
        ->check(cropText());
}

void completeView(const PanoOptions& options, jobs::PanoJobRequest& request)
{
    if (!options.shift.empty()) {
        const auto numbers = numbersIn(options.shift, ",");
        request.shift = {static_cast<float>(numbers[0]), static_cast<float>(numbers[1])};
    }
    if (options.crop == "auto") {
        request.crop = jobs::PanoCrop::Auto;
    } else if (options.crop != "none") {
        request.crop = jobs::PanoCrop::Rectangle;
        request.cropRect = rectOf(numbersIn(options.crop, kRectSeparators), 0);
    }
}

jobs::PanoJobRequest requestFor(const PanoOptions& options, const std::vector<std::filesystem::path>& files)
{
    jobs::PanoJobRequest request = options.request;
    request.files = files;
    request.video = options.video;
    for (const std::string& text : options.frames) {
        const auto numbers = numbersIn(text, kFrameSeparators);
        request.frames.push_back({static_cast<std::uint64_t>(numbers[0]), rectOf(numbers, 1)});
    }
    completeView(options, request);
    request.maxSize = options.maxSize.value_or(0);
    request.projection = projectionOf(options.projection);
    return request;
}

int runBatch(const PanoOptions& options)
{
    if (!options.video.empty())
        return wrongUsage("pano", "--batch takes pictures, not a video");
    BatchCommand command = batchCommandOf("pano", options, kWhatWasDone, options.request.threads);
    command.kinds = {PictureGroupKind::BracketPanorama};
    if (!options.request.brackets)
        command.kinds.push_back(PictureGroupKind::Panorama);
    command.task = [&](const BatchFiles& job, const std::filesystem::path& output) {
        auto request = requestFor(options, job.files);
        if (job.bracketSize > 0) {
            request.brackets = true;
            request.bracketSize = static_cast<int>(job.bracketSize);
        }
        return batchTaskOf(request, job.files, output, jobs::panoJob);
    };
    return runBatchCommand(command);
}

/// Removes digits beyond the accuracy of an estimate, which a float printed as a double would show. `perUnit`: a power
/// of ten.
double roundedTo(double value, double perUnit)
{
    return std::round(value * perUnit) / perUnit + 0.0; // not -0
}

nlohmann::ordered_json rotationAsJson(const std::array<float, 9>& rotation)
{
    constexpr double kPerUnit = 1e7; // the precision of a float near 1
    auto json = nlohmann::ordered_json::array();
    for (const float element : rotation)
        json.push_back(roundedTo(static_cast<double>(element), kPerUnit));
    return json;
}

nlohmann::ordered_json asJson(const jobs::PanoJobResult& result)
{
    constexpr double kPerPixel = 1e3;
    nlohmann::ordered_json json = writtenAsJson(result);
    json["projection"] = nameOf(result.projection);
    if (result.brackets > 0)
        json["brackets"] = result.brackets;
    json["focal_length_pixels"] = roundedTo(result.focalLength, kPerPixel);
    if (result.places.empty()) // a video
        return json;
    json["files"] = nlohmann::ordered_json::array();
    for (const auto& place : result.places)
        json["files"].push_back(
            {{"path", pathText(place.path)}, {"placed", place.placed}, {"rotation", rotationAsJson(place.rotation)}});
    return json;
}

std::size_t placedCount(const jobs::PanoJobResult& result)
{
    return static_cast<std::size_t>(
        std::count_if(result.places.begin(), result.places.end(), [](const auto& place) { return place.placed; }));
}

std::string sourceText(const PanoOptions& options, const jobs::PanoJobResult& result)
{
    if (!options.video.empty())
        return "a video";
    return counted(placedCount(result), result.brackets > 0 ? "bracket" : "picture");
}

} // namespace

int runPano(int argc, char** argv)
{
    Options app("pano", kAbout);
    PanoOptions options;
    bindFiles(app, options.files);
    bindOutput(app, options.output, kWhatWasDone);
    bindFormat(app, options.request);
    bindPanoOptions(app, options);
    bindSourceOptions(app, options);
    bindViewOptions(app, options);
    bindBatch(app, options.batch, "panorama");
    bindRun(app, options.request, options.run);
    app.footer(std::string(kExamples) + kExitCodes);
    if (const auto exitCode = app.read(argc, argv))
        return *exitCode;
    if (options.batch.isGiven())
        return runBatch(options);
    const bool isVideo = !options.video.empty();
    std::vector<std::filesystem::path> files;
    if (!isVideo || !options.files.empty()) {
        int exitCode = kFailed;
        auto input = readInput("pano", options.files, options.output.file, options.run.quiet, exitCode);
        if (!input)
            return exitCode;
        files = std::move(*input);
    }
    jobs::PanoJobRequest request = requestFor(options, files);
    request.output = outputPath(options.output, isVideo ? request.video : files.front(), kWhatWasDone, request);

    jobs::PanoJobResult result;
    return runPictureCommand(
        {.name = "pano",
         .run = options.run,
         .inputs = isVideo ? std::vector{request.video} : request.files,
         .output = request.output,
         .job = [&](const jobs::JobCallbacks& callbacks) { result = jobs::panoJob(request, callbacks); },
         .report = result,
         .json = [&] { return asJson(result); },
         .sentence = [&] { return writtenAsText(result) + " from " + sourceText(options, result); }});
}

} // namespace orvo::cli
