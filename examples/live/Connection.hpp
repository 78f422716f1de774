#pragma once

#include <cstddef>
#include <span>
#include <string_view>

/// The link to the accessory and back: a Unix socket that preserves packet boundaries.
///
/// Threads: any. One thread at a time calls `receive`.
class Connection {
 public:
    /// Throws std::system_error if no accessory listens at `path`.
    explicit Connection(std::string_view path);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Does not wait. Returns false if the link has no room or the other end is gone.
    bool send(std::span<const std::byte> packet) const;
    /// Waits for a packet. Returns its size in bytes, or 0 at the end.
    std::size_t receive(std::span<std::byte> room) const;
    /// Ends sending. Packets on their way still come back.
    void endSending() const;
    /// Ends both directions, and a `receive` that waits.
    void end() const;

 private:
    const int socket_;
};
