/// The program as a function: what main() does apart from what it sets up for the whole process.
#pragma once

namespace orvo::cli {

/// Runs the command that the arguments name; `argv[0]` is the program. Prints the result to standard output and errors
/// to standard error. Returns an ExitCode; throws nothing. One call at a time, from the main thread: commands handle
/// signals while they run.
[[nodiscard]] int runProgram(int argc, char** argv);

} // namespace orvo::cli
