/// A connection of a client to the server, whose time is limited as a whole.
#pragma once

#include <httplib.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>

namespace orvo::service {

/// The library's own streams limit the time of each read, so that a client that sends a byte now and then holds its
/// thread for ever. Here the request as a whole has to arrive within a time, and the answer has to be taken within the
/// same time again.
class Connection final : public httplib::Stream
{
public:
    /// `stopping` ends every wait.
    Connection(socket_t socket, std::chrono::seconds patience, const std::atomic<bool>& stopping);

    [[nodiscard]] bool is_readable() const override;
    [[nodiscard]] bool is_writable() const override;
    ssize_t read(char* data, std::size_t size) override;
    ssize_t write(const char* data, std::size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    [[nodiscard]] socket_t socket() const override { return descriptor; }

    /// The time for the request is up.
    [[nodiscard]] bool isLate() const;
    /// The client has closed its side; while the server works on a whole request nothing else can arrive.
    [[nodiscard]] bool isClosed() const;
    /// Ends the answer, then reads what the client may still be sending, so that it gets to read the answer, and
    /// closes.
    void finish();

private:
    using Clock = std::chrono::steady_clock;
    [[nodiscard]] bool waitFor(short events, Clock::time_point deadline) const;

    static constexpr std::size_t kBuffer = 65536;
    socket_t descriptor;
    const std::chrono::seconds patience;
    const std::atomic<bool>& stopping;
    const Clock::time_point readDeadline;
    Clock::time_point writeDeadline{}; // from the first write on
    std::array<char, kBuffer> buffer;
    std::size_t begin = 0;
    std::size_t end = 0;
};

} // namespace orvo::service
