#pragma once

#include <ZAVAudioStreaming/core/AudioStreamFormat.hpp>
#include <ZAVAudioStreaming/core/AudioStreamOutputable.hpp>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "FileType.hpp"

namespace zavtool {

/// Returns the current magic cookie of a stream.
using CookieReader = std::function<std::vector<std::byte>()>;

/// A file that appears under its name only when it is complete. Before that, the file has a
/// temporary name in the same folder. A failure, a fatal stop of the library or a signal removes
/// the temporary file. A process has at most one `OutputFile` at a time.
class OutputFile {
 public:
    /// Throws `Failure` if no file can be made at `path`, or if `path` is the input itself.
    OutputFile(const std::filesystem::path& path, const std::filesystem::path& input);
    ~OutputFile();

    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Checks that a file of this type and format can be made here. Call it before any audio is
    /// read. If the type has a place for a magic cookie, also checks that the file takes
    /// `magicCookie` (empty: none). Throws `Failure` with the reason. The reason includes `hint` if
    /// the type cannot hold the format.
    void requireRoomFor(const FileType& type, const zav::AudioStreamBasicDescription& format,
                        std::span<const std::byte> magicCookie = {},
                        const std::string& hint = "") const;

    /// Makes the sink that writes the file. Call it after `requireRoomFor`. If the type takes a
    /// magic cookie, the file gets the cookie when the flow starts. The file gets the cookie again
    /// at the end if the cookie has changed.
    void addSink(const std::shared_ptr<zav::AudioStreamOutputable>& upstream, const FileType& type,
                 const CookieReader& magicCookie = {});

    /// Gives the file its final name during the recording, so that the file survives any end of the
    /// process. Call this after the sink has made the file. Throws `Failure`.
    void appear();

    /// Checks that the file can be opened and contains `audioBytes` bytes of audio in `packetCount`
    /// packets. Then gives the file its final name, unless `appear` has already done so. Throws
    /// `Failure`.
    void commit(std::uint64_t packetCount, std::uint64_t audioBytes);

    /// Removes the temporary file of this run, if there is one. Safe in a signal handler.
    static void removeUnfinished() noexcept;
    /// True if a file of this run has its final name and will stay.
    static bool oneHasAppeared() noexcept;

 private:
    bool hasAppeared() const { return temporaryPath_.empty(); }

    std::filesystem::path path_;
    std::filesystem::path target_;  // `path_` with links followed
    std::filesystem::path temporaryPath_;
    const FileType* type_ = nullptr;
};

}  // namespace zavtool
