/// Output of the program: results on standard output, errors on standard error.
#pragma once

#include <streambuf>
#include <string>
#include <string_view>

namespace orvo::cli {

/// Writes to standard output. A closed reader is not an error.
void say(std::string_view text);

/// One line on standard error, "orvo: ..." .
void complain(std::string_view message);

/// The second line of an error about wrong usage. `command` may be empty.
void hintAtHelp(const std::string& command);

/// The text with control characters replaced, so that a file name can neither break the line nor control the terminal.
[[nodiscard]] std::string printable(std::string_view text);

/// The exit code of the program: `exitCode`, unless writing to standard output failed (a full disk, for example).
[[nodiscard]] int finishOutput(int exitCode);

/// Silences std::cerr during its lifetime: the libraries also write there, but the program reports an error once.
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
