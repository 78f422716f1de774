#include "ZAVAudioStreaming/platform/FileHandle.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace zav {
namespace {

constexpr int kClosed = -1;

[[noreturn]] void throwErrno() {
    throw std::system_error(errno, std::generic_category());
}

// Repeats a call that a signal interrupted.
template <class Call>
auto retried(Call call) {
    decltype(call()) result;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    if (result < 0) {
        throwErrno();
    }
    return result;
}

// Repeats a transfer until `size` bytes have moved or `transfer(done)` moves none.
template <class Transfer>
std::size_t transferAll(std::size_t size, Transfer transfer) {
    std::size_t done = 0;
    while (done < size) {
        const auto step = static_cast<std::size_t>(retried([&] { return transfer(done); }));
        if (step == 0) {
            break;
        }
        done += step;
    }
    return done;
}

}  // namespace

FileHandle FileHandle::openForReading(const std::filesystem::path& path) {
    FileHandle file(
        retried([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
    struct stat status {};
    retried([&] { return ::fstat(file.descriptor_, &status); });
    if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode)) {
        // With a folder, only the first read would fail. A pipe cannot be read at an offset.
        // Because of O_NONBLOCK, opening a pipe does not wait for its writer.
        throw std::system_error(S_ISDIR(status.st_mode) ? EISDIR : ESPIPE, std::generic_category());
    }
    return file;
}

FileHandle FileHandle::create(const std::filesystem::path& path, IfExists ifExists) {
    constexpr mode_t kModeBeforeUmask = 0666;
    const int flags =
        O_RDWR | O_CREAT | O_CLOEXEC | (ifExists == IfExists::replace ? O_TRUNC : O_EXCL);
    return FileHandle(retried([&] { return ::open(path.c_str(), flags, kModeBeforeUmask); }));
}

FileHandle FileHandle::openForWriting(const std::filesystem::path& path) {
    return FileHandle(retried([&] { return ::open(path.c_str(), O_WRONLY | O_CLOEXEC); }));
}

FileHandle::FileHandle(FileHandle&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, kClosed)), offset_(other.offset_) {}

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    std::swap(offset_, other.offset_);
    return *this;
}

FileHandle::~FileHandle() {
    if (descriptor_ != kClosed) {
        ::close(descriptor_);
    }
}

std::size_t FileHandle::readAt(std::uint64_t offset, void* buffer, std::size_t size) const {
    auto* const bytes = static_cast<std::byte*>(buffer);
    return transferAll(size, [&](std::size_t done) {
        return ::pread(descriptor_, bytes + done, size - done, static_cast<off_t>(offset + done));
    });
}

void FileHandle::writeAt(std::uint64_t offset, const void* bytes, std::size_t size) {
    const auto* const source = static_cast<const std::byte*>(bytes);
    transferAll(size, [&](std::size_t done) {
        return ::pwrite(descriptor_, source + done, size - done, static_cast<off_t>(offset + done));
    });
}

std::size_t FileHandle::read(void* buffer, std::size_t size) {
    const std::size_t done = readAt(offset_, buffer, size);
    offset_ += done;
    return done;
}

void FileHandle::write(const void* bytes, std::size_t size) {
    writeAt(offset_, bytes, size);
    offset_ += size;
}

std::uint64_t FileHandle::size() const {
    struct stat status {};
    retried([&] { return ::fstat(descriptor_, &status); });
    return static_cast<std::uint64_t>(status.st_size);
}

void FileHandle::close() {
    // Never repeated, even if interrupted: Linux closes the descriptor in any case.
    if (::close(std::exchange(descriptor_, kClosed)) != 0) {
        throwErrno();
    }
}

}  // namespace zav
