/// Runs the program like a user.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace orvo::test {

/// How the program ended and what it wrote.
struct Finished
{
    int exitCode = -1; ///< 128 plus the number of the signal if one ended it
    std::string out;
    std::string err;
    long peakMemoryKiB = 0;

    /// Lines of `err`, each without its end.
    [[nodiscard]] std::vector<std::string> errLines() const;
};

/// The streams of the program.
struct Streams
{
    std::filesystem::path workingFolder{"/"};
    std::string standardOutput{}; ///< a file such as /dev/full; empty: a pipe that is read
    bool readerGoesAway = false;  ///< the pipe has no reader from the start
    bool errorIsTerminal = false;
};

/// The program while it runs.
class Program
{
public:
    explicit Program(const std::vector<std::string>& arguments, const Streams& streams = {});
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// Reads standard output until `text` or the end.
    void waitFor(const std::string& text);
    /// What it wrote to standard output so far, as far as waitFor() read it.
    [[nodiscard]] const std::string& outSoFar() const { return finished.out; }
    void send(int signal) const;
    [[nodiscard]] Finished wait();

private:
    bool readMore();

    pid_t pid = -1;
    int outputPipe = -1;
    int errorSource = -1; ///< a file, or the terminal's other side
    bool errorIsTerminal;
    Finished finished;
};

[[nodiscard]] Finished runOrvo(const std::vector<std::string>& arguments, const Streams& streams = {});

[[nodiscard]] std::string fileText(const std::filesystem::path& path);
/// Names of all entries of a folder, sorted, including hidden ones.
[[nodiscard]] std::vector<std::string> namesIn(const std::filesystem::path& folder);

} // namespace orvo::test
