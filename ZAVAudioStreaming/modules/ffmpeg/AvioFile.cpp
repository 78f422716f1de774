#include "ZAVAudioStreaming/modules/ffmpeg/AvioFile.hpp"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

#include <cstdio>
#include <new>
#include <utility>

namespace zav::detail {

AvioFile::AvioFile(FileHandle file, Access access, std::uint64_t start)
    : file_(std::move(file)), start_(start) {
    constexpr int kBufferSize = 65536;
    auto* const buffer = static_cast<std::uint8_t*>(av_malloc(kBufferSize));
    context_ = buffer == nullptr ? nullptr
                                 : avio_alloc_context(buffer, kBufferSize, access == Access::write,
                                                      this, &read, &write, &seek);
    if (context_ == nullptr) {
        av_free(buffer);
        throw std::bad_alloc();
    }
}

AvioFile::~AvioFile() {
    // libavformat can have replaced the buffer.
    av_freep(static_cast<void*>(&context_->buffer));
    avio_context_free(&context_);
}

// Catches every exception, because none may cross libavformat's C code.
template <class Result, class Call>
Result AvioFile::guarded(void* user, Call call) noexcept {
    auto& self = *static_cast<AvioFile*>(user);
    try {
        return call(self);
    } catch (...) {
        if (self.fileError_ == nullptr) {
            self.fileError_ = std::current_exception();
        }
        return AVERROR(EIO);
    }
}

int AvioFile::read(void* user, std::uint8_t* buffer, int size) {
    return guarded<int>(user, [&](AvioFile& self) {
        const std::size_t done =
            self.file_.readAt(self.start_ + self.position_, buffer, static_cast<std::size_t>(size));
        self.position_ += done;
        return done == 0 ? AVERROR_EOF : static_cast<int>(done);
    });
}

int AvioFile::write(void* user, std::uint8_t* bytes, int size) {
    return guarded<int>(user, [&](AvioFile& self) {
        self.file_.writeAt(self.start_ + self.position_, bytes, static_cast<std::size_t>(size));
        self.position_ += static_cast<std::uint64_t>(size);
        return size;
    });
}

std::int64_t AvioFile::seek(void* user, std::int64_t offset, int whence) {
    return guarded<std::int64_t>(user, [&](AvioFile& self) -> std::int64_t {
        std::int64_t base = 0;
        switch (whence & ~AVSEEK_FORCE) {
            case SEEK_SET:
                break;
            case SEEK_CUR:
                base = static_cast<std::int64_t>(self.position_);
                break;
            case AVSEEK_SIZE:
                return self.isSizeHidden_
                           ? AVERROR(ENOSYS)
                           : static_cast<std::int64_t>(self.file_.size() - self.start_);
            default:
                // Not needed: libavformat asks for the size instead of seeking from the end.
                return AVERROR(ENOSYS);
        }
        std::int64_t target = 0;
        if (__builtin_add_overflow(base, offset, &target) || target < 0) {
            return AVERROR(EINVAL);
        }
        self.position_ = static_cast<std::uint64_t>(target);
        return target;
    });
}

void AvioFile::flush() {
    avio_flush(context_);
    throwFileError();
}

void AvioFile::throwFileError() {
    if (fileError_ != nullptr) {
        std::rethrow_exception(std::exchange(fileError_, nullptr));
    }
}

}  // namespace zav::detail
