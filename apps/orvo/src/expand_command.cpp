/// orvo expand: adds a border and paints it.
#include "generative_command.hpp"

#include <jobs/default_output.hpp>
#include <jobs/expand_job.hpp>

#include <array>
#include <sstream>
#include <string>

namespace orvo::cli {
namespace {

constexpr const char* kAbout =
    "Adds a border that continues the picture: for another aspect ratio, or for room around the\n"
    "subject. The picture itself changes only in a narrow rim next to the border. Several pictures, or\n"
    "those of a folder, are expanded one by one.\n"
    "\n"
    "With --service a generative service paints the border instead of the program (docs/service.md\n"
    "describes the protocol).\n";
constexpr const char* kWhatWasDone = jobs::kDoneExpanded;
constexpr const char* kExamples = "Examples:\n"
                                  "  A tenth more sky, and 200 pixels more on the left:\n"
                                  "    orvo expand tower.jpg --add 200,10%,0,0 -o tower-wide.jpg\n"
                                  "  A square canvas around a picture of 1200 x 800 pixels:\n"
                                  "    orvo expand beach.jpg --crop=0,-200,1200,1200 -o square.jpg\n";

// "200" or "10%".
std::optional<jobs::BorderWidth> widthOf(std::string text)
{
    jobs::BorderWidth width;
    width.isPercent = text.ends_with('%');
    if (width.isPercent)
        text.pop_back();
    const auto number = numbersOf(text, 1);
    if (!number || number->front() < 0.0)
        return std::nullopt;
    width.value = number->front();
    return width;
}

std::optional<jobs::BorderWidths> widthsOf(const std::string& text)
{
    std::vector<jobs::BorderWidth> widths;
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ',');) {
        const auto width = widthOf(part);
        if (!width)
            return std::nullopt;
        widths.push_back(*width);
    }
    constexpr std::size_t kSides = 4;
    if (widths.size() != kSides || text.ends_with(','))
        return std::nullopt;
    return jobs::BorderWidths{widths[0], widths[1], widths[2], widths[3]};
}

// The exit code if the canvas is wrong.
std::optional<int> takeCanvas(const std::string& crop, const std::string& add, jobs::ExpandJobRequest& request)
{
    if (crop.empty() == add.empty())
        return wrongUsage("expand", "either --add or --crop is needed");
    if (!crop.empty() && !(request.crop = rectangleOf(crop)))
        return wrongUsage("expand", "--crop: expected X,Y,W,H in whole pixels, W and H at least 1, found " + crop);
    if (!add.empty() && !(request.add = widthsOf(add)))
        return wrongUsage("expand",
                          "--add: expected LEFT,TOP,RIGHT,BOTTOM, each in pixels or with % in percent, found " + add);
    return std::nullopt;
}

} // namespace

int runExpand(int argc, char** argv)
{
    Options app("expand", kAbout);
    GenerativeOptions options;
    jobs::ExpandJobRequest request;
    std::string crop;
    std::string add;
    bindPictures(app, request, options, kWhatWasDone);
    app.add_option("--add", add, "border widths LEFT,TOP,RIGHT,BOTTOM, in pixels, or in percent such as 10%")
        ->type_name("WIDTHS");
    app.add_option("--crop", crop,
                   "instead of --add: the new canvas X,Y,W,H in pixels of the picture;\nX and Y may be negative")
        ->type_name("CROP");
    bindEachPicture(app, options.batch);
    bindService(app, request, options);
    bindRun(app, request, options.run);
    app.footer(std::string(kExamples) + kExitCodes);
    if (const auto exitCode = app.read(argc, argv))
        return *exitCode;
    if (const auto exitCode = takeCanvas(crop, add, request))
        return *exitCode;
    return runOnPictures("expand", kWhatWasDone, options, request, jobs::expandJob);
}

} // namespace orvo::cli
