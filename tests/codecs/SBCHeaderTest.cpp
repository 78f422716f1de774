#include "ZAVAudioStreaming/support/SBCHeader.hpp"

#include <gtest/gtest.h>
#include <sbc/sbc.h>

#include "tests/support/TestAudio.hpp"

namespace zav::test {

using namespace detail;

namespace {

class SBCHeaderTest : public testing::Test {
 protected:
    SBCHeaderTest() { sbc_init(&state_, 0); }
    ~SBCHeaderTest() override { sbc_finish(&state_); }

    /// Gives libsbc the parameters that the bits of byte 1 stand for.
    void setParameters(std::uint8_t parameters, std::uint8_t bitpool) {
        state_.frequency = parameters >> 6U;
        state_.blocks = parameters >> 4U & 3U;
        state_.mode = parameters >> 2U & 3U;
        state_.allocation = parameters >> 1U & 1U;
        state_.subbands = parameters & 1U;
        state_.bitpool = bitpool;
    }

    sbc_t state_{};
};

TEST_F(SBCHeaderTest, hasTheSizesOfLibsbcForAllParameters) {
    std::size_t longest = 0;
    for (unsigned parameters = 0; parameters < 256; ++parameters) {
        for (unsigned bitpool = 0; bitpool < 256; ++bitpool) {
            SCOPED_TRACE(testing::Message() << parameters << ", bitpool " << bitpool);
            setParameters(static_cast<std::uint8_t>(parameters),
                          static_cast<std::uint8_t>(bitpool));
            const auto header = SBCHeader::fromBytes(bytesFrom({0x9C, parameters, bitpool}));
            ASSERT_TRUE(header);
            ASSERT_EQ(header->frameLength(), sbc_get_frame_length(&state_));
            ASSERT_EQ(header->samplesPerChannel() * header->channels() * sizeof(std::int16_t),
                      sbc_get_codesize(&state_));
            longest = std::max<std::size_t>(longest, header->frameLength());
        }
    }
    EXPECT_EQ(longest, kLongestSbcFrame);
}

TEST_F(SBCHeaderTest, readsTheHeaderOfAFrameThatLibsbcEncoded) {
    setParameters(0b10'01'11'1'0, 21);
    const Bytes pcm = testPcm(1024);
    Bytes frame(kLongestSbcFrame);
    sbc_encode(&state_, pcm.data(), pcm.size(), frame.data(), frame.size(), nullptr);
    const SBCHeader expected{.sampleRate = 44100,
                             .blocks = 8,
                             .mode = SBCHeader::ChannelMode::jointStereo,
                             .allocation = SBCHeader::Allocation::snr,
                             .subbands = 4,
                             .bitpool = 21};
    EXPECT_EQ(SBCHeader::fromBytes(frame), expected);
}

TEST_F(SBCHeaderTest, isEmptyWithoutAWholeHeader) {
    EXPECT_EQ(SBCHeader::fromBytes({}), std::nullopt);
    EXPECT_EQ(SBCHeader::fromBytes(bytesFrom({0x9C, 0x31})), std::nullopt);
    EXPECT_EQ(SBCHeader::fromBytes(bytesFrom({0x9D, 0x31, 32})), std::nullopt);
}

}  // namespace
}  // namespace zav::test
