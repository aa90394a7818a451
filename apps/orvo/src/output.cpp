#include "output.hpp"

#include "command.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

namespace orvo::cli {
namespace {

int firstOutputError = 0;

void noteOutputError()
{
    if (firstOutputError == 0)
        firstOutputError = errno;
}

} // namespace

void say(std::string_view text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
        noteOutputError();
}

void complain(std::string_view message) { std::fprintf(stderr, "orvo: %s\n", printable(message).c_str()); }

void hintAtHelp(const std::string& command)
{
    std::fprintf(stderr, "See 'orvo%s%s --help'.\n", command.empty() ? "" : " ", command.c_str());
}

std::string printable(std::string_view text)
{
    std::string result(text);
    constexpr unsigned char kFirstPrintable = 0x20;
    constexpr unsigned char kDelete = 0x7f;
    std::replace_if(
        result.begin(), result.end(),
        [](char c) {
            const auto byte = static_cast<unsigned char>(c);
            return byte < kFirstPrintable || byte == kDelete;
        },
        '?');
    return result;
}

int finishOutput(int exitCode)
{
    if (firstOutputError == 0 || firstOutputError == EPIPE || exitCode != kDone)
        return exitCode;
    complain(std::string("cannot write to standard output: ") + std::strerror(firstOutputError));
    return kFailed;
}

SilentStandardError::SilentStandardError() : before(std::cerr.rdbuf(nullptr)) {}

SilentStandardError::~SilentStandardError()
{
    std::cerr.rdbuf(before);
    std::cerr.clear();
}

} // namespace orvo::cli
