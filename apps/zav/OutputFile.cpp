#include "OutputFile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <ZAVAudioStreaming/containers/OpusFileHeader.hpp>
#include <ZAVAudioStreaming/containers/SbcFileHeader.hpp>
#include <ZAVAudioStreaming/core/AudioStreamError.hpp>
#include <ZAVAudioStreaming/core/MakeNode.hpp>
#include <ZAVAudioStreaming/core/PeripheralSource.hpp>
#include <ZAVAudioStreaming/platform/AudioFile.hpp>
#include <ZAVAudioStreaming/platform/AudioFileProperty.hpp>
#include <ZAVAudioStreaming/sinks/FileSink.hpp>
#include <ZAVAudioStreaming/sinks/ZAVOpusFileSink.hpp>
#include <ZAVAudioStreaming/sinks/ZAVSbcFileSink.hpp>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "Failure.hpp"
#include "FormatText.hpp"
#include "StatusLine.hpp"

namespace zavtool {
namespace {

namespace fs = std::filesystem;

std::string systemError() {
    return std::generic_category().message(errno);
}

// The signal handler reads this. The text does not change while the pointer is set.
std::atomic<const char*> unfinishedPath{nullptr};

std::atomic<bool> hasAnyAppeared{false};

extern "C" void endBySignal(int signal) {
    OutputFile::removeUnfinished();
    StatusLine::wipe();
    ::raise(signal);  // SA_RESETHAND has restored the default action
}

constexpr auto kEndingSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE};

void cleanUpOnSignals() {
    struct sigaction action {};
    action.sa_handler = endBySignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_NODEFER;
    for (const int signal : kEndingSignals) {
        struct sigaction before {};
        ::sigaction(signal, nullptr, &before);
        if (before.sa_handler != SIG_IGN) {  // nohup ignores SIGHUP
            ::sigaction(signal, &action, nullptr);
        }
    }
    // Without this signal, a write beyond a size limit fails like a write to a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
}

/// Blocks the signals that end the tool while this object lives.
class EndingSignalsBlock {
 public:
    EndingSignalsBlock() {
        sigset_t signals;
        ::sigemptyset(&signals);
        for (const int signal : kEndingSignals) {
            ::sigaddset(&signals, signal);
        }
        ::pthread_sigmask(SIG_BLOCK, &signals, &before_);
    }
    EndingSignalsBlock(const EndingSignalsBlock&) = delete;
    EndingSignalsBlock& operator=(const EndingSignalsBlock&) = delete;
    ~EndingSignalsBlock() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
    sigset_t before_{};
};

mode_t modeFor(const fs::path& target) {
    struct stat existing {};
    if (::stat(target.c_str(), &existing) == 0) {
        return existing.st_mode & 07777U;
    }
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666U & ~mask;
}

fs::path followLinks(const fs::path& path) {
    std::error_code error;
    const fs::path target = fs::weakly_canonical(path, error);
    return error ? path : target;
}

/// Sets the magic cookie of its file when the flow starts, and again at the end if the cookie has
/// changed. A FLAC encoder completes its cookie after it has encoded everything.
class FileSinkWithCookie : public zav::FileSink {
 public:
    FileSinkWithCookie(zav::NodeKey key,
                       const std::shared_ptr<zav::AudioStreamOutputable>& upstream,
                       const fs::path& path, zav::AudioFileTypeID type, CookieReader cookie)
        : FileSink(key, upstream, path, type), cookie_(std::move(cookie)) {}

    void onAudioStreamFlowStart() override {
        FileSink::onAudioStreamFlowStart();
        firstCookie_ = cookie_();
        setMagicCookie(firstCookie_);
    }
    void onAudioStreamFlowEnd() override {
        if (const auto lastCookie = cookie_(); lastCookie != firstCookie_) {
            setMagicCookie(lastCookie);
        }
        FileSink::onAudioStreamFlowEnd();
    }

