#pragma once

#include <cstddef>
#include <span>
#include <string_view>

/// The way to the accessory and back: a Unix socket that keeps packets apart.
///
/// Threads: any; `receive` on one at a time.
class Connection {
 public:
    /// Throws std::system_error when nobody listens at `path`.
    explicit Connection(std::string_view path);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Does not wait: false when there is no room, or nobody at the other end.
    bool send(std::span<const std::byte> packet) const;
    /// Waits for a packet; its size, or 0 at the end.
    std::size_t receive(std::span<std::byte> room) const;
    /// No more is sent; what is on its way still comes back.
    void endSending() const;
    /// Both ways, also for who waits in `receive`.
    void end() const;

 private:
    const int socket_;
};
