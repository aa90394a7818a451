/// orvo pano: stitches a panorama.
#include "picture_command.hpp"

#include <jobs/pano_job.hpp>

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
    "Stitches pictures that were taken from one point, each turned a little against the others,\n"
    "into one wide picture. In any order and in several rows; neighbours should share a third.\n";
constexpr const char* kExamples = "Examples:\n"
                                  "  A valley in five pictures:\n"
                                  "    orvo pano IMG_1.jpg IMG_2.jpg IMG_3.jpg IMG_4.jpg IMG_5.jpg -o valley.jpg\n"
                                  "  A facade, its edges straight:\n"
                                  "    orvo pano *.jpg -o facade.tif --projection plane\n"
                                  "  A small one to look at:\n"
                                  "    orvo pano *.jpg -o preview.jpg --max-size 1600\n";

constexpr std::array<std::pair<std::string_view, WarpType>, 6> kProjections = {{
    {"plane", WarpType::Plane},
    {"cylindrical", WarpType::Cylindrical},
    {"spherical", WarpType::Spherical},
    {"fisheye", WarpType::Fisheye},
    {"planet", WarpType::Stereographic},
    {"mercator", WarpType::Mercator},
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

struct PanoOptions
{
    std::vector<std::string> files;
    std::string output;
    std::string projection = "spherical";
    std::optional<int> maxSize;
    jobs::PanoJobRequest request;
    RunOptions run;
};

void bindPanoOptions(Options& app, PanoOptions& options)
{
    app.add_option("--projection", options.projection,
                   "plane, cylindrical, spherical, fisheye, planet or mercator; else spherical")
        ->type_name("NAME")
        ->check(oneOf(kProjections));
    app.add_option("--max-size", options.maxSize,
                   "longest side at most, in pixels, 1 to " + std::to_string(kLongestPanoramaSide) +
                       "; else as fine as the FILES")
        ->type_name("N")
        ->check(between(1, kLongestPanoramaSide));
    app.add_flag("--devignette", options.request.devignette, "lighten dark corners by what the overlaps tell");
    bindCorrections(app, options.request.chromaticAberrations, options.request.lensCorrection);
}

void completeRequest(PanoOptions& options)
{
    auto& request = options.request;
    request.files.assign(options.files.begin(), options.files.end());
    request.output = options.output;
    request.maxSize = options.maxSize.value_or(0);
    request.projection = projectionOf(options.projection);
}

/// Without the digits that no estimate has, and a float as a double would show. `perUnit`: a power of ten.
double roundedTo(double value, double perUnit)
{
    return std::round(value * perUnit) / perUnit + 0.0; // not -0
}

nlohmann::ordered_json rotationAsJson(const std::array<float, 9>& rotation)
{
    constexpr double kPerUnit = 1e7; // as fine as a float of 1
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
    json["focal_length_pixels"] = roundedTo(result.focalLength, kPerPixel);
    json["files"] = nlohmann::ordered_json::array();
    for (const auto& place : result.places)
        json["files"].push_back(
            {{"path", place.path.string()}, {"placed", place.placed}, {"rotation", rotationAsJson(place.rotation)}});
    return json;
}

std::size_t placedCount(const jobs::PanoJobResult& result)
{
    return static_cast<std::size_t>(
        std::count_if(result.places.begin(), result.places.end(), [](const auto& place) { return place.placed; }));
}

} // namespace

int runPano(int argc, char** argv)
{
    Options app("pano", kAbout);
    PanoOptions options;
    bindFiles(app, options.files);
    bindOutput(app, options.output);
    bindFormat(app, options.request);
    bindPanoOptions(app, options);
    bindRun(app, options.request, options.run);
    app.footer(std::string(kExamples) + kExitCodes);
    if (const auto exitCode = app.read(argc, argv))
        return *exitCode;
    completeRequest(options);

    jobs::PanoJobResult result;
    return runPictureCommand(
        {.name = "pano",
         .run = options.run,
         .inputs = options.request.files,
         .output = options.request.output,
         .job = [&](const jobs::JobCallbacks& callbacks) { result = jobs::panoJob(options.request, callbacks); },
         .report = result,
         .json = [&] { return asJson(result); },
         .sentence = [&] { return writtenAsText(result) + " from " + counted(placedCount(result), "picture"); }});
}

} // namespace orvo::cli
