// The program with any arguments on any file, in this process. An input is lines of arguments, an empty line, and the
// bytes of a file that the arguments call "in"; beside it are "good.png", a small picture, and "mask.png", its mask.
//
// The program runs in a temporary folder, which its words cannot leave, and connects to nothing.
#include "fuzz_target.hpp"
#include "program.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>
#include <orvo_logger/logstream.hpp>

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using namespace orvo;
using fuzz::require;

constexpr std::size_t kMostWords = 16;
constexpr std::size_t kLongestWord = 40;
constexpr std::size_t kMostDigits = 2;        // in a row: widths and counts that a run of a second can serve
constexpr std::int64_t kMostPixels = 64 * 64; // of the file, which some commands enlarge 256 times
constexpr std::chrono::seconds kLongestRun{60};

// A folder that lasts as long as the process.
class Workplace
{
public:
    Workplace()
    {
        std::string name = "/tmp/orvo_fuzz_XXXXXX";
        require(::mkdtemp(name.data()) != nullptr, "the system can create a folder");
        folder = name;
        const auto draw = [&](const char* file, auto&& valueAt) {
            auto picture = std::make_shared<_ImageData<PixelRGB<float>>>(_Size<int>(32, 24), ColorProfileType::sRGB());
            for (int y = 0; y < 24; ++y)
                for (int x = 0; x < 32; ++x) {
                    const float value = valueAt(x, y);
                    picture->row(y)[x] = {value, 0.8f * value, 0.6f * value};
                }
            require(writeImage(folder / file, *picture, writeSettingsForPath(folder / file)), "a picture is written");
        };
        draw("good.png", [](int x, int y) { return 0.2f + 0.5f * static_cast<float>((x / 3 + y / 5) % 2); });
        draw("mask.png", [](int x, int y) { return x > 8 && x < 16 && y > 6 && y < 14 ? 1.0f : 0.0f; });
        for (const char* const file : {"good.png", "mask.png"})
            kept.emplace_back(file, read(file));
    }
    ~Workplace()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    Workplace(const Workplace&) = delete;
    Workplace& operator=(const Workplace&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return folder; }

    // Only the two pictures, and the file.
    void prepare(std::string_view file) const
    {
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            std::filesystem::remove_all(entry.path());
        for (const auto& [name, bytes] : kept)
            write(name, bytes);
        write("in", file);
    }

