/// orvo serve: answers requests of other programs over HTTP.
#include "interrupt.hpp"
#include "options.hpp"

#include <orvo_common/failure.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_logger/logstream.hpp>

#include <service/picture_server.hpp>

#include <chrono>
#include <string>
#include <thread>

namespace orvo::cli {
namespace {

constexpr const char* kAbout =
    "Answers requests of 'orvo erase', 'orvo expand', 'orvo restore' and photo editors over HTTP:\n"
    "POST /erase, /expand or /restore with JSON, and GET /health (docs/service.md describes the\n"
    "protocol). The answers are those of the built-in methods, so that a client can be tested without\n"
    "a generative service.\n"
    "\n"
    "It accepts connections from this machine only, unless --address is given, and has no access\n"
    "control. SIGINT and SIGTERM end it.\n";
constexpr const char* kExamples =
    "Examples:\n"
    "  On a port that is free, which is printed:\n"
    "    orvo serve\n"
    "  On a given one:\n"
    "    orvo serve --port 8080\n"
    "    orvo erase beach.jpg --box 10,10,50,50 --service http://127.0.0.1:8080 -o out.jpg\n"
    "\n"
    "Exit codes: 0 ended by a signal, 1 failed, 2 wrong usage.\n";

constexpr int kMega = 1 << 20;

struct ServeOptions
{
    service::ServerSettings settings;
    int mostBodyMegabytes = 0;
    int patienceSeconds = 0;
    int threads = 0;
    bool quiet = false;
    std::string log;
};

void bindServe(Options& app, ServeOptions& options)
{
    constexpr int kLastPort = 65535;
    constexpr int kMostJobs = 1000;
    constexpr int kMostMegabytes = 4096;
    constexpr int kLongestPatience = 86400;
    constexpr int kMostThreads = 1024;
    auto& settings = options.settings;
    options.mostBodyMegabytes = static_cast<int>(settings.mostBodyBytes / kMega);
    options.patienceSeconds = static_cast<int>(settings.patience.count());
    app.add_option("--port", settings.port, "port to listen on; 0: any free one (default: 0)")
        ->type_name("N")
        ->check(between(0, kLastPort));
    app.add_option("--address", settings.address, "address of this machine to listen on (default: 127.0.0.1)")
        ->type_name("ADDRESS");
    app.add_option("--jobs", settings.jobs, "requests worked on at one time, others get 503 (default: 1)")
        ->type_name("N")
        ->check(between(1, kMostJobs));
    app.add_option("--max-body", options.mostBodyMegabytes, "largest request in MiB (default: 64)")
        ->type_name("N")
        ->check(between(1, kMostMegabytes));
    app.add_option("--timeout", options.patienceSeconds, "seconds for a request to arrive whole (default: 60)")
        ->type_name("N")
        ->check(between(1, kLongestPatience));
    app.add_option("--threads", options.threads, "use at most N processor cores")
        ->type_name("N")
        ->check(between(1, kMostThreads));
    app.add_flag("--quiet", options.quiet, "print nothing but errors");
    app.add_option("--log", options.log, "append log lines to FILE, or to log_orvo.txt in a folder")->type_name("FILE");
}

int serve(const ServeOptions& options)
{
    const WorkerLimit limit(options.threads);
    const InterruptGuard interrupt(/*bar=*/false);
    const SilentStandardError silence;
    service::PictureServer server(options.settings, [&](const std::string& line) {
        LOG(__orvolog() << "orvo serve: " << line);
        if (!options.quiet)
            say(printable(line) + "\n");
    });
    if (!options.quiet)
        say("listening on http://" + options.settings.address + ":" + std::to_string(server.port()) + "\n");

    std::atomic<bool> hasEnded = false;
    std::thread watch([&] {
        constexpr std::chrono::milliseconds kPoll{20};
        while (!hasEnded && *interrupt.cancelFlag() == 0)
            std::this_thread::sleep_for(kPoll);
        server.stop();
    });
    server.run();
    hasEnded = true;
    watch.join();
    if (*interrupt.cancelFlag() == 0) {
        complain("the service cannot accept connections any more");
        return kFailed;
    }
    if (!options.quiet)
        say("stopped\n");
    return kDone;
}

} // namespace

int runServe(int argc, char** argv)
{
    Options app("serve", kAbout);
    ServeOptions options;
    bindServe(app, options);
    app.footer(kExamples);
    if (const auto exitCode = app.read(argc, argv))
        return *exitCode;
    options.settings.mostBodyBytes = static_cast<std::size_t>(options.mostBodyMegabytes) * kMega;
    options.settings.patience = std::chrono::seconds(options.patienceSeconds);
    if (!options.log.empty())
        setLogFile(options.log);
    try {
        return serve(options);
    } catch (const FailureError& error) {
        complain(error.what());
        return kFailed;
    }
}

} // namespace orvo::cli