 private:
    CookieReader cookie_;
    std::vector<std::byte> firstCookie_;
};

bool takesMagicCookie(zav::AudioFileID file) {
    std::uint32_t isWritable = 0;
    return zav::AudioFileGetPropertyInfo(file, zav::kAudioFilePropertyMagicCookieData, nullptr,
                                         &isWritable) == zav::noErr &&
           isWritable != 0;
}

bool takesMagicCookie(const fs::path& path, const FileType& type,
                      const zav::AudioStreamBasicDescription& format) {
    zav::AudioFileID file = nullptr;
    if (zav::AudioFileCreateWithURL(path, type.id, &format, zav::kAudioFileFlags_EraseFile,
                                    &file) != zav::noErr) {
        return false;
    }
    const bool isTaken = takesMagicCookie(file);
    zav::AudioFileClose(file);
    return isTaken;
}

void makeSink(const std::shared_ptr<zav::AudioStreamOutputable>& upstream, const FileType& type,
              const fs::path& path, const CookieReader& magicCookie) {
    if (type.id == kOpusContainerType) {
        zav::makeNode<zav::ZAVOpusFileSink>(upstream, path);
        return;
    }
    if (type.id == kSbcContainerType) {
        zav::makeNode<zav::ZAVSbcFileSink>(upstream, path);
        return;
    }
    if (magicCookie && takesMagicCookie(path, type, upstream->outDataFormat())) {
        zav::makeNode<FileSinkWithCookie>(upstream, path, type.id, magicCookie);
    } else {
        zav::makeNode<zav::FileSink>(upstream, path, type.id);
    }
}

/// Returns `noErr` if the container's sink takes this format, otherwise a status of the file
/// service.
zav::OSStatus tryContainer(const fs::path& path, const FileType& type,
                           const zav::AudioStreamBasicDescription& format) {
    const auto source = zav::makeNode<zav::PeripheralSource>();
    source->setOutDataFormat(format);
    try {
        makeSink(source, type, path, {});
    } catch (const zav::AudioStreamError&) {
        return zav::kAudioFileUnsupportedDataFormatError;
    }
    return zav::noErr;
}

/// Makes an empty file of this type, with the magic cookie if the type takes one.
zav::OSStatus tryType(const fs::path& path, const FileType& type,
                      const zav::AudioStreamBasicDescription& format,
                      std::span<const std::byte> magicCookie) {
    if (!isAudioFileType(type)) {
        return tryContainer(path, type, format);
    }
    zav::AudioFileID file = nullptr;
    if (const auto status = zav::AudioFileCreateWithURL(path, type.id, &format,
                                                        zav::kAudioFileFlags_EraseFile, &file);
        status != zav::noErr) {
        return status;
    }
    const zav::OSStatus cookieStatus =
        magicCookie.empty() || !takesMagicCookie(file)
            ? zav::noErr
            : zav::AudioFileSetProperty(file, zav::kAudioFilePropertyMagicCookieData,
                                        static_cast<std::uint32_t>(magicCookie.size()),
                                        magicCookie.data());
    const zav::OSStatus closeStatus = zav::AudioFileClose(file);
    return cookieStatus != zav::noErr ? cookieStatus : closeStatus;
}

std::string_view usualExtension(const FileType& type,
                                const zav::AudioStreamBasicDescription& format) {
    const bool isOggOpus =
        type.id == zav::kAudioFileOggType && format.mFormatID == zav::kAudioFormatOpus;
    return isOggOpus ? "opus" : type.extensions.front();
}

/// Returns the number of audio bytes in the file. Looks at the finished file, because the sinks do
/// not report errors of the last write and of the close.
std::uint64_t audioBytesIn(const fs::path& path, const FileType& type, std::uint64_t packetCount) {
    // These types contain only headers and audio, so the file's size is enough. The file service
    // would read the whole file again.
    if (type.id == zav::kAudioFileSBCType) {
        return fs::file_size(path);
    }
    if (type.id == kSbcContainerType) {
        return fs::file_size(path) - zav::SbcFileHeader::kByteCount;
    }
    if (type.id == kOpusContainerType) {
        return fs::file_size(path) - zav::OpusFileHeader::kByteCount -
               packetCount * zav::OpusRecordHeader::kByteCount;
    }
    zav::AudioFileID file = nullptr;
    if (zav::AudioFileOpenURL(path, zav::kAudioFileReadPermission, 0, &file) != zav::noErr) {
        return 0;
    }
    const auto size =
        zav::audioFileProperty<std::uint64_t>(file, zav::kAudioFilePropertyAudioDataByteCount);
    zav::AudioFileClose(file);
    return size;
}

}  // namespace

