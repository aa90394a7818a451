/// orvo demo: makes example pictures and shows what the other commands do with them.
#include "job_watch.hpp"
#include "options.hpp"

#include <jobs/demo_job.hpp>

namespace orvo::cli {
namespace {

constexpr const char* kAbout =
    "Makes example pictures in a folder, merges, stacks, enlarges and stitches them, and\n"
    "tells what every file is. The pictures are computed, so nothing but the program is needed.\n";
constexpr const char* kExamples = "Examples:\n"
                                  "  orvo demo /tmp/orvo-demo\n"
                                  "  orvo demo /tmp/orvo-demo --size 3000\n";

std::string asText(const jobs::DemoJobResult& result)
{
    std::string text;
    for (const auto& piece : result.pieces) {
        text += piece.about + "\n";
        for (const auto& frame : piece.frames)
            text += "    " + printable(frame.string()) + "\n";
        text += "  " + piece.what + ": " + printable(piece.result.string()) + "\n";
    }
    return text;
}

} // namespace

int runDemo(int argc, char** argv)
{
    Options app("demo", kAbout);
    std::string folder;
    jobs::DemoJobRequest request;
    app.add_option("DIR", folder, "folder for the pictures; made if it is not there")->type_name("")->required();
    app.add_option("--size", request.size, "longer side of the pictures in pixels; else 1536")
        ->type_name("N")
        ->check(between(jobs::kSmallestDemo, jobs::kLargestDemo));
    app.add_flag("--keep", request.keep, "keep frames that are in DIR already, make only missing ones");
    app.footer(kExamples);
    if (const auto exitCode = app.read(argc, argv))
        return *exitCode;
    request.folder = folder;

    jobs::DemoJobResult result;
    {
        JobWatch watch(Talk::BarOnly);
        result = jobs::demoJob(request, watch.callbacks());
    }
    say(asText(result));
    return tellOutcome(result, "demo");
}

} // namespace orvo::cli
