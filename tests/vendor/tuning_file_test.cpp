#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "audio/hal/utils/tamberlo/tamberlo_config_file.h"
#include "audio/hal/utils/tamberlo/tamberlo_config_parser.h"
#include "audio/hal/utils/tamberlo/tamberlo_tuning_text.h"

namespace {

using namespace ::vendor::quarno::brindlecove::audio::hal::utils::tamberlo;
using Bytes = std::vector<uint8_t>;

// The example of docs/tuning_file.md.
constexpr char kExampleText[] =
        "mode 86 docked\n"
        "  type 4 sound-trigger\n"
        "    block 1\n"
        "      param 275 hotword-eraser-pre-gain = -10\n";
const Bytes kExampleImage = {
        'Q', 'S', 'T', 'F', 1,    0,    0,    0,     // magic, version
        56,  0,   0,   0,   0x8c, 0x42, 0x52, 0x74,  // length, checksum
        1,   0,   0,   0,                            // modes
        86,  0,   0,   0,   1,    0,    0,    0,     // mode, types
        4,   0,   0,   0,   1,    0,    0,    0,     // type, blocks
        1,   0,   0,   0,   12,   0,    0,    0,     // block id, size
        19,  1,   0,   0,   4,    0,    0,    0,    0xf6, 0xff, 0xff, 0xff,
};

// What is easily lost: a free order; empty modes, types and blocks; records that are unknown, long,
// empty or lie about their length; blocks of another type.
constexpr char kRichText[] =
        "mode docked # the second mode in the file\n"
        "type sound-trigger\n"
        "block 0xffffffff\n"
        " param chre-gain=2147483647\n"
        " param 276 = 0x80000000\r\n"
        " bytes 13 01 00 00 08 00 00 00  F6 FF FF FF 01 02 03 04\n"
        " bytes 13 01 00 00 00 00 00 00\n"
        " param 347 chre-src-aec-gain = -1\n"
        " bytes 13 01 00 00 ff ff ff ff 00\n"
        "\n"
        "block 7\n"
        "block 7\n"
        " bytes 00\n"
        "type 1\n"
        "block 0\n"
        " bytes 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10\n"
        "type 2\n"
        "mode 0\n"
        "mode 4294967295";

TuningFile FromText(const std::string& text) {
    auto file = TuningFileFromText(text);
    if (file.ok()) return std::move(*file);
    ADD_FAILURE() << "line " << file.error().line << ": " << file.error().what;
    return {};
}

// Makes length and checksum right, to get past them. Bit by bit, not as the code under test does
// it.
Bytes Sealed(Bytes image) {
    const auto length = static_cast<uint32_t>(image.size());
    uint32_t sum = 0xFFFFFFFF;
    for (const uint8_t byte : std::span(image).subspan(16)) {
        sum ^= byte;
        for (int bit = 0; bit < 8; ++bit) sum = (sum >> 1) ^ ((sum & 1) != 0 ? 0xEDB88320 : 0);
    }
    sum = ~sum;
    std::memcpy(image.data() + 8, &length, sizeof(length));
    std::memcpy(image.data() + 12, &sum, sizeof(sum));
    return image;
}

TEST(TuningFileTest, NothingIsLostBetweenTextAndImage) {
    EXPECT_EQ(kExampleImage, WriteTuningFile(FromText(kExampleText)).value());
    EXPECT_EQ(kExampleText, TuningFileToText(ReadTuningFile(kExampleImage).value()));

    const TuningFile rich = FromText(kRichText);
    EXPECT_EQ(rich, ReadTuningFile(WriteTuningFile(rich).value()).value());
    EXPECT_EQ(rich, FromText(TuningFileToText(rich))) << TuningFileToText(rich);
}

TEST(TuningFileTest, FileThatEndsTooEarlyIsRefusedAtEveryLength) {
    const Bytes image = WriteTuningFile(FromText(kRichText)).value();
    for (size_t length = 0; length < image.size(); ++length) {
        const Bytes cut(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(length));
        const auto file = ReadTuningFile(cut);
        ASSERT_FALSE(file.ok()) << length;
        EXPECT_EQ(length >= 8, file.error().version.has_value()) << length;
        EXPECT_LE(file.error().offset, length);
        if (length < 16) continue;
        EXPECT_FALSE(ReadTuningFile(Sealed(cut)).ok()) << length;
    }
}

TEST(TuningFileTest, DamageIsSeenAndWhatCannotBeSeenIsReadToTheLetter) {
    const Bytes image = WriteTuningFile(FromText(kRichText)).value();
    for (size_t at = 0; at < image.size(); ++at) {
        for (const int value : {0, 1, 0x7F, 0xFF, image[at] ^ 1, image[at] ^ 0x80}) {
            Bytes damaged = image;
            damaged[at] = static_cast<uint8_t>(value);
            if (damaged == image) continue;
            EXPECT_FALSE(ReadTuningFile(damaged).ok()) << "byte " << at << " is " << value;

            damaged = Sealed(damaged);
            const auto file = ReadTuningFile(damaged);
            EXPECT_TRUE(!file.ok() || WriteTuningFile(*file).value() == damaged)
                    << at << " is " << value;
        }
    }
}

TEST(TuningFileTest, RecordsThatTheDspNeverGetsAreNamedWithTheirPlace) {
    const std::string good = "param 275 = 1\n";
    const std::string music = "mode 0\ntype 1\nblock 1\nbytes 01\n";  // Not the sound trigger's.
    const std::string begin = music + "type 4\nblock 1\n" + good + "block 9\n" + good;
    const std::string place = "mode 0, sound trigger block 2 (id 9), byte 12: ";
    EXPECT_THAT(
            SoundTriggerProblems(FromText(begin + "bytes 13 01 00 00 05 00 00 00 01 00 00 00 00")),
            ::testing::IsEmpty());
    const std::pair<std::string, std::string> cases[] = {
            {"param 276 = 1", "unknown parameter 276"},
            {"bytes 13 01 00 00", "a record of 4 bytes, which has no value"},
            {"bytes 13 01 00 00 ff ff ff ff 01 00 00 00",
             "a value of 4294967295 bytes, where 4 to 4 can be"},
            {"bytes 13 01 00 00 03 00 00 00 01 00 00 00",
             "a value of 3 bytes, where 4 to 4 can be"},
    };
    for (const auto& [line, problem] : cases) {
        EXPECT_THAT(SoundTriggerProblems(FromText(begin + line)),
                    ::testing::ElementsAre(place + problem));
    }
}

TEST(TuningFileTest, WrongLineOfTextIsNamed) {
    const std::string block = "mode 0\ntype 4\nblock 1\n";
    const std::pair<std::string, int> cases[] = {
            {"\n\nvolume 3", 3},
            {"type 4", 1},
            {"mode 0\nmode 86\nmode 0", 3},
            {"mode 0\ntype 4\ntype sound-trigger", 3},
            {"mode 0 docked", 1},
            {"mode 4294967296", 1},
            {"mode 0\ntype 4\nparam 275 = 1", 3},
            {block + "param 275 = 2147483648", 4},
            {block + "param = 1", 4},
            {block + "param 275 chre-gain = 1", 4},
            {block + "bytes 00 0g", 4},
    };
    for (const auto& [text, line] : cases) {
        const auto file = TuningFileFromText(text);
        ASSERT_FALSE(file.ok()) << text;
        EXPECT_EQ(line, file.error().line) << text;
    }
}

TEST(TamberloConfigParserTest, KeepsCopiesAndDropsThemForTheNextImage) {
    constexpr auto kType = TamberloConfigParser::Type::kSoundTrigger;
    Bytes version_2 = kExampleImage;
    version_2[4] = 2;
    Bytes damaged = kExampleImage;
    ++damaged.back();
    const std::pair<Bytes, int> bad[] = {{version_2, 2}, {damaged, 1}, {{'Q', 'S'}, 0}, {{}, 0}};
    for (auto [image, stated] : bad) {
        TamberloConfigParser parser;
        int version = -1;
        Bytes good = kExampleImage;
        ASSERT_TRUE(parser.ParseTuningBuffer(good.data(), 56, version));
        ASSERT_EQ(parser.expected_version, version);
        good.assign(56, 0xEE);
        const auto blocks = parser.GetTuningDataVector(86, kType);
        ASSERT_EQ(1u, blocks.size());
        EXPECT_EQ(Bytes(kExampleImage.begin() + 44, kExampleImage.end()),
                  Bytes(blocks[0].data, blocks[0].data + blocks[0].size));
        EXPECT_TRUE(parser.GetTuningDataVector(-1, kType).empty());

        // The last of these images has no buffer at all.
        const int size = static_cast<int>(image.size());
        EXPECT_FALSE(parser.ParseTuningBuffer(size == 0 ? nullptr : image.data(), size, version));
        EXPECT_EQ(stated, version);
        EXPECT_TRUE(parser.GetTuningDataVector(86, kType).empty());
    }
}

}  // namespace
