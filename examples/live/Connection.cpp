#include "Connection.hpp"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

Connection::Connection(std::string_view path)
    : socket_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    // If the path is too long, connect fails: no accessory listens at the shortened path.
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        const int error = errno;
        ::close(socket_);
        throw std::system_error(error, std::generic_category(), "accessory");
    }
}

Connection::~Connection() {
    ::close(socket_);
}

bool Connection::send(std::span<const std::byte> packet) const {
    return ::send(socket_, packet.data(), packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0;
}

std::size_t Connection::receive(std::span<std::byte> room) const {
    const ssize_t size = ::recv(socket_, room.data(), room.size(), 0);
    return size > 0 ? static_cast<std::size_t>(size) : 0;
}

void Connection::endSending() const {
    ::shutdown(socket_, SHUT_WR);
}

void Connection::end() const {
    ::shutdown(socket_, SHUT_RDWR);
}
