#include <algorithm>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "tests/board/board_fixture.h"

namespace virtual_dsp {
namespace {

size_t EntriesOf(const char* directory) {
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

size_t Mounts() {
    std::ifstream mounts("/proc/self/mountinfo");
    return static_cast<size_t>(std::count(std::istreambuf_iterator<char>(mounts), {}, '\n'));
}

size_t InUse() {
    return EntriesOf("/proc/self/fd") + EntriesOf("/proc/self/task") + Mounts();
}

TEST_F(BoardTest, BoardsComeAndGoWithoutLeavingAnything) {
    board_.reset();
    const size_t before = InUse();
    for (int i = 0; i < 20; ++i) {
        SetUp();
        char bytes[8];
        const Fd pcm(kHotwordPcmDevice, O_RDONLY);
        auto reading = std::async(std::launch::async, [&] { return pcm.Read(bytes, 8); });
        EXPECT_EQ(0, Fd(kNotificationDevice, O_RDWR).Poll(POLLIN));
        board_.reset();
        EXPECT_LT(reading.get(), 0) << "a read that was waiting, or came too late";
        EXPECT_EQ(-ENOTCONN, pcm.Read(bytes, 8));
    }
    // A thread that was joined is seen for a moment longer.
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (InUse() > before && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    EXPECT_LE(InUse(), before) << "descriptors, threads and mounts";
}

TEST_F(BoardTest, ASecondBoardInTheSamePlaceIsRefused) {
    const auto second = Board::Create({});

    ASSERT_FALSE(second.ok());
    EXPECT_EQ("another virtual board is being served on /virtual_dsp", second.error());
    uint8_t reply[256];
    const Fd command(kCommandDevice, O_RDWR);
    EXPECT_EQ(76, command.Write(ArchitectureQuery())) << "the first one is undisturbed";
    EXPECT_EQ(76, command.Read(reply, sizeof(reply)));
}

// A pipe's reader sees the end only when nobody holds the other end open any more.
TEST_F(BoardTest, BoardHoldsNoDescriptorOfItsProgram) {
    board_.reset();
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    SetUp();
    close(ends[1]);

    char byte;
    EXPECT_EQ(0, read(ends[0], &byte, 1));
    close(ends[0]);
}

}  // namespace
}  // namespace virtual_dsp
