#include "connection.hpp"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace orvo::service {
namespace {

constexpr std::chrono::milliseconds kPoll{50};                // how soon a stop of the server is noticed
constexpr std::chrono::seconds kLongestFinish{5};             // for a client that goes on sending after its answer
constexpr std::chrono::milliseconds kFinishWhenStopping{500}; // the same, where the process is about to end

void describe(const sockaddr_storage& address, std::string& ip, int& port)
{
    std::array<char, INET6_ADDRSTRLEN> text{};
    const void* number = nullptr;
    if (address.ss_family == AF_INET) {
        const auto& ipv4 = reinterpret_cast<const sockaddr_in&>(address);
        number = &ipv4.sin_addr;
        port = ntohs(ipv4.sin_port);
    } else if (address.ss_family == AF_INET6) {
        const auto& ipv6 = reinterpret_cast<const sockaddr_in6&>(address);
        number = &ipv6.sin6_addr;
        port = ntohs(ipv6.sin6_port);
    }
    if (number != nullptr && ::inet_ntop(address.ss_family, number, text.data(), text.size()) != nullptr)
        ip = text.data();
}

} // namespace

Connection::Connection(socket_t socket_, std::chrono::seconds patience_, const std::atomic<bool>& stopping_)
    : descriptor(socket_), patience(patience_), stopping(stopping_), readDeadline(Clock::now() + patience_)
{}

bool Connection::waitFor(short events, Clock::time_point deadline) const
{
    while (!stopping) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            return false;
        pollfd entry{descriptor, events, 0};
        const int ready = ::poll(&entry, 1, static_cast<int>(std::min(left, kPoll).count()));
        if (ready > 0)
            return true; // an error, too: the next call reports it
        if (ready < 0 && errno != EINTR)
            return false;
    }
    return false;
}

bool Connection::is_readable() const { return begin < end || waitFor(POLLIN, readDeadline); }

bool Connection::is_writable() const
{
    return waitFor(POLLOUT, writeDeadline == Clock::time_point() ? Clock::now() + patience : writeDeadline);
}

ssize_t Connection::read(char* data, std::size_t size)
{
    while (begin == end) {
        if (!waitFor(POLLIN, readDeadline))
            return -1;
        const ssize_t got = ::recv(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (got > 0) {
            begin = 0;
            end = static_cast<std::size_t>(got);
        } else if (got == 0 || (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK)) {
            return got;
        }
    }
    const std::size_t count = std::min(size, end - begin);
    std::memcpy(data, buffer.data() + begin, count);
    begin += count;
    return static_cast<ssize_t>(count);
}

ssize_t Connection::write(const char* data, std::size_t size)
{
    if (writeDeadline == Clock::time_point())
        writeDeadline = Clock::now() + patience;
    for (;;) {
        // What fits at once goes out even while the server stops: the client learns why.
        const ssize_t sent = ::send(descriptor, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent >= 0)
            return sent;
        if (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK)
            return -1;
        if (!waitFor(POLLOUT, writeDeadline))
            return -1;
    }
}

void Connection::get_remote_ip_and_port(std::string& ip, int& port) const
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (::getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0)
        describe(address, ip, port);
}

void Connection::get_local_ip_and_port(std::string& ip, int& port) const
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0)
        describe(address, ip, port);
}

bool Connection::isLate() const { return Clock::now() >= readDeadline; }

bool Connection::isClosed() const
{
    char byte = 0;
    const ssize_t got = ::recv(descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK);
}

void Connection::finish()
{
    ::shutdown(descriptor, SHUT_WR);
    // Closing with bytes unread resets the connection, and the client may lose the answer that it has not read yet.
    const auto answered = Clock::now();
    const auto left = [&] {
        const auto longest = stopping ? Clock::duration(kFinishWhenStopping) : Clock::duration(kLongestFinish);
        return std::chrono::ceil<std::chrono::milliseconds>(answered + std::min<Clock::duration>(patience, longest) -
                                                            Clock::now());
    };
    for (auto wait = left(); wait.count() > 0; wait = left()) {
        pollfd entry{descriptor, POLLIN, 0};
        const int ready = ::poll(&entry, 1, static_cast<int>(std::min(wait, kPoll).count()));
        if (ready < 0 && errno != EINTR)
            break;
        if (ready > 0 && ::recv(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT) <= 0)
            break;
    }
    ::close(descriptor);
    descriptor = INVALID_SOCKET;
}

} // namespace orvo::service