OutputFile::OutputFile(const fs::path& path, const fs::path& input)
    : path_(path), target_(followLinks(path)) {
    std::error_code error;
    if (fs::equivalent(input, target_, error)) {
        throw Failure(path_, "is the input itself; use another name for the output");
    }
    if (fs::is_symlink(target_, error)) {
        throw Failure(path_, "is a link to nothing; give the name of a file, or of a new file");
    }
    const fs::file_status status = fs::status(target_, error);
    if (fs::is_directory(status)) {
        throw Failure(path_, "is a folder; give the name of a file");
    }
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        throw Failure(path_, "is not a regular file; give the name of one, or of a new file");
    }
    if (fs::exists(status) && ::access(target_.c_str(), W_OK) != 0) {
        throw Failure(
            path_, "cannot be replaced: " + systemError() + "; use a file that you may write to");
    }

    const EndingSignalsBlock untilTheHandlerKnowsTheFile;
    std::string name = (target_.parent_path() / ".zav-XXXXXX").string();
    const int descriptor = ::mkostemp(name.data(), O_CLOEXEC);
    if (descriptor < 0) {
        throw Failure(path_, "cannot be created: " + systemError() +
                                 "; use a folder that exists and that you may write to");
    }
    ::fchmod(descriptor, modeFor(target_));
    ::close(descriptor);
    temporaryPath_ = name;
    unfinishedPath = temporaryPath_.c_str();
    cleanUpOnSignals();
}

OutputFile::~OutputFile() {
    removeUnfinished();
}

void OutputFile::removeUnfinished() noexcept {
    if (const char* const path = unfinishedPath.exchange(nullptr)) {
        ::unlink(path);
    }
}

bool OutputFile::oneHasAppeared() noexcept {
    return hasAnyAppeared;
}

void OutputFile::requireRoomFor(const FileType& type,
                                const zav::AudioStreamBasicDescription& format,
                                std::span<const std::byte> magicCookie,
                                const std::string& hint) const {
    const zav::OSStatus status = tryType(temporaryPath_, type, format, magicCookie);
    if (status == zav::kAudioFileUnsupportedDataFormatError) {
        std::vector<std::string> extensions;
        for (const FileType& other : fileTypes()) {
            if (tryType(temporaryPath_, other, format, magicCookie) == zav::noErr) {
                extensions.push_back("." + std::string(usualExtension(other, format)));
            }
        }
        throw Failure(
            path_, inWords(format) + " cannot be written to " + std::string(type.name) + "; " +
                       (extensions.empty() ? "no type can" : "use " + listed(extensions)) + hint);
    }
    if (status != zav::noErr) {
        throw Failure(path_, writingProblem(status));
    }
}

void OutputFile::addSink(const std::shared_ptr<zav::AudioStreamOutputable>& upstream,
                         const FileType& type, const CookieReader& magicCookie) {
    type_ = &type;
    makeSink(upstream, type, temporaryPath_, magicCookie);
}

void OutputFile::appear() {
    if (::rename(temporaryPath_.c_str(), target_.c_str()) != 0) {
        throw Failure(path_,
                      "cannot be replaced: " + systemError() + "; use another name for the output");
    }
    unfinishedPath = nullptr;
    hasAnyAppeared = true;
    temporaryPath_.clear();
}

void OutputFile::commit(std::uint64_t packetCount, std::uint64_t audioBytes) {
    const std::uint64_t written =
        audioBytesIn(hasAppeared() ? target_ : temporaryPath_, *type_, packetCount);
    if (written != audioBytes) {
        throw Failure(path_, "holds " + std::to_string(written) + " of " +
                                 std::to_string(audioBytes) +
                                 " bytes after writing; use a disk that keeps what is written");
    }
    if (!hasAppeared()) {
        appear();
    }
}

}  // namespace zavtool
