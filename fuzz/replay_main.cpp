// Runs a fuzz target without a fuzzer: over the given files, and over damaged copies of each. The damage depends only
// on the file's name and the number of the copy, so every run and every machine uses the same inputs.
#include "fuzz_target.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

// From the sanitizers' runtime, if there is one: they end the program without a signal.
extern "C" void __sanitizer_set_death_callback(void (*callback)()) __attribute__((weak));

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr unsigned kHangSeconds = 120; // a thousand times the slowest input, for machines under load
constexpr std::size_t kHeaderBytes = 300;

// The current input, read by the crash handlers.
Bytes currentInput;
std::string currentName;
std::string findingPath; // in the current folder, one for each target, because tests run in parallel

// Writes the input to a file and prints its name. Uses only calls that a signal handler may make.
void keepInput()
{
    const int file = ::open(findingPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const auto put = [](int descriptor, const void* bytes, std::size_t count) {
        return ::write(descriptor, bytes, count) == static_cast<::ssize_t>(count);
    };
    const bool kept = file >= 0 && put(file, currentInput.data(), currentInput.size());
    for (const std::string_view text :
         {std::string_view(currentName), std::string_view(" broke it"),
          kept ? std::string_view("; the input is kept in ") : std::string_view(),
          kept ? std::string_view(findingPath) : std::string_view(), std::string_view("\n")})
        (void)put(STDERR_FILENO, text.data(), text.size());
}

void onSignal(int signal)
{
    keepInput();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void watchForCrashes()
{
    // A separate stack, so that the handler can report an overflow of the normal one.
    static std::array<char, 64 * 1024> handlerStack;
    stack_t stack = {};
    stack.ss_sp = handlerStack.data();
    stack.ss_size = handlerStack.size();
    ::sigaltstack(&stack, nullptr);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_ONSTACK;
    for (const int signal : {SIGABRT, SIGALRM, SIGFPE, SIGILL})
        ::sigaction(signal, &action, nullptr);
    if (__sanitizer_set_death_callback != nullptr) {
        __sanitizer_set_death_callback(keepInput); // a sanitizer reports memory errors itself
        return;
    }
    for (const int signal : {SIGSEGV, SIGBUS})
        ::sigaction(signal, &action, nullptr);
}

void runOne(Bytes input, std::string name)
{
    currentInput = std::move(input);
    currentName = std::move(name);
    // A copy of exactly its size, so that an access beyond the end is detected.
    const Bytes exact(currentInput.begin(), currentInput.end());
    ::alarm(kHangSeconds);
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
    ::alarm(0);
}

// FNV-1a (Fowler, Noll, Vo): the standard library's hash differs between libraries.
std::uint64_t hashOf(std::string_view text)
{
    std::uint64_t hash = 0xcbf29ce484222325u;
    for (const char each : text)
        hash = (hash ^ static_cast<unsigned char>(each)) * 0x100000001b3u;
    return hash;
}

class Damage
{
public:
    Damage(const std::string& name, int copy) : random(hashOf(name) + static_cast<std::uint64_t>(copy)) {}

    void apply(Bytes& bytes)
    {
        for (std::uint64_t steps = 1 + random() % 3; steps > 0 && !bytes.empty(); --steps)
            switch (random() % 5) {
            case 0:
            case 1:
                flip(bytes);
                break;
            case 2:
                setLength(bytes);
                break;
            case 3:
                bytes.resize(below(bytes.size()));
                break;
            default:
                moveChunk(bytes);
            }
    }

private:
    std::size_t below(std::size_t bound) { return static_cast<std::size_t>(random() % bound); }

    // Half of the time in the header, where damage has the largest effect.
    std::size_t somewhere(const Bytes& bytes)
    {
        return below(random() % 2 == 0 ? std::min(bytes.size(), kHeaderBytes) : bytes.size());
    }

    void flip(Bytes& bytes)
    {
        for (std::uint64_t flips = 1 + random() % 8; flips > 0; --flips) {
            std::uint8_t& byte = bytes[somewhere(bytes)];
            byte = random() % 2 == 0 ? static_cast<std::uint8_t>(byte ^ (1u << random() % 8))
                                     : static_cast<std::uint8_t>(random());
        }
    }

    // Writes a number where a length or an offset may be: the ends of the ranges, and values near the file's size.
    void setLength(Bytes& bytes)
    {
        const std::uint64_t candidates[] = {
            0,           1,           0x7F,        0xFF,       0x7FFF, 0xFFFF,       0x7FFFFFFFu,
            0x80000000u, 0xFFFFFFFFu, 0xFFFFFFF8u, ~0ull >> 1, ~0ull,  bytes.size(), bytes.size() - 1};
        const std::uint64_t number = candidates[below(std::size(candidates))];
        const std::size_t width = std::size_t{1} << (random() % 4);
        const bool bigEndian = random() % 2 == 0;
        const std::size_t at = somewhere(bytes);
        for (std::size_t i = 0; i < std::min(width, bytes.size() - at); ++i)
            bytes[at + i] = static_cast<std::uint8_t>(number >> (8 * (bigEndian ? width - 1 - i : i)));
    }

    // Duplicates a piece, or removes it.
    void moveChunk(Bytes& bytes)
    {
        const std::size_t at = somewhere(bytes);
        const std::size_t length = 1 + below(std::min<std::size_t>(bytes.size() - at, 64));
        const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        const Bytes piece(from, from + static_cast<std::ptrdiff_t>(length));
        if (random() % 2 == 0)
            bytes.insert(from, piece.begin(), piece.end());
        else
            bytes.erase(from, from + static_cast<std::ptrdiff_t>(length));
    }

    std::mt19937_64 random; // its numbers are standardised; those of distributions are not
};

std::vector<std::filesystem::path> filesAt(const std::filesystem::path& path)
{
    if (!std::filesystem::is_directory(path))
        return {path};
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(path))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

bool replay(const std::filesystem::path& path, int copies)
{
    std::ifstream stream(path, std::ios::binary);
    const Bytes whole{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    if (!stream) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return false;
    }
    runOne(whole, path.string());
    for (int copy = 1; copy <= copies; ++copy) {
        Bytes damaged = whole;
        Damage(path.filename().string(), copy).apply(damaged);
        runOne(std::move(damaged), path.string() + ", damaged copy " + std::to_string(copy) + ",");
    }
    return true;
}

} // namespace

int main(int count, char** words)
{
    const std::vector<std::string> arguments(words + 1, words + count);
    int copies = 0;
    std::size_t files = 0;
    // Absolute, since a target may work in another folder.
    findingPath = std::filesystem::absolute(std::filesystem::path(words[0]).filename()).string() + "_finding";
    watchForCrashes();
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--copies" && i + 1 < arguments.size()) {
            copies = std::atoi(arguments[++i].c_str());
            continue;
        }
        for (const auto& file : filesAt(arguments[i])) {
            if (!replay(file, copies))
                return 1;
            ++files;
        }
    }
    if (files == 0) {
        std::fprintf(stderr, "usage: %s [--copies N] FILE-OR-FOLDER...\n", words[0]);
        return 2;
    }
    std::printf("%zu files and %d damaged copies of each: nothing broke\n", files, copies);
    return 0;
}
