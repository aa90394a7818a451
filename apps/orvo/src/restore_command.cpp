/// orvo restore: makes a noisy or soft picture better.
#include "generative_command.hpp"

#include <jobs/default_output.hpp>
#include <jobs/restore_job.hpp>

#include <string>

namespace orvo::cli {
namespace {

constexpr const char* kAbout =
    "Reduces noise and blur, raises local contrast slightly and sharpens faces. Several pictures, or\n"
    "those of a folder, are restored one by one.\n"
    "\n"
    "The restoration works on a copy of at most 2700 pixels a side. Its changes are then enlarged to\n"
    "the size of the picture, whose own fine detail is kept where it is not noise. --as-is writes the\n"
    "smaller copy instead.\n"
    "\n"
    "With --service a generative service restores the copy instead of the program (docs/service.md\n"
    "describes the protocol).\n";
constexpr const char* kWhatWasDone = jobs::kDoneRestored;
constexpr const char* kExamples = "Examples:\n"
                                  "  A picture from a dark room:\n"
                                  "    orvo restore party.jpg -o party-clear.jpg\n"
                                  "  Every picture of a folder:\n"
                                  "    orvo restore party\n"
                                  "  For a small print of an old scan:\n"
                                  "    orvo restore scan.tif -o scan-clear.jpg --as-is\n";

} // namespace

int runRestore(int argc, char** argv)
{
    Options app("restore", kAbout);
    GenerativeOptions options;
    jobs::RestoreJobRequest request;
    bindPictures(app, request, options, kWhatWasDone);
    app.add_flag("--as-is", request.asIs, "write the restored copy: at most 2700 pixels a side, in sRGB");
    bindEachPicture(app, options.batch);
    bindService(app, request, options);
    bindRun(app, request, options.run);
    app.footer(std::string(kExamples) + kExitCodes);
    if (const auto exitCode = app.read(argc, argv))
        return *exitCode;
    return runOnPictures("restore", kWhatWasDone, options, request, jobs::restoreJob);
}

} // namespace orvo::cli
