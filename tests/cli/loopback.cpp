#include "loopback.hpp"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <utility>

namespace orvo::test {
namespace {

constexpr const char* kEndOfHeaders = "\r\n\r\n";

sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<in_port_t>(port));
    return address;
}

int boundSocket(int& port)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    if (socket < 0 || ::bind(socket, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::runtime_error("no port is free");
    port = ntohs(address.sin_port);
    return socket;
}

std::size_t announcedLength(const std::string& headers)
{
    constexpr const char* kName = "Content-Length: ";
    const auto at = headers.find(kName);
    return at == std::string::npos ? 0 : std::stoul(headers.substr(at + std::string(kName).size()));
}

} // namespace

Wire Wire::to(int port)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("nobody listens on port " + std::to_string(port));
    return Wire(socket);
}

Wire::~Wire()
{
    if (socket >= 0)
        ::close(socket);
}

Wire::Wire(Wire&& other) noexcept : socket(std::exchange(other.socket, -1)) {}

void Wire::send(const std::string& bytes) const
{
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t step = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (step <= 0)
            return;
        sent += static_cast<std::size_t>(step);
    }
}

std::string Wire::receive() const
{
    std::array<char, 65536> chunk{};
    const ssize_t got = ::recv(socket, chunk.data(), chunk.size(), 0);
    return got > 0 ? std::string(chunk.data(), static_cast<std::size_t>(got)) : std::string();
}

std::string Wire::receiveAll() const
{
    std::string all;
    for (std::string piece = receive(); !piece.empty(); piece = receive())
        all += piece;
    return all;
}

std::string Wire::receiveUntil(const std::string& text) const
{
    std::string all;
    while (all.find(text) == std::string::npos) {
        const std::string piece = receive();
        if (piece.empty())
            break;
        all += piece;
    }
    return all;
}

std::string Wire::receiveMessage() const
{
    std::string message = receiveUntil(kEndOfHeaders);
    const auto end = message.find(kEndOfHeaders);
    if (end == std::string::npos)
        return message;
    const std::size_t whole = end + std::string(kEndOfHeaders).size() + announcedLength(message.substr(0, end));
    while (message.size() < whole) {
        const std::string piece = receive();
        if (piece.empty())
            break;
        message += piece;
    }
    return message;
}

void Wire::abort()
{
    const linger atOnce{1, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    ::close(std::exchange(socket, -1));
}

LoopbackService::LoopbackService(std::function<void(Wire&, int)> answer) : listener(boundSocket(port))
{
    constexpr int kQueue = 8;
    ::listen(listener, kQueue);
    thread = std::thread([this, answer = std::move(answer)] {
        for (int socket = 0; (socket = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            Wire wire(socket);
            answer(wire, count++);
        }
    });
}

LoopbackService::~LoopbackService()
{
    ::shutdown(listener, SHUT_RDWR); // ends accept4()
    thread.join();
    ::close(listener);
}

int unusedPort()
{
    int port = 0;
    ::close(boundSocket(port));
    return port;
}

std::string httpAnswer(const std::string& status, const std::string& headers, const std::string& body)
{
    return "HTTP/1.1 " + status + "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) +
           "\r\nConnection: close\r\n\r\n" + body;
}

std::string httpPost(const std::string& path, const std::string& body, const std::string& type)
{
    return "POST " + path + " HTTP/1.1\r\nHost: localhost\r\nContent-Type: " + type +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string bodyOf(const std::string& message)
{
    const auto end = message.find(kEndOfHeaders);
    return end == std::string::npos ? std::string() : message.substr(end + std::string(kEndOfHeaders).size());
}

} // namespace orvo::test
