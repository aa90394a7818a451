#include "program.hpp"

#include <fcntl.h>
#include <pty.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace orvo::test {
namespace {

constexpr std::size_t kChunk = 4096;

int anonymousFile()
{
    std::string name = (std::filesystem::temp_directory_path() / "orvo_err_XXXXXX").string();
    const int file = ::mkostemp(name.data(), O_CLOEXEC);
    ::unlink(name.c_str());
    return file;
}

std::string restOf(int file)
{
    std::string text;
    std::array<char, kChunk> chunk{};
    // A terminal whose program has ended reports an error instead of the end.
    for (ssize_t got = 0; (got = ::read(file, chunk.data(), chunk.size())) > 0;)
        text.append(chunk.data(), static_cast<std::size_t>(got));
    return text;
}

/// posix_spawn's record of what the child does to its streams, freed with the scope.
struct FileActions
{
    posix_spawn_file_actions_t actions{};
    FileActions() { posix_spawn_file_actions_init(&actions); }
    ~FileActions() { posix_spawn_file_actions_destroy(&actions); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
};

pid_t spawn(const std::vector<std::string>& arguments, const FileActions& files)
{
    std::vector<char*> argv{const_cast<char*>("orvo")};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    posix_spawnattr_t attributes{};
    posix_spawnattr_init(&attributes);
    sigset_t usual; // the runner of the tests may ignore some of these, and a child inherits that
    sigemptyset(&usual);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE})
        sigaddset(&usual, signal);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t pid = -1;
    const int error = ::posix_spawn(&pid, ORVO_PROGRAM, &files.actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0)
        throw std::runtime_error("cannot start " ORVO_PROGRAM);
    return pid;
}

} // namespace

std::vector<std::string> Finished::errLines() const
{
    std::vector<std::string> lines;
    std::istringstream text(err);
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

Program::Program(const std::vector<std::string>& arguments, const Streams& streams)
    : errorIsTerminal(streams.errorIsTerminal)
{
    std::array<int, 2> pipe{};
    if (::pipe2(pipe.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    int errorSink = -1;
    if (errorIsTerminal) {
        winsize window{};
        window.ws_row = 24;
        window.ws_col = 80;
        if (::openpty(&errorSource, &errorSink, nullptr, nullptr, &window) != 0)
            throw std::runtime_error("no terminal");
        ::fcntl(errorSource, F_SETFD, FD_CLOEXEC);
    } else {
        errorSource = errorSink = anonymousFile();
    }

    FileActions files;
    if (streams.standardOutput.empty())
        posix_spawn_file_actions_adddup2(&files.actions, pipe[1], STDOUT_FILENO);
    else
        posix_spawn_file_actions_addopen(&files.actions, STDOUT_FILENO, streams.standardOutput.c_str(), O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&files.actions, errorSink, STDERR_FILENO);
    posix_spawn_file_actions_addchdir_np(&files.actions, streams.workingFolder.c_str());
    outputPipe = pipe[0];
    if (streams.readerGoesAway) {
        ::close(outputPipe);
        outputPipe = -1;
    }
    pid = spawn(arguments, files);
    ::close(pipe[1]);
    if (errorIsTerminal)
        ::close(errorSink);
}

Program::~Program()
{
    if (pid > 0) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    if (outputPipe >= 0)
        ::close(outputPipe);
    ::close(errorSource);
}

bool Program::readMore()
{
    std::array<char, kChunk> chunk{};
    const ssize_t got = outputPipe < 0 ? 0 : ::read(outputPipe, chunk.data(), chunk.size());
    if (got > 0)
        finished.out.append(chunk.data(), static_cast<std::size_t>(got));
    return got > 0;
}

void Program::waitFor(const std::string& text)
{
    while (finished.out.find(text) == std::string::npos && readMore()) {
    }
}

void Program::send(int signal) const { ::kill(pid, signal); }

Finished Program::wait()
{
    while (readMore()) {
    }
    // Terminal output must be read while it runs, or it would block.
    if (errorIsTerminal)
        finished.err = restOf(errorSource);
    int status = 0;
    rusage usage{};
    ::wait4(pid, &status, 0, &usage);
    pid = -1;
    constexpr int kSignalBase = 128; // as in shells
    finished.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : kSignalBase + WTERMSIG(status);
    finished.peakMemoryKiB = usage.ru_maxrss;
    if (!errorIsTerminal) {
        ::lseek(errorSource, 0, SEEK_SET);
        finished.err = restOf(errorSource);
    }
    return finished;
}

Finished runOrvo(const std::vector<std::string>& arguments, const Streams& streams)
{
    return Program(arguments, streams).wait();
}

std::string fileText(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + path.string());
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> namesIn(const std::filesystem::path& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace orvo::test
