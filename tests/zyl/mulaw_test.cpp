#include "audio/hal/aidl/soundtrigger/zyl/zyl_mulaw.h"

#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <numeric>
#include <vector>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {
namespace {

std::vector<int16_t> Expanded(const std::vector<uint8_t>& codes) {
    std::vector<char> bytes(codes.size() * sizeof(int16_t) + 1);
    ExpandMulaw(codes, bytes.data() + 1);  // An odd address: callers' buffers are bytes.
    std::vector<int16_t> samples(codes.size());
    std::memcpy(samples.data(), bytes.data() + 1, bytes.size() - 1);
    return samples;
}

TEST(MulawTest, EveryCodeExpandsAsAnotherDecoderAndTheStandardHaveIt) {
    std::vector<uint8_t> codes(256);
    std::iota(codes.begin(), codes.end(), uint8_t{0});
    const int file = memfd_create("mulaw", MFD_CLOEXEC);
    ASSERT_EQ(256, pwrite(file, codes.data(), codes.size(), 0));
    SF_INFO info{};
    info.samplerate = 16000;
    info.channels = 1;
    info.format = SF_FORMAT_RAW | SF_FORMAT_ULAW;
    SNDFILE* const decoder = sf_open_fd(file, SFM_READ, &info, /*close_desc=*/SF_TRUE);
    ASSERT_NE(nullptr, decoder) << sf_strerror(nullptr);
    std::vector<int16_t> expected(256);
    EXPECT_EQ(256, sf_read_short(decoder, expected.data(), 256));
    sf_close(decoder);

    EXPECT_EQ(expected, Expanded(codes));
    EXPECT_EQ((std::vector<int16_t>{0, -32124, 32124}), Expanded({0xFF, 0x00, 0x80}));
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
