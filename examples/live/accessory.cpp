// Simulates an accessory in a process of its own. Returns every SBC frame that arrives.
//
//     accessory SOCKET
//
// Makes a Unix socket at the path SOCKET and serves one connection after the other until it is
// killed. `live_loop` is the other side. A packet is one SBC frame of 8 ms. The program returns one
// frame every 8 ms, as over a radio link, even if many frames arrive at once.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kFrameDuration = 8ms;
constexpr auto kPause = 250ms;  // after a longer gap the pace starts anew

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

int listenAt(std::string_view path) {
    sockaddr_un address{};
    if (path.size() >= sizeof(address.sun_path)) {
        throw std::length_error("the path is too long for a socket");
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    const int listener = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (listener < 0 ||
        ::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listener, 1) != 0) {
        fail("socket");
    }
    return listener;
}

/// Returns when the other side has ended sending or is gone.
void serve(int connection) {
    std::array<std::byte, 512> frame;
    Clock::time_point due;
    for (;;) {
        const ssize_t size = ::recv(connection, frame.data(), frame.size(), 0);
        if (size <= 0) {
            return;
        }
        due += kFrameDuration;
        if (Clock::now() - due > kPause) {
            due = Clock::now();
        }
        std::this_thread::sleep_until(due);
        if (::send(connection, frame.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL) < 0) {
            return;
        }
    }
}

void run(const char* path) {
    const int listener = listenAt(path);
    for (;;) {
        const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) {
            fail("accept");
        }
        serve(connection);
        ::close(connection);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: accessory SOCKET\n", stderr);
        return 2;
    }
    try {
        run(argv[1]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "accessory: %s\n", error.what());
        return 1;
    }
}
