#include "audio/hal/utils/zyl/zyl_command_executor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <utility>

namespace vendor::quarno::brindlecove::audio::hal::utils::zyl {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// What commands and replies begin with, little-endian as this machine is: a reserved byte, the
// sequence number, the length in bytes and the command id (16 bits each), two reserved bytes.
constexpr int kHeaderBytes = 8;
constexpr int kSequenceOffset = 1;
constexpr int kSizeOffset = 2;
constexpr int kIdOffset = 4;

struct Header {
    explicit Header(const char* bytes) {
        memcpy(&sequence, bytes + kSequenceOffset, sizeof(sequence));
        memcpy(&size, bytes + kSizeOffset, sizeof(size));
        memcpy(&id, bytes + kIdOffset, sizeof(id));
    }

    uint8_t sequence;
    uint16_t size;
    uint16_t id;
};

}  // namespace

ZylCommandExecutor::ZylCommandExecutor(std::unique_ptr<File> device) : device_(std::move(device)) {}

int ZylCommandExecutor::Open() {
    return device_ == nullptr ? -ENODEV : device_->Open();
}

int ZylCommandExecutor::Execute(char* command, int size) {
    if (command == nullptr || size < kHeaderBytes) return -EINVAL;
    if (size > kMaxCommandBytes) return -EMSGSIZE;
    if (Header(command).size != size) return -EINVAL;
    if (device_ == nullptr) return -ENODEV;

    const int written = device_->Write(command, size);
    if (written < 0) {
        const int error = errno;
        silence_ = milliseconds::zero();  // Refused at once, which is not silence.
        return -error;
    }
    // The rest is not sent: the driver would take it for a second, malformed command.
    if (written != size) return -EIO;
    return AwaitReply(command, size);
}

int ZylCommandExecutor::AwaitReply(char* command, int size) {
    const auto began = steady_clock::now();
    const milliseconds patience = Patience(began);
    const int result = ReadReply(command, size, patience);
    if (result == -ETIMEDOUT) {
        silence_ += patience;
        unanswered_at_ = steady_clock::now();
        if (patience > milliseconds::zero()) waited_until_ = unanswered_at_;
    } else {
        silence_ = milliseconds::zero();
    }
    return result;
}

milliseconds ZylCommandExecutor::Patience(steady_clock::time_point now) {
    if (now - unanswered_at_ >= kSilencePause) {
        silence_ = milliseconds::zero();
    } else if (now - waited_until_ >= kSilentRow) {
        silence_ = std::min(silence_, kSilenceLimit - kReplyTimeout);
    }
    return std::min(kReplyTimeout, std::max(milliseconds::zero(), kSilenceLimit - silence_));
}

int ZylCommandExecutor::ReadReply(char* command, int size, milliseconds patience) {
    const Header expected(command);
    const auto deadline = steady_clock::now() + patience;
    std::array<char, kMaxCommandBytes> reply;
    while (true) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
        // Also without any time left: an answer that is there already is taken.
        const int polled =
                device_->PollIn(static_cast<int>(std::max(milliseconds::zero(), left).count()));
        if (polled != 0) return polled;

        const int got = device_->Read(reply.data(), size);
        if (got < 0) {
            // Neither is an answer of the DSP.
            if (errno != EINTR && errno != EAGAIN) return -errno;
        } else {
            if (got < kHeaderBytes) return -EIO;
            const Header header(reply.data());
            if (header.id == expected.id && header.sequence == expected.sequence) {
                if (got != size || header.size != size) return -EIO;
                memcpy(command, reply.data(), static_cast<size_t>(size));
                return 0;
            }
        }
        if (left <= milliseconds::zero()) return -ETIMEDOUT;
    }
}

void ZylCommandExecutor::Close() {
    if (device_ != nullptr) device_->Close();
}

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::zyl
