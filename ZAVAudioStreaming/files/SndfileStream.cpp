#include "ZAVAudioStreaming/files/SndfileStream.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "ZAVAudioStreaming/support/StatusFailure.hpp"

namespace zav::detail {

/// The callbacks for libsndfile. They catch every exception, because none may cross its C code.
struct SndfileCallbacks {
    template <class Result, class Call>
    static Result guarded(void* user, Result failure, Call call) noexcept {
        auto& stream = *static_cast<SndfileStream*>(user);
        try {
            return call(stream);
        } catch (...) {
            stream.keepFileError();
            return failure;
        }
    }

    static sf_count_t size(void* user) {
        return guarded<sf_count_t>(user, 0, [](SndfileStream& stream) {
            return static_cast<sf_count_t>(stream.file_.size());
        });
    }

    static sf_count_t seek(sf_count_t offset, int whence, void* user) {
        return guarded<sf_count_t>(user, -1, [&](SndfileStream& stream) {
            sf_count_t base = 0;
            if (whence == SEEK_CUR) {
                base = static_cast<sf_count_t>(stream.position_);
            } else if (whence == SEEK_END) {
                base = static_cast<sf_count_t>(stream.file_.size());
            }
            sf_count_t target = 0;
            if (__builtin_add_overflow(base, offset, &target) || target < 0) {
                return sf_count_t{-1};
            }
            stream.position_ = static_cast<std::uint64_t>(target);
            return target;
        });
    }

    static sf_count_t read(void* buffer, sf_count_t size, void* user) {
        return guarded<sf_count_t>(user, 0, [&](SndfileStream& stream) {
            return static_cast<sf_count_t>(stream.readAtPosition(static_cast<std::byte*>(buffer),
                                                                 static_cast<std::size_t>(size)));
        });
    }

    static sf_count_t write(const void* bytes, sf_count_t size, void* user) {
        return guarded<sf_count_t>(user, 0, [&](SndfileStream& stream) {
            return static_cast<sf_count_t>(stream.writeAtPosition(
                static_cast<const std::byte*>(bytes), static_cast<std::size_t>(size)));
        });
    }

    static sf_count_t tell(void* user) {
        return static_cast<sf_count_t>(static_cast<SndfileStream*>(user)->position_);
    }
};

SndfileStream::SndfileStream(FileHandle file, std::vector<ByteEdit> edits, SF_INFO& info)
    : file_(std::move(file)), edits_(std::move(edits)) {
    open(SFM_READ, info);
    // libsndfile has read the header, and the edits must not change audio. In an unfinished file,
    // audio can look like chunks.
    edits_.clear();
}

SndfileStream::SndfileStream(FileHandle file, HeaderEditor editHeader, SF_INFO& info)
    : file_(std::move(file)), editHeader_(std::move(editHeader)) {
    open(SFM_WRITE, info);
    // Raw writing never gives a peak to libsndfile, so libsndfile must not reserve a chunk for it.
    sf_command(sndfile_, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
}

SndfileStream::~SndfileStream() {
    sf_close(sndfile_);
}

void SndfileStream::open(int mode, SF_INFO& info) {
    SF_VIRTUAL_IO callbacks{SndfileCallbacks::size, SndfileCallbacks::seek, SndfileCallbacks::read,
                            SndfileCallbacks::write, SndfileCallbacks::tell};
    sndfile_ = sf_open_virtual(&callbacks, mode, &info, this);
    if (sndfile_ == nullptr) {
        throwFileError();
        throw StatusFailure(sf_error(nullptr) == SF_ERR_UNSUPPORTED_ENCODING
                                ? kAudioFileUnsupportedDataFormatError
                                : kAudioFileInvalidFileError);
    }
}

bool SndfileStream::isBigEndian() {
    constexpr bool isCpuBigEndian = std::endian::native == std::endian::big;
    const bool isForeign = sf_command(sndfile_, SFC_RAW_DATA_NEEDS_ENDSWAP, nullptr, 0) == SF_TRUE;
    return isForeign != isCpuBigEndian;
}

void SndfileStream::seek(std::uint64_t frame) {
    if (sf_seek(sndfile_, static_cast<sf_count_t>(frame), SEEK_SET) < 0) {
        throwFileError();
        throw StatusFailure(kAudioFilePositionError);
    }
}

std::size_t SndfileStream::readRaw(void* buffer, std::size_t size) {
    return static_cast<std::size_t>(sf_read_raw(sndfile_, buffer, static_cast<sf_count_t>(size)));
}

std::size_t SndfileStream::writeRaw(const void* bytes, std::size_t size) {
    return static_cast<std::size_t>(sf_write_raw(sndfile_, bytes, static_cast<sf_count_t>(size)));
}

void SndfileStream::updateHeader() {
    sf_command(sndfile_, SFC_UPDATE_HEADER_NOW, nullptr, 0);
}

void SndfileStream::keepFileError() {
    if (fileError_ == nullptr) {
        fileError_ = std::current_exception();
    }
}

void SndfileStream::throwFileError() {
    if (fileError_ != nullptr) {
        std::rethrow_exception(std::exchange(fileError_, nullptr));
    }
}

void SndfileStream::close(std::span<const std::byte> trailer) {
    sf_close(std::exchange(sndfile_, nullptr));
    throwFileError();
    if (!trailer.empty()) {
        file_.writeAt(file_.size(), trailer.data(), trailer.size());
    }
    file_.close();
}

std::size_t SndfileStream::readAtPosition(std::byte* buffer, std::size_t size) {
    const std::size_t done = file_.readAt(position_, buffer, size);
    for (const ByteEdit& edit : edits_) {
        if (edit.offset >= position_ && edit.offset < position_ + done) {
            buffer[edit.offset - position_] = edit.value;
        }
    }
    position_ += done;
    return done;
}

std::size_t SndfileStream::writeAtPosition(const std::byte* bytes, std::size_t size) {
    if (position_ == 0 && editHeader_) {
        // Audio never starts at byte 0, and libsndfile writes a header in one call.
        std::vector<std::byte> header(bytes, bytes + size);
        editHeader_(header);
        file_.writeAt(0, header.data(), size);
    } else {
        size = appendOrOverwrite(bytes, size);
    }
    position_ += size;
    end_ = std::max(end_, position_);
    return size;
}

std::size_t SndfileStream::appendOrOverwrite(const std::byte* bytes, std::size_t size) {
    try {
        file_.writeAt(position_, bytes, size);
    } catch (...) {
        keepFileError();
        return position_ < end_ ? 0 : file_.size() - std::min(file_.size(), position_);
    }
    return size;
}

}  // namespace zav::detail
