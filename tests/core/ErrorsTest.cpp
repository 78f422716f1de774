#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <limits>
#include <memory>
#include <thread>
#include <unordered_set>

#include "ZAVAudioStreaming/codecs/OpusCoding.hpp"
#include "ZAVAudioStreaming/core/AudioFileError.hpp"
#include "ZAVAudioStreaming/core/AudioQueueError.hpp"
#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/core/Diagnostics.hpp"
#include "ZAVAudioStreaming/core/FatalError.hpp"
#include "ZAVAudioStreaming/support/CheckedArithmetic.hpp"

namespace zav::test {

using namespace detail;

namespace {

TEST(Errors, areValuesThatTellTheirCaseAndStatus) {
    const std::unordered_set<AudioStreamError> seen{AudioStreamError::unacceptableData()};
    EXPECT_TRUE(seen.contains(AudioStreamError::unacceptableData()));
    const std::unordered_set<OpusCoding::OpusError> seenOfOpus{OpusCoding::OpusError::opus()};
    EXPECT_TRUE(seenOfOpus.contains(OpusCoding::OpusError::opus()));
    EXPECT_EQ(AudioFileError::open(-43), AudioFileError::open(-43));
    EXPECT_NE(AudioFileError::open(-43), AudioFileError::open(-54));
    EXPECT_NE(AudioFileError::open(-43), AudioFileError::read(-43));
    EXPECT_EQ(AudioQueueError::failure(-50).status(), -50);
    EXPECT_STREQ(AudioFileError::open(0x7479703F).what(), "AudioFileError.open('typ?')");
    EXPECT_STREQ(AudioFileError::read(-36).what(), "AudioFileError.read(-36)");
}

TEST(OSStatusText, showsFourCharactersOnlyWhenTheyPrint) {
    EXPECT_EQ(statusText(0x666D743F), "'fmt?'");
    EXPECT_EQ(statusText(-50), "-50");
    EXPECT_EQ(fourCharText(0x00736263), "\\x00sbc");
}

TEST(FatalError, printsOneLineAndAborts) {
    EXPECT_EXIT(fatalError(FatalCause::misuse, "Everything is lost", {"Somewhere", 12}),
                testing::KilledBySignal(SIGABRT),
                "^Fatal error: Everything is lost: file Somewhere, line 12\n$");
    EXPECT_EXIT(fatalError(FatalCause::misuse, ""), testing::KilledBySignal(SIGABRT),
                "^Fatal error: : file ErrorsTest.cpp, line [0-9]+\n$");
}

TEST(FatalError, callsItsHandlerInPlaceBeforeItStops) {
    const auto stop = [] {
        const auto context = std::make_shared<int>();
        setFatalErrorHandler([context](const FatalStop& stop) {
            // Two owners, here and in the installed handler: a stop must not copy it, because that
            // may take memory.
            std::fprintf(stderr, "owners %ld, %s %d %s %s %u|", context.use_count(),
                         stop.cause == FatalCause::fileWriting ? "writing" : "", stop.code,
                         std::string(stop.text).c_str(), stop.position.file, stop.position.line);
        });
        fatalError(FatalCause::fileWriting, -34, "bad", {"/folder/Node.cpp", 3});
    };
    EXPECT_EXIT(stop(), testing::KilledBySignal(SIGABRT),
                "^owners 2, writing -34 bad Node.cpp 3.Fatal error: bad: file Node.cpp, line 3\n$");
}

TEST(FatalError, leavesTheEndToItsHandler) {
    const auto exit = [] {
        setFatalErrorHandler([](const FatalStop&) { std::_Exit(7); });
        fatalError(FatalCause::misuse, "bad");
    };
    EXPECT_EXIT(exit(), testing::ExitedWithCode(7), "^$");
}

TEST(FatalError, doesNotCallAHandlerThatItselfStopsAgain) {
    const auto failAgain = [] {
        setFatalErrorHandler([](const FatalStop&) { fatalError(FatalCause::misuse, "second"); });
        fatalError(FatalCause::misuse, "first");
    };
    EXPECT_EXIT(failAgain(), testing::KilledBySignal(SIGABRT), "^Fatal error: second: [^\n]*\n$");
}

TEST(FatalError, onASecondThreadWaitsForTheFirstOnesHandler) {
    const auto stopTwice = [] {
        std::promise<void> handling;
        setFatalErrorHandler([&](const FatalStop&) {
            handling.set_value();
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            std::_Exit(7);
        });
        std::thread([] { fatalError(FatalCause::misuse, "first"); }).detach();
        handling.get_future().wait();
        fatalError(FatalCause::misuse, "second");
    };
    EXPECT_EXIT(stopTwice(), testing::ExitedWithCode(7), "^$");
}

TEST(Diagnostics, goToStandardOutputUnlessTaken) {
    testing::internal::CaptureStdout();
    printDiagnostics("[Node] did something ");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[Node] did something \n");

    std::string taken;
    EXPECT_FALSE(setDiagnosticsHandler([&](std::string_view line) { taken = line; }));
    testing::internal::CaptureStdout();
    printDiagnostics("quiet");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(taken, "quiet");
    EXPECT_TRUE(setDiagnosticsHandler(nullptr));
}

TEST(CheckedArithmetic, stopsWhereTheResultDoesNotFit) {
    EXPECT_EQ(checkedCast<std::uint32_t>(std::int64_t{4294967295}), 4294967295U);
    EXPECT_DEATH(checkedCast<std::uint32_t>(std::int64_t{-1}), "ErrorsTest.cpp");
    EXPECT_DEATH(checkedCast<std::int64_t>(std::numeric_limits<std::uint64_t>::max()),
                 "Not enough bits");
    EXPECT_EQ(checkedMultiply(65535U, 65537U), 4294967295U);
    EXPECT_DEATH(checkedMultiply(65536U, 65536U), "Arithmetic overflow");
    EXPECT_DEATH(checkedDivide(1U, 0U), "Division by zero");
}

}  // namespace
}  // namespace zav::test
