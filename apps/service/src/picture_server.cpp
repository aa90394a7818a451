#include "connection.hpp"

#include <orvo_io/base64_image.hpp>

#include <nlohmann/json.hpp>
#include <service/built_in_answers.hpp>
#include <service/picture_server.hpp>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <new>
#include <stdexcept>
#include <thread>
#include <utility>

namespace orvo::service {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kConnections = 32;        // served at one time; others wait
constexpr std::size_t kWaitingConnections = 64; // beyond them the system's queue fills, then clients are refused
constexpr const char* kJson = "application/json";

enum Status : int
{
    kOk = 200,
    kBadRequest = 400,
    kNotFound = 404,
    kWrongMethod = 405,
    kTimeout = 408,
    kTooLarge = 413,
    kWrongType = 415,
    kUnprocessable = 422,
    kFailure = 500,
    kUnavailable = 503,
};

/// A request ends with this.
struct Refusal
{
    int status;
    std::string sentence;
};

/// The library's pool of threads, with an end to the connections that wait for one.
class BoundedPool final : public httplib::TaskQueue
{
public:
    void enqueue(std::function<void()> task) override
    {
        {
            std::unique_lock lock(mutex);
            roomIsFree.wait(lock, [&] { return count < kConnections + kWaitingConnections; });
            ++count;
        }
        pool.enqueue([this, task = std::move(task)] {
            task();
            {
                const std::lock_guard lock(mutex);
                --count;
            }
            roomIsFree.notify_one();
        });
    }
    void shutdown() override { pool.shutdown(); }

private:
    std::mutex mutex;
    std::condition_variable roomIsFree;
    std::size_t count = 0;
    httplib::ThreadPool pool{kConnections};
};

/// A place among the jobs that run at one time.
class Slot
{
public:
    Slot(std::atomic<int>& running_, int most) : running(running_)
    {
        int before = running.load();
        while (before < most && !isTaken)
            isTaken = running.compare_exchange_weak(before, before + 1);
    }
    ~Slot()
    {
        if (isTaken)
            --running;
    }
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;
    [[nodiscard]] bool taken() const { return isTaken; }

private:
    std::atomic<int>& running;
    bool isTaken = false;
};

std::string bytesText(std::size_t bytes) { return std::to_string(bytes) + " bytes"; }

std::int64_t pixelsOf(const PictureRequest& request)
{
    const _Size<int> size = pngSize(request.image);
    return static_cast<std::int64_t>(size.width) * size.height;
}

} // namespace

class PictureServer::Server final : public httplib::Server
{
public:
    Server(const ServerSettings& settings_, std::function<void(const std::string&)> report_)
        : settings(settings_), report(std::move(report_))
    {
        new_task_queue = [] { return new BoundedPool; };
        // The library's default lets several servers share a port, each getting some of the clients.
        set_socket_options([](socket_t socket) {
            const int yes = 1;
            (void)::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        });
        set_payload_max_length(settings.mostBodyBytes);
        addRoutes();
        listenAt();
    }

    void run()
    {
        if (!stopping)
            listen_after_bind();
        ended = true;
    }

    void end()
    {
        stopping = true;
        while (!ended) { // run() may not have begun to listen yet
            if (is_running())
                httplib::Server::stop();
            constexpr std::chrono::milliseconds kStep{5};
            std::this_thread::sleep_for(kStep);
        }
    }

    int boundPort = 0;

private:
    void addRoutes()
    {
        for (const Tool tool : {Tool::Erase, Tool::Expand, Tool::Restore})
            Post(std::string("/") + toolName(tool),
                 [this, tool](const httplib::Request& request, httplib::Response& response,
                              const httplib::ContentReader& content) { answer(tool, request, response, content); });
        // A body that nobody wants is not read.
        Post(".*", [](const httplib::Request& request, httplib::Response& response, const httplib::ContentReader&) {
            refuse(response, {}, {kNotFound, "there is no " + request.path + "; POST to /erase, /expand or /restore"});
        });
        Get("/health", [this](const httplib::Request&, httplib::Response& response) { reportHealth(response); });
        set_pre_routing_handler([](const httplib::Request& request, httplib::Response& response) {
            if (request.method == "GET" || request.method == "HEAD" || request.method == "POST")
                return HandlerResponse::Unhandled;
            refuse(response, {}, {kWrongMethod, "the method " + request.method + " is not offered"});
            return HandlerResponse::Handled;
        });
        set_error_handler([](const httplib::Request& request, httplib::Response& response) {
            if (response.body.empty())
                refuse(response, {},
                       {response.status, response.status == kNotFound
                                             ? "there is no " + request.path + "; GET /health, or POST to /erase"
                                             : "the request cannot be read"});
        });
        set_expect_100_continue_handler([this](const httplib::Request& request, httplib::Response&) {
            constexpr int kContinue = 100;
            constexpr int kExpectationFailed = 417; // then the client sends no body
            return announcedBytes(request) > settings.mostBodyBytes ? kExpectationFailed : kContinue;
        });
    }

    void listenAt()
    {
        const bool any = settings.port == 0;
        boundPort = any                                             ? bind_to_any_port(settings.address)
                    : bind_to_port(settings.address, settings.port) ? settings.port
                                                                    : -1;
        if (boundPort <= 0)
            throw FailureError({FailureKind::Internal,
                                {},
                                "cannot listen at " + settings.address +
                                    (any ? "" : ":" + std::to_string(settings.port)) +
                                    ": it is taken, reserved, or no address of this machine"});
    }

    // The library runs handlers on the thread of their connection, and does not hand it to them.
    static Connection*& connectionOfThread()
    {
        thread_local Connection* current = nullptr;
        return current;
    }

