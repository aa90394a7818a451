/// What the program writes: results on standard output, complaints on standard error.
#pragma once

#include <streambuf>
#include <string>
#include <string_view>

namespace orvo::cli {

/// Writes to standard output. A reader that has gone away is no error.
void say(std::string_view text);

/// One line on standard error, "orvo: ..." .
void complain(std::string_view message);

/// The second line of a complaint about wrong usage. `command` may be empty.
void hintAtHelp(const std::string& command);

/// The text with control characters replaced, so that a file's name can neither break the line nor talk to the
/// terminal.
[[nodiscard]] std::string printable(std::string_view text);

/// The exit code of the program: `exitCode`, unless standard output could not be written (a full disk, for example).
[[nodiscard]] int finishOutput(int exitCode);

/// Lets nothing through std::cerr while it lives: the libraries below write there too, but what went wrong is told
/// once, by the program.
class SilentStandardError
{
public:
    SilentStandardError();
    ~SilentStandardError();
    SilentStandardError(const SilentStandardError&) = delete;
    SilentStandardError& operator=(const SilentStandardError&) = delete;

private:
    std::streambuf* before;
};

} // namespace orvo::cli
