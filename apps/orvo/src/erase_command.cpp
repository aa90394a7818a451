/// orvo erase: erases what is marked.
#include "generative_command.hpp"

#include <jobs/default_output.hpp>
#include <jobs/erase_job.hpp>

#include <sstream>
#include <string>
#include <vector>

namespace orvo::cli {
namespace {

constexpr const char* kAbout =
    "Erases marked objects: the marked area is painted from its surroundings and blended in without\n"
    "a visible seam. Masks, boxes and strokes can be combined and repeated. Mark a few pixels beyond\n"
    "the edge of an object, and its shadow. Outside the marks and a narrow feather around them the\n"
    "picture is unchanged.\n"
    "\n"
    "With --service a generative service paints the area instead of the program (docs/service.md\n"
    "describes the protocol).\n";
constexpr const char* kWhatWasDone = jobs::kDoneErased;
constexpr const char* kExamples =
    "Examples:\n"
    "  Take out what a rectangle holds:\n"
    "    orvo erase beach.jpg --box 1200,800,300,420 -o empty-beach.jpg\n"
    "  Along a wire, with a brush 6 pixels in radius:\n"
    "    orvo erase sky.jpg --stroke '0,310,6;4000,290,6' -o clear.jpg\n"
    "  Let a service paint:\n"
    "    orvo erase beach.jpg --mask mask.png --service http://localhost:8080 -o out.jpg\n";

struct Marks
{
    std::vector<std::string> masks;
    std::vector<std::string> boxes;
    std::vector<std::string> strokes;
};

void bindMarks(Options& app, Marks& marks)
{
    app.add_option("--mask", marks.masks, "a picture that is white where something is to be erased")
        ->type_name("FILE")
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--box", marks.boxes, "a rectangle in pixels, X,Y,W,H")
        ->type_name("BOX")
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--stroke", marks.strokes, "a brush stroke, X,Y,RADIUS;X,Y,RADIUS;... in pixels")
        ->type_name("STROKE")
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

int wrongUsage(const std::string& sentence)
{
    complain(sentence);
    hintAtHelp("erase");
    return kWrongUsage;
}

bool addStroke(const std::string& text, jobs::EraseJobRequest& request)
{
    std::vector<jobs::BrushPoint> points;
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ';');) {
        const auto numbers = numbersOf(part, 3);
        if (!numbers || (*numbers)[2] <= 0.0)
            return false;
        points.push_back(
            {static_cast<float>((*numbers)[0]), static_cast<float>((*numbers)[1]), static_cast<float>((*numbers)[2])});
    }
    if (points.empty())
        return false;
    request.strokes.push_back(std::move(points));
    return true;
}

// The exit code if a mark is wrong.
std::optional<int> takeMarks(const Marks& marks, jobs::EraseJobRequest& request)
{
    request.masks.assign(marks.masks.begin(), marks.masks.end());
    for (const std::string& text : marks.boxes) {
        const auto box = rectangleOf(text);
        if (!box)
            return wrongUsage("--box: expected X,Y,W,H in whole pixels, W and H at least 1, found " + text);
        request.boxes.push_back(*box);
    }
    for (const std::string& text : marks.strokes)
        if (!addStroke(text, request))
            return wrongUsage("--stroke: expected X,Y,RADIUS;X,Y,RADIUS;... with radii above 0, found " + text);
    return std::nullopt;
}

} // namespace

int runErase(int argc, char** argv)
{
    Options app("erase", kAbout);
    GenerativeOptions options;
    jobs::EraseJobRequest request;
    Marks marks;
    bindPicture(app, request, options, kWhatWasDone);
    bindMarks(app, marks);
    bindService(app, request, options);
    bindRun(app, request, options.run);
    app.footer(std::string(kExamples) + kExitCodes);
    if (const auto exitCode = app.read(argc, argv))
        return *exitCode;
    if (const auto exitCode = refuseFolder("erase", options.file))
        return *exitCode;
    takeOptions(options, kWhatWasDone, request);
    if (const auto exitCode = takeMarks(marks, request))
        return *exitCode;

    jobs::EraseJobResult result;
    PictureCommand command{.name = "erase",
                           .run = options.run,
                           .inputs = {request.source},
                           .output = request.output,
                           .job = [&](const jobs::JobCallbacks& callbacks) { result = eraseJob(request, callbacks); },
                           .report = result,
                           .json = [&] { return generativeAsJson(result, request); },
                           .sentence = [&] { return generativeAsText(result, request); }};
    command.inputs.insert(command.inputs.end(), request.masks.begin(), request.masks.end());
    return runGenerativeCommand(std::move(command), request);
}

} // namespace orvo::cli
