/// orvo restore: makes a noisy or soft picture better.
#include "generative_command.hpp"

#include <jobs/default_output.hpp>
#include <jobs/restore_job.hpp>

#include <string>

namespace orvo::cli {
namespace {

constexpr const char* kAbout =
    "Makes a noisy or soft picture better: less noise, less blur, a little more local contrast, clearer\n"
    "faces. The program does it itself, or a service does (see docs/service.md for the protocol).\n"
    "\n"
    "The picture is restored at a size of at most 2700 pixels a side. What that changed is then brought\n"
    "to the size of the picture by the upscaler, and the picture's own fine detail is put back where it\n"
    "is not noise. --as-is writes the restored picture as it comes instead, in sRGB.\n";
constexpr const char* kWhatWasDone = jobs::kDoneRestored;
constexpr const char* kExamples = "Examples:\n"
                                  "  A picture from a dark room:\n"
                                  "    orvo restore party.jpg -o party-clear.jpg\n"
                                  "  For a small print of an old scan:\n"
                                  "    orvo restore scan.tif -o scan-clear.jpg --as-is\n";

} // namespace

int runRestore(int argc, char** argv)
{
    Options app("restore", kAbout);
    GenerativeOptions options;
    jobs::RestoreJobRequest request;
    bindPictures(app, request, options, kWhatWasDone);
    app.add_flag("--as-is", request.asIs, "write what comes back: at most 2700 pixels a side, in sRGB");
    bindService(app, request, options);
    bindRun(app, request, options.run);
    app.footer(std::string(kExamples) + kExitCodes);
    if (const auto exitCode = app.read(argc, argv))
        return *exitCode;
    return runOnPictures("restore", kWhatWasDone, options, request, jobs::restoreJob);
}

} // namespace orvo::cli
