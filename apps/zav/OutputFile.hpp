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

/// Tells a stream's magic cookie as it is by now.
using CookieReader = std::function<std::vector<std::byte>()>;

/// A file that appears under its name only when it is complete. Until then it is written beside it
/// under a temporary name, which disappears with a failure, a fatal stop of the library, or a
/// signal. One at a time.
class OutputFile {
 public:
    /// Throws `Failure` when no file can be made there, and when it would be the input itself.
    OutputFile(const std::filesystem::path& path, const std::filesystem::path& input);
    ~OutputFile();

    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Finds out, before any audio is read, whether a file of this type and format can be made here
    /// and takes this magic cookie (empty: none), if it takes any. Throws `Failure` with the
    /// reason; `hint` stands behind that of a type which does not hold the format.
    void requireRoomFor(const FileType& type, const zav::AudioStreamBasicDescription& format,
                        std::span<const std::byte> magicCookie = {},
                        const std::string& hint = "") const;

    /// Makes the sink that writes the file, after `requireRoomFor`. If the type takes a magic
    /// cookie, it gets it as soon as the flow has started, and again when it is another at the end.
    void addSink(const std::shared_ptr<zav::AudioStreamOutputable>& upstream, const FileType& type,
                 const CookieReader& magicCookie = {});

    /// Gives the file its name already while it is being written, once the sink has made it: what
    /// is there by then outlives the process, however that ends. Throws `Failure`.
    void appear();

    /// Checks that the written file can be opened and holds `packetCount` packets of together
    /// `audioBytes` bytes, then gives it its name, unless it has it. Throws `Failure`.
    void commit(std::uint64_t packetCount, std::uint64_t audioBytes);

    /// Removes the temporary file of this run, if there is one. Safe in a signal handler.
    static void removeUnfinished() noexcept;
    /// Whether a file of this run has its name, and stays.
    static bool oneHasAppeared() noexcept;

 private:
    bool hasAppeared() const { return temporaryPath_.empty(); }

    std::filesystem::path path_;
    std::filesystem::path target_;  // `path_` with links followed
    std::filesystem::path temporaryPath_;
    const FileType* type_ = nullptr;
};

}  // namespace zavtool
