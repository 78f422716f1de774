#include "StatusLine.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <string_view>

namespace zavtool {
namespace {

std::atomic<bool> isOnScreen{false};

std::size_t terminalWidth() {
    constexpr std::size_t kUsualWidth = 80;
    winsize size{};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col
                                                                             : kUsualWidth;
}

}  // namespace

StatusLine::StatusLine(bool isQuiet) : isShown_(!isQuiet && ::isatty(STDERR_FILENO) == 1) {}

StatusLine::~StatusLine() {
    wipe();
}

void StatusLine::show(const std::vector<std::string>& fields) const {
    if (!isShown_) {
        return;
    }
    constexpr std::string_view kBetween = "  ";
    // Leaves room for the cursor and for the "^C" that a terminal prints.
    constexpr std::size_t kReserve = 3;
    const std::size_t width = terminalWidth();
    const std::size_t room = width - std::min(width, kReserve);
    std::string line;
    for (const std::string& field : fields) {
        const std::string_view between = line.empty() ? "" : kBetween;
        if (line.size() + between.size() + field.size() > room) {
            continue;
        }
        line.append(between).append(field);
    }
    // Erasing the rest after the new text avoids flicker.
    std::fprintf(stderr, "\r%s\033[K", line.c_str());
    std::fflush(stderr);
    isOnScreen = true;
}

void StatusLine::finish(const std::string& summary) const {
    wipe();
    if (isShown_) {
        std::fprintf(stderr, "%s\n", summary.c_str());
    }
}

void StatusLine::wipe() noexcept {
    constexpr std::string_view kBackAndErase = "\r\033[K";
    if (isOnScreen.exchange(false)) {
        // A terminal that fails is not an error of the run.
        static_cast<void>(!::write(STDERR_FILENO, kBackAndErase.data(), kBackAndErase.size()));
    }
}

}  // namespace zavtool
