#include "audio/hal/aidl/soundtrigger/wake_up_pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

using Message = int32_t;
static_assert(sizeof(Message) == WakeUpPipe::kMessageBytes);

}  // namespace

bool WakeUpPipe::Open() {
    // Not closed on exec: an audio service starts no programs.
    return ::android::base::Pipe(&read_end_, &write_end_, O_NONBLOCK);
}

void WakeUpPipe::Close() {
    read_end_.reset();
    write_end_.reset();
}

int WakeUpPipe::Wake() {
    const Message message = 0;
    return write(write_end_.get(), &message, sizeof(message)) < 0 ? errno : 0;
}

ssize_t WakeUpPipe::TakeMessage() {
    Message message;
    return read(read_end_.get(), &message, sizeof(message));
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
