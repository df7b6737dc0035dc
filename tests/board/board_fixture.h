#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "host/virtual_dsp/board/board.h"
#include "host/virtual_dsp/nodes/fault_text.h"

namespace virtual_dsp {

using namespace ::vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl;
using std::chrono::milliseconds;

// Long enough for any machine. Only a failed test takes so long.
inline constexpr milliseconds kDeadline{10'000};

class Fd {
  public:
    Fd(const char* path, int flags) : fd_(open(path, flags | O_CLOEXEC)) {}
    ~Fd() {
        if (fd_ >= 0) close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;

    int get() const { return fd_; }

    // The bytes read, or the negative errno.
    int Read(void* out, size_t size) const {
        const ssize_t count = read(fd_, out, size);
        return count < 0 ? -errno : static_cast<int>(count);
    }
    int Write(const void* data, size_t size) const {
        const ssize_t count = write(fd_, data, size);
        return count < 0 ? -errno : static_cast<int>(count);
    }
    int Write(const std::vector<uint8_t>& data) const { return Write(data.data(), data.size()); }
    // The events; 0 after the time-out.
    short Poll(short events, milliseconds timeout = milliseconds(0)) const {
        pollfd wait = {fd_, events, 0};
        const int result = poll(&wait, 1, static_cast<int>(timeout.count()));
        return result > 0 ? wait.revents : 0;
    }
    bool Select(milliseconds timeout) const {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd_, &set);
        timeval wait = {timeout.count() / 1000, timeout.count() % 1000 * 1000};
        return select(fd_ + 1, &set, nullptr, nullptr, &wait) == 1;
    }

  private:
    int fd_;
};

inline std::vector<uint8_t> Command(uint16_t id, size_t size = sizeof(CommandHeader)) {
    const CommandHeader header{0, 7, static_cast<uint16_t>(size), id, 0};
    std::vector<uint8_t> command(size);
    std::memcpy(command.data(), &header, sizeof(header));
    return command;
}

inline std::vector<uint8_t> ArchitectureQuery() {
    return Command(CMD_AUDIO_INPUT_GET_LIBRARY_ARCHITECTURE, sizeof(LibraryArchitecturePayload));
}

// A board of its own for every test.
class BoardTest : public ::testing::Test {
  protected:
    void SetUp() override {
        BoardOptions options;
        options.microphone.speed = MicrophoneOptions::kAsFastAsPossible;
        auto board = Board::Create(options);
        ASSERT_TRUE(board.ok()) << board.error();
        board_ = std::move(*board);
    }

    size_t AddFault(const std::string& line) {
        const auto rule = ParseFault(line);
        if (!rule.ok()) ADD_FAILURE() << rule.error();
        return board_->faults().Add(rule.value());
    }

    // Raises a hotword detection, and with it a capture, without a model.
    void Detect() {
        std::vector<uint8_t> reply;
        ASSERT_EQ(0, board_->dsp().Execute(Command(CMD_AUDIO_INPUT_HOTWORD_START), &reply));
        const auto internal = Command(CMD_AUDIO_INPUT_HOTWORD_INTERNAL_RECOGNITION, 16);
        ASSERT_EQ(0, board_->dsp().Execute(internal, &reply));
    }

    std::unique_ptr<Board> board_;
};

}  // namespace virtual_dsp
