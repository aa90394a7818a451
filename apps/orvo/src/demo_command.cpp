/// orvo demo: creates example pictures and runs the other commands on them.
#include "job_watch.hpp"
#include "options.hpp"

#include <jobs/demo_job.hpp>
#include <orvo_common/wide_path.hpp>

namespace orvo::cli {
namespace {

constexpr const char* kAbout = "Creates example pictures in a folder, runs the other commands on them, and\n"
                               "explains each file. The pictures are computed; no other files are needed.\n";
constexpr const char* kExamples = "Examples:\n"
                                  "  orvo demo /tmp/orvo-demo\n"
                                  "  orvo demo /tmp/orvo-demo --size 3000\n";

std::string asText(const jobs::DemoJobResult& result)
{
    std::string text;
    for (const auto& piece : result.pieces) {
        text += piece.about + "\n";
        for (const auto& frame : piece.frames)
            text += "    " + printable(pathText(frame)) + "\n";
        text += "  " + piece.what + ": " + printable(pathText(piece.result)) + "\n";
        if (!piece.sheet.empty())
            text += "  sheet: " + printable(pathText(piece.sheet)) + "\n";
    }
    return text;
}

} // namespace

int runDemo(int argc, char** argv)
{
    Options app("demo", kAbout);
    std::string folder;
    jobs::DemoJobRequest request;
    app.add_option("DIR", folder, "folder for the pictures; created if missing")->type_name("")->required();
    app.add_option("--size", request.size, "longer side of the pictures in pixels (default: 1536)")
        ->type_name("N")
        ->check(between(jobs::kSmallestDemo, jobs::kLargestDemo));
    app.add_flag("--keep", request.keep, "keep frames that exist in DIR, create only missing ones");
    app.add_flag("--sheets", request.sheets, "also write small pictures of frames and results into DIR/sheets");
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
    return reportOutcome(result, "demo");
}

} // namespace orvo::cli