    [[nodiscard]] std::string read(const std::string& name) const
    {
        std::ifstream stream(folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    [[nodiscard]] bool hasUnfinishedFiles() const
    {
        const std::filesystem::recursive_directory_iterator all(folder);
        return std::any_of(begin(all), end(all),
                           [](const auto& entry) { return entry.path().filename().native().starts_with(".orvo-"); });
    }

private:
    void write(const std::string& name, std::string_view bytes) const
    {
        std::ofstream(folder / name, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }

    std::filesystem::path folder;
    std::vector<std::pair<std::string, std::string>> kept;
};

// Aborts if it lives too long: commands take the alarm signal, on which fuzzers rely.
class Watchdog
{
public:
    Watchdog()
        : thread([this] {
              std::unique_lock lock(mutex);
              if (!ended.wait_for(lock, kLongestRun, [this] { return isOver; }))
                  require(false, "a run ends within a minute");
          })
    {}
    ~Watchdog()
    {
        {
            const std::lock_guard lock(mutex);
            isOver = true;
        }
        ended.notify_one();
        thread.join();
    }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

private:
    std::mutex mutex;
    std::condition_variable ended;
    bool isOver = false;
    std::thread thread;
};

// The timer and the handler of SIGALRM as they were, at the end of a scope.
class KeptAlarm
{
public:
    KeptAlarm()
    {
        const itimerval none = {};
        ::setitimer(ITIMER_REAL, &none, &timer);
        ::sigaction(SIGALRM, nullptr, &action);
    }
    ~KeptAlarm()
    {
        ::sigaction(SIGALRM, &action, nullptr);
        ::setitimer(ITIMER_REAL, &timer, nullptr);
    }
    KeptAlarm(const KeptAlarm&) = delete;
    KeptAlarm& operator=(const KeptAlarm&) = delete;

private:
    itimerval timer = {};
    struct sigaction action = {};
};

// What the program prints. Replaces the streams, not the descriptors, on which sanitizers report.
class Printed
{
public:
    Printed() : out(stdout), err(stderr), errStream(std::cerr.rdbuf(ignored.rdbuf()))
    {
        stdout = ::fopen("/dev/null", "w");
        stderr = ::open_memstream(&text, &size);
        require(stdout != nullptr && stderr != nullptr, "the system can create streams");
    }
    ~Printed()
    {
        (void)errors();
        std::fclose(stdout);
        std::fclose(stderr);
        stdout = out;
        stderr = err;
        std::cerr.rdbuf(errStream);
        std::free(text);
    }
    Printed(const Printed&) = delete;
    Printed& operator=(const Printed&) = delete;

    [[nodiscard]] std::string errors() const
    {
        std::fflush(stderr);
        return {text, size};
    }

private:
    FILE* out;
    FILE* err;
    std::ostringstream ignored;
    std::streambuf* errStream;
    char* text = nullptr;
    std::size_t size = 0;
};

// A word that names no other folder and no large number.
std::string tamed(std::string_view line)
{
    std::string word(line.substr(0, kLongestWord));
    std::size_t digits = 0;
    for (char& c : word) {
        digits = c >= '0' && c <= '9' ? digits + 1 : 0;
        if (c == '/' || c == '\0' || digits > kMostDigits)
            c = '_';
    }
    return word;
}

std::vector<std::string> takeWords(std::string_view& input)
{
    std::vector<std::string> words = {"orvo"};
    while (!input.empty()) {
        const std::string_view line = input.substr(0, input.find('\n'));
        input.remove_prefix(std::min(input.size(), line.size() + 1));
        if (line.empty())
            break;
        if (words.size() <= kMostWords)
            words.push_back(tamed(line));
    }
    return words;
}

bool has(const std::vector<std::string>& words, std::string_view start)
{
    return std::any_of(words.begin(), words.end(), [&](const std::string& word) { return word.starts_with(start); });
}

// Servers wait for requests, the demo computes for a minute, and services are elsewhere.
bool isAllowed(const std::vector<std::string>& words)
{
    return !has(words, "--se") && (words.size() < 2 || (words[1] != "serve" && words[1] != "demo"));
}

void checkErrors(int exitCode, const std::string& errors)
{
    require(exitCode == 0 || exitCode == 1 || exitCode == 2 || exitCode == 130, "the exit code is one of the manual");
    require(exitCode == 0 || errors.find("orvo: ") != std::string::npos, "a failure has a reason");
    require(std::none_of(errors.begin(), errors.end(), [](char c) { return c == '\0' || c == '\x1b'; }),
            "errors do not control the terminal");
    for (const char* const raw : {"OpenCV(", "std::", "basic_string", "bad_alloc"})
        require(errors.find(raw) == std::string::npos, "errors are not texts of libraries");
}

// Whether no more planes are live than before. Those that a writer in the background holds follow when it is done.
bool areBack(std::size_t liveBefore)
{
    constexpr std::chrono::milliseconds kPause{10};
    constexpr int kMostPauses = 1000;
    for (int i = 0; i < kMostPauses && MemoryManager::instance().liveBytes() != liveBefore; ++i)
        std::this_thread::sleep_for(kPause);
    return MemoryManager::instance().liveBytes() == liveBefore;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Workplace workplace;
    static const bool isSetUp = [] {
        std::signal(SIGPIPE, SIG_IGN);
        // Kept planes would hide an access beyond a plane from the address sanitizer.
        MemoryManager::instance().setCacheLimit(0);
        return true;
    }();
    (void)isSetUp;
    std::string_view input(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> words = takeWords(input);
    if (!isAllowed(words))
        return 0;
    workplace.prepare(input);
    const auto metadata = ImageReader::readMetadata(workplace.path() / "in");
    if (metadata && static_cast<std::int64_t>(metadata->size.width) * metadata->size.height > kMostPixels)
        return 0;

    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const std::size_t liveBefore = MemoryManager::instance().liveBytes();
    const std::filesystem::path home = std::filesystem::current_path();
    int exitCode = 0;
    std::string errors;
    {
        const WorkerLimit single(1); // the same code path in every run
        const KeptAlarm alarm;
        const Watchdog watchdog;
        const Printed printed;
        std::filesystem::current_path(workplace.path());
        exitCode = cli::runProgram(static_cast<int>(words.size()), arguments.data());
        setLogFile({});
        std::filesystem::current_path(home);
        errors = printed.errors();
    }
    checkErrors(exitCode, errors);
    require(!workplace.hasUnfinishedFiles(), "no unfinished file is left");
    require(has(words, "--log") || has(words, "--request-only") || workplace.read("in") == input,
            "an input is never changed");
    require(areBack(liveBefore), "a run gives its planes back");
    return 0;
}
