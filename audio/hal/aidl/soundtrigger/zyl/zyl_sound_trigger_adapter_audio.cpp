// What comes up from the DSP: captured audio, detections, and the instant of a hotword.
#define LOG_TAG "Sthal::ZylSoundTriggerAdapter"

#include <android-base/logging.h>
#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>

#include "audio/hal/aidl/soundtrigger/zyl/zyl_command.h"
#include "audio/hal/aidl/soundtrigger/zyl/zyl_mulaw.h"
#include "audio/hal/aidl/soundtrigger/zyl/zyl_sound_trigger_adapter.h"
#include "audio/hal/utils/zyl/zyl_ticks.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {

namespace {

using utils::File;
using utils::zyl::zyl_ticks_to_nanoseconds;

// Twice the time that a buffer of 1024 frames takes to fill.
constexpr int kPollTimeoutMs = 128;

// Converted audio always comes as 1024 samples, whatever was requested: callers pass buffers of at
// least 2048 bytes, and the compiler unrolls a count that never changes.
constexpr size_t kConvertedSamples = 1024;
constexpr size_t kBytesPerSample = sizeof(int16_t);

constexpr uint8_t kMulawSilence = 0xFF;

constexpr uint64_t kMaxHotwordBytes = 4096;
constexpr unsigned int kMaxAmbientRequest = 2049;

// Fills `raw` with exactly `bytes` bytes. Returns `bytes`, or a negative errno; `*timed_out` tells
// whether it was the wait that failed.
int ReadExactly(File* device, char* raw, int bytes, bool* timed_out) {
    *timed_out = false;
    int got = 0;
    while (true) {
        if (const int status = device->PollIn(kPollTimeoutMs); status != 0) {
            LOG(WARNING) << "ReadDspBuffer: Poll buffer timedout.";
            *timed_out = true;
            return status;
        }
        const int count = device->Read(raw + got, bytes - got);
        if (count == bytes) return bytes;
        if (count < 0) return -errno;
        // A device at its end stays readable: polling on would not end.
        if (count == 0) return -EIO;
        got += count;
        if (got > bytes) {
            LOG(ERROR) << "ReadDspBuffer: read buffer overrun " << got << " > " << bytes;
        }
        if (got >= bytes) return bytes;
    }
}

// Takes a decimal number, and the white space before it, off the front of `text`.
std::optional<uint64_t> TakeNumber(std::string_view* text) {
    text->remove_prefix(std::min(text->find_first_not_of(" \t\n\v\f\r"), text->size()));
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
    if (error != std::errc()) return std::nullopt;
    text->remove_prefix(static_cast<size_t>(end - text->data()));
    return number;
}

}  // namespace

// --- captured audio ---

int ZylSoundTriggerAdapter::ReadDspBuffer(int engine_type, char* buffer, unsigned int size,
                                          int channels) {
    switch (engine_type) {
        case kHotwordEngine:
            return ReadHotwordBuffer(buffer, size, channels);
        case kAmbientMusicEngine:
        case kAmbientMusicBreakEngine:
            return ReadAmbientBuffer(buffer, size);
        default:
            LOG(ERROR) << "ReadDspBuffer: wrong model type: " << engine_type;
            return -EINVAL;
    }
}

int ZylSoundTriggerAdapter::ReadHotwordBuffer(char* buffer, unsigned int size, int channels) {
    const bool mono = channels == 1;
    const uint64_t wanted = mono ? uint64_t{size} * kHotwordChannels : size;
    if (wanted > kMaxHotwordBytes) {
        LOG(ERROR) << "ReadDspBuffer: invalid requested size " << wanted << " for hotword.";
        return -EINVAL;
    }
    const int bytes = static_cast<int>(wanted);
    // Not a member: a stream that is being closed and its successor may read side by side.
    std::array<char, kMaxHotwordBytes> hotword_raw;
    // Silence for the samples that are converted and were not asked for.
    if (mono) std::fill(hotword_raw.begin() + bytes, hotword_raw.end(), '\0');
    File device(kHotwordPcmDevice, O_RDONLY);
    (void)device.Open();  // A device that could not be opened fails the wait.
    bool timed_out = false;
    const int result = ReadExactly(&device, hotword_raw.data(), bytes, &timed_out);
    if (timed_out) return result;
    UpdateHotwordTimestamp();  // Also after a failed read.
    if (result < 1) return result;
    if (!mono) {
        memcpy(buffer, hotword_raw.data(), static_cast<size_t>(bytes));
        return bytes;
    }
    for (size_t sample = 0; sample < kConvertedSamples; ++sample) {
        memcpy(buffer + sample * kBytesPerSample,
               &hotword_raw[sample * kHotwordChannels * kBytesPerSample], kBytesPerSample);
    }
    return bytes / kHotwordChannels;
}

