/// Answers requests for erased, expanded and restored pictures over HTTP, with what is built in.
#pragma once

#include <orvo_common/run_control.hpp>

#include <service/messages.hpp>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace orvo::service {

struct ServerSettings
{
    std::string address = "127.0.0.1"; ///< of this machine, to listen at
    int port = 0;                      ///< 0: any that is free
    int jobs = 1;                      ///< requests that are worked on at one time; further ones are turned away
    /// A body of more bytes is turned away. A request of 9 million characters and a border of 2000 pixels all around
    /// takes a sixth of this.
    std::size_t mostBodyBytes = std::size_t{64} << 20U;
    std::chrono::seconds patience{60}; ///< for a request to arrive whole, and for its answer to be taken
};

/// POST /erase, /expand and /restore take a request as JSON and answer with JSON; GET /health reports what the server
/// is doing. One request for each connection. Work stops when the client closes its connection.
class PictureServer
{
public:
    /// Listens from here on, though nobody is answered before run(). `report` gets a line for every request that was
    /// answered, on any thread, one at a time. Throws FailureError if it cannot listen there.
    PictureServer(const ServerSettings& settings, std::function<void(const std::string&)> report);
    ~PictureServer();
    PictureServer(const PictureServer&) = delete;
    PictureServer& operator=(const PictureServer&) = delete;

    [[nodiscard]] int port() const;
    /// Answers requests until stop(). Once.
    void run();
    /// Ends run(): requests that are worked on are answered with 503 as soon as their work can be stopped. Any thread.
    void stop();

private:
    class Server;
    std::unique_ptr<Server> server;
};

} // namespace orvo::service
