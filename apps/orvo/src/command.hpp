/// The commands of the program.
#pragma once

#include <jobs/job.hpp>

namespace orvo::cli {

/// Exit codes of the program.
enum ExitCode : int
{
    kDone = 0,
    kFailed = 1,
    kWrongUsage = 2,
    kCancelled = 130 ///< as in shells for a program that Ctrl-C ended
};

struct Command
{
    const char* name;
    const char* summary;
    int (*run)(int argc, char** argv); ///< `argv[0]` is the name of the command; returns an ExitCode
};

int runHdr(int argc, char** argv);
int runStack(int argc, char** argv);
int runLabel(int argc, char** argv);
int runUpscale(int argc, char** argv);
int runFill(int argc, char** argv);
int runErase(int argc, char** argv);
int runExpand(int argc, char** argv);
int runRestore(int argc, char** argv);
int runServe(int argc, char** argv);
int runPano(int argc, char** argv);
int runFrames(int argc, char** argv);
int runDemo(int argc, char** argv);

/// The exit code for a job's outcome. Prints its message, if any, to standard error.
[[nodiscard]] int reportOutcome(const jobs::JobResult& result, const char* command);

} // namespace orvo::cli
