#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
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
    EXPECT_EXIT(fatalError("Everything is lost", {"Somewhere", 12}),
                testing::KilledBySignal(SIGABRT),
                "^Fatal error: Everything is lost: file Somewhere, line 12\n$");
    EXPECT_EXIT(fatalError(""), testing::KilledBySignal(SIGABRT),
                "^Fatal error: : file ErrorsTest.cpp, line [0-9]+\n$");
}

TEST(FatalError, tellsTheHandlerFirstAndStopsAllTheSame) {
    const auto stop = [] {
        setFatalErrorHandler([](std::string_view message, SourcePosition position) {
            std::fprintf(stderr, "told %s %s %u|", std::string(message).c_str(), position.file,
                         position.line);
        });
        fatalError("bad", {"/folder/Node.cpp", 3});
    };
    EXPECT_EXIT(stop(), testing::KilledBySignal(SIGABRT),
                "^told bad Node.cpp 3.Fatal error: bad: file Node.cpp, line 3\n$");
    const auto exit = [] {
        setFatalErrorHandler([](std::string_view, SourcePosition) { std::_Exit(7); });
        fatalError("bad");
    };
    EXPECT_EXIT(exit(), testing::ExitedWithCode(7), "^$");
    const auto failAgain = [] {
        setFatalErrorHandler([](std::string_view, SourcePosition) { fatalError("second"); });
        fatalError("first");
    };
    EXPECT_EXIT(failAgain(), testing::KilledBySignal(SIGABRT), "^Fatal error: second");
}

TEST(Diagnostics, goToStandardOutputUnlessTaken) {
    testing::internal::CaptureStdout();
    printDiagnostics("[Node] did something ");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[Node] did something \n");

    static std::string taken;
    EXPECT_EQ(setDiagnosticsHandler([](std::string_view line) { taken = line; }), nullptr);
    testing::internal::CaptureStdout();
    printDiagnostics("quiet");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(taken, "quiet");
    EXPECT_NE(setDiagnosticsHandler(nullptr), nullptr);
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
