/// Connections to this machine: a service that behaves as a test wants, and a client of single bytes.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

namespace orvo::test {

/// One end of a connection. Closed with the object.
class Wire
{
public:
    /// Takes over a connected socket.
    explicit Wire(int socket_) : socket(socket_) {}
    /// Connects to a port of this machine.
    static Wire to(int port);
    ~Wire();
    Wire(Wire&& other) noexcept;
    Wire& operator=(Wire&&) = delete;

    /// As far as the other end takes it.
    void send(const std::string& bytes) const;
    /// The next bytes; empty at the end.
    [[nodiscard]] std::string receive() const;
    [[nodiscard]] std::string receiveAll() const;
    /// Until `text` or the end.
    [[nodiscard]] std::string receiveUntil(const std::string& text) const;
    /// A whole HTTP message: headers, and the body that they announce.
    [[nodiscard]] std::string receiveMessage() const;
    /// Closes with a reset, as a killed process on another machine may look.
    void abort();

private:
    int socket;
};

/// A service on a free port, which answers its connections one after the other.
class LoopbackService
{
public:
    /// `answer` gets each connection and its number from 0.
    explicit LoopbackService(std::function<void(Wire&, int)> answer);
    ~LoopbackService();
    LoopbackService(const LoopbackService&) = delete;
    LoopbackService& operator=(const LoopbackService&) = delete;

    [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + std::to_string(port); }
    [[nodiscard]] int connections() const { return count; }

private:
    int port = 0; // set by what makes `listener`
    int listener = -1;
    std::atomic<int> count = 0;
    std::thread thread;
};

/// A port on which nobody listens.
[[nodiscard]] int unusedPort();

[[nodiscard]] std::string httpAnswer(const std::string& status, const std::string& headers, const std::string& body);
[[nodiscard]] std::string httpPost(const std::string& path, const std::string& body,
                                   const std::string& type = "application/json");
/// What follows the headers of a message.
[[nodiscard]] std::string bodyOf(const std::string& message);

} // namespace orvo::test