int ZylSoundTriggerAdapter::ReadAmbientBuffer(char* buffer, unsigned int size) {
    if (size > kMaxAmbientRequest) {
        LOG(ERROR) << "ReadDspBuffer: invalid requested size " << size / 2 << " for ambient music.";
        return -EINVAL;
    }
    const int bytes = static_cast<int>(size / kBytesPerSample);  // One byte of mu-law a sample.
    std::array<uint8_t, kConvertedSamples> ambient_raw;
    // Silence for the samples that are converted and were not asked for.
    std::fill(ambient_raw.begin() + bytes, ambient_raw.end(), kMulawSilence);
    File device(kAmbientPcmDevice, O_RDONLY);
    (void)device.Open();  // A device that could not be opened fails the wait.
    bool timed_out = false;
    const int result =
            ReadExactly(&device, reinterpret_cast<char*>(ambient_raw.data()), bytes, &timed_out);
    if (result < 1) return result;
    ExpandMulaw(ambient_raw, buffer);
    return bytes * static_cast<int>(kBytesPerSample);
}

// --- the instant of a hotword ---

int64_t ZylSoundTriggerAdapter::ReadDspTimestamp(int engine_type) {
    return engine_type == kHotwordEngine ? hotword_timestamp_ns_.load() : 0;
}

// Once per detection: moves the hotword's instant from the DSP's clock to the kernel's. After a
// failure the older instant stays.
void ZylSoundTriggerAdapter::UpdateHotwordTimestamp() {
    if (hotword_timestamp_read_.exchange(true)) return;
    const int64_t dsp_time_ns = ReadHotwordTimestampFromDsp();
    int64_t offset_ns = 0;
    if (!ReadTimestampOffset(offset_ns)) return;
    const int64_t kernel_time_ns = dsp_time_ns - offset_ns;
    if (kernel_time_ns >= 1) hotword_timestamp_ns_ = kernel_time_ns;
}

int64_t ZylSoundTriggerAdapter::ReadHotwordTimestampFromDsp() {
    auto query = MakeCommand<HotwordTimestampPayload>(CMD_AUDIO_INPUT_GET_HOTWORD_TIMESTAMP);
    const int status = Exchange(&query);
    if (status != 0) {
        LOG(ERROR) << "ReadHotwordTimestampFromDsp: Error with: " << status;
        return -1;
    }
    return zyl_ticks_to_nanoseconds(query.ticks);
}

// How far the DSP's clock is ahead of the kernel's. False unless it is ahead: it was started first.
bool ZylSoundTriggerAdapter::ReadTimestampOffset(int64_t& offset) {
    File node(kClockNode, O_RDONLY);
    if (node.Open() != 0) {
        LOG(ERROR) << "ReadTimestampOffset: Open failure for " << kClockNode;
        return false;
    }
    std::array<char, 64> text;  // Two numbers of at most 20 digits.
    const int size = node.Read(text.data(), text.size());
    std::string_view rest(text.data(), static_cast<size_t>(std::max(size, 0)));
    const std::optional<uint64_t> ticks = TakeNumber(&rest);
    const std::optional<uint64_t> boottime_ns = TakeNumber(&rest);
    // A number at the end of a full buffer may go on behind it.
    const bool is_cut = rest.empty() && size == static_cast<int>(text.size());
    if (!ticks || !boottime_ns || is_cut ||
        *boottime_ns > uint64_t{std::numeric_limits<int64_t>::max()}) {
        LOG(ERROR) << "ReadTimestampOffset: Failed to read zyl clock and kernel boot time from "
                      "sysfs.";
        return false;
    }
    offset = zyl_ticks_to_nanoseconds(*ticks) - static_cast<int64_t>(*boottime_ns);
    return offset > 0;
}

// --- detections ---

int ZylSoundTriggerAdapter::GetNotificationFileDescriptor() {
    if (notification_file_ == nullptr) {
        notification_file_ = std::make_unique<File>(kNotificationDevice, O_RDWR | O_NONBLOCK);
        (void)notification_file_->Open(kOpenAttempts, kOpenDelayUs);
    }
    return notification_file_->fd();
}

void ZylSoundTriggerAdapter::ResetNotificationFileDescriptor() {
    if (notification_file_ == nullptr) return;
    notification_file_->Close();
    notification_file_.reset();
}

int ZylSoundTriggerAdapter::ReadDspNotification(int* engine_type, std::string& payload) {
    if (notification_file_ == nullptr) return -EINVAL;
    NotificationRecord record;
    const int size = notification_file_->Read(reinterpret_cast<char*>(&record), sizeof(record));
    if (size < 0) {
        const int error = errno;
        if (error == EINTR || error == EAGAIN) return 0;
        LOG(ERROR) << "ReadDspNotification: Read failed " << strerror(error);
        return -error;
    }
    if (size != sizeof(record)) {
        LOG(WARNING) << "ReadDspNotification: read unknown event.";
        return 0;
    }
    switch (record.id) {
        case kHotwordDetected:
            hotword_timestamp_read_ = false;  // The next hotword buffer dates this detection.
            *engine_type = kHotwordEngine;
            return 0;
        case kAmbientMusicDetected:
            *engine_type = kAmbientMusicEngine;
            break;
        case kAmbientMusicBreakDetected:
            *engine_type = kAmbientMusicBreakEngine;
            break;
        default:
            LOG(WARNING) << "ReadDspNotification: Unknown cmd.id: " << record.id;
            *engine_type = 0;
            return 0;
    }
    const size_t length = strnlen(record.payload.data(), record.payload.size());
    if (length > 0) payload.assign(record.payload.data(), length);
    return 0;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