    bool process_and_close_socket(socket_t socket) override
    {
        Connection connection(socket, settings.patience, stopping);
        connectionOfThread() = &connection;
        bool closed = false;
        const bool done = process_request(connection, /*close_connection=*/true, closed, nullptr);
        connectionOfThread() = nullptr;
        connection.finish();
        return done;
    }

    static void refuse(httplib::Response& response, const std::string& id, const Refusal& refusal)
    {
        response.status = refusal.status;
        if (refusal.status == kUnavailable)
            response.set_header("Retry-After", "1");
        response.set_content(errorText(id, refusal.sentence) + "\n", kJson);
    }

    void reportHealth(httplib::Response& response) const
    {
        const nlohmann::ordered_json json = {{"status", "ok"},
                                             {"running", running.load()},
                                             {"jobs", settings.jobs},
                                             {"answered", answered.load()},
                                             {"refused", refused.load()},
                                             {"abandoned", abandoned.load()}};
        response.set_content(json.dump() + "\n", kJson);
    }

    static Refusal beingStopped() { return {kUnavailable, "the service is being stopped"}; }

    static std::uint64_t announcedBytes(const httplib::Request& request)
    {
        return request.has_header("Content-Length") ? request.get_header_value<std::uint64_t>("Content-Length") : 0;
    }

    std::string bodyOf(const httplib::Request& request, const httplib::ContentReader& content) const
    {
        const Refusal tooLarge{kTooLarge, "the body is larger than " + bytesText(settings.mostBodyBytes)};
        // Anything else a page of a web browser could send from anywhere without being asked.
        if (!request.get_header_value("Content-Type").starts_with(kJson))
            throw Refusal{kWrongType, std::string("the body has to be ") + kJson};
        if (announcedBytes(request) > settings.mostBodyBytes)
            throw tooLarge;
        std::string body;
        bool fits = true;
        const bool whole = content([&](const char* data, std::size_t size) {
            fits = body.size() + size <= settings.mostBodyBytes;
            if (fits)
                body.append(data, size);
            return fits;
        });
        if (!fits)
            throw tooLarge;
        if (!whole && stopping) // reading ends with the service, however much has arrived
            throw beingStopped();
        if (!whole && connectionOfThread()->isLate())
            throw Refusal{kTimeout,
                          "the request did not arrive within " + std::to_string(settings.patience.count()) + " s"};
        if (!whole)
            throw Refusal{kBadRequest, "the body is not whole"};
        return body;
    }

    // `id` is set as soon as it is known.
    std::string pictureFor(Tool tool, const httplib::Request& httpRequest, const httplib::ContentReader& content,
                           std::string& id)
    {
        const PictureRequest request = [&] {
            try {
                return parsedRequest(tool, bodyOf(httpRequest, content));
            } catch (const ProtocolError& error) {
                throw Refusal{kBadRequest, error.what()};
            }
        }();
        id = request.id;
        if (pixelsOf(request) > kMostDecodedPixels)
            throw Refusal{kTooLarge, "the picture has more than " + std::to_string(kMostDecodedPixels) + " pixels"};
        const RunControl control([this] { return stopping || connectionOfThread()->isClosed(); });
        try {
            return answerText(id, builtInAnswer(request, control));
        } catch (const FailureError& error) {
            if (error.failure().kind == FailureKind::Cancelled)
                throw beingStopped();
            throw Refusal{error.failure().kind == FailureKind::UnfittingPictures ? kUnprocessable : kFailure,
                          error.failure().sentence};
        } catch (const std::bad_alloc&) {
            throw Refusal{kUnavailable, "there is not enough memory for this request now"};
        }
    }

    void answer(Tool tool, const httplib::Request& request, httplib::Response& response,
                const httplib::ContentReader& content)
    {
        const auto begin = Clock::now();
        std::string id;
        try {
            const Slot slot(running, settings.jobs);
            if (!slot.taken())
                throw Refusal{kUnavailable, "all " + std::to_string(settings.jobs) + " jobs are taken"};
            response.set_content(pictureFor(tool, request, content, id) + "\n", kJson);
            response.status = kOk;
        } catch (const Refusal& refusal) {
            refuse(response, id, refusal);
        } catch (const std::exception& error) {
            refuse(response, id, {kFailure, error.what()});
        }
        count(response.status);
        say(tool, id, response.status, begin);
    }

    void count(int status)
    {
        if (status == kOk)
            ++answered;
        else if (status == kUnavailable && !stopping && connectionOfThread()->isClosed())
            ++abandoned;
        else
            ++refused;
    }

    void say(Tool tool, const std::string& id, int status, Clock::time_point begin)
    {
        const std::chrono::duration<double> time = Clock::now() - begin;
        char line[64];
        std::snprintf(line, sizeof line, ": %d in %.1f s", status, time.count());
        const std::lock_guard lock(reporting);
        if (report)
            report(toolName(tool) + (id.empty() ? "" : " " + id) + line);
    }

    const ServerSettings settings;
    std::mutex reporting;
    const std::function<void(const std::string&)> report;
    std::atomic<bool> stopping = false;
    std::atomic<bool> ended = false;
    std::atomic<int> running = 0;
    std::atomic<std::uint64_t> answered = 0;
    std::atomic<std::uint64_t> refused = 0;
    std::atomic<std::uint64_t> abandoned = 0; // their clients went away
};

PictureServer::PictureServer(const ServerSettings& settings, std::function<void(const std::string&)> report)
    : server(std::make_unique<Server>(settings, std::move(report)))
{}

PictureServer::~PictureServer() = default;

int PictureServer::port() const { return server->boundPort; }

void PictureServer::run() { server->run(); }

void PictureServer::stop() { server->end(); }

} // namespace orvo::service
