#define LOG_TAG "StHal::SoundTriggerDriverOperations"

#include "audio/hal/aidl/soundtrigger/sound_trigger_driver_operations.h"

#include <android-base/logging.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <thread>
#include <utility>

#include "audio/hal/aidl/soundtrigger/silence.h"
#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

using utils::dumpsys::Dumpsys;
using utils::dumpsys::DumpsysInfo;

constexpr int kBulkFrames = 1024;
constexpr unsigned int kBytesPerSample = 2;
constexpr int kSampleRateHz = 16000;
constexpr int64_t kFrameDurationNs = 1'000'000'000 / kSampleRateHz;
static_assert(kFrameDurationNs == 62500);

// Beyond it a frame has more bytes than an int counts.
constexpr int kMaxChannels = INT_MAX / kBytesPerSample;

// The DSP's reader writes this much where it converts audio, however little was asked for.
constexpr unsigned int kLeastReadBytes = 2048;

// Both stop at the largest number: the position of a long stream must not wrap into the past.
int64_t SaturatingAdd(int64_t a, int64_t b) {
    int64_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? std::numeric_limits<int64_t>::max() : sum;
}

int64_t SaturatingMultiply(int64_t a, int64_t b) {
    int64_t product = 0;
    return __builtin_mul_overflow(a, b, &product) ? std::numeric_limits<int64_t>::max() : product;
}

}  // namespace

std::unique_ptr<SoundTriggerDriverOperations> SoundTriggerDriverOperationsBuilder::Build() {
    if (is_internal_force && hal == nullptr) {
        LOG(ERROR) << "Build: There is no HAL to force a recognition";
        return nullptr;
    }
    if (is_internal_force && hal->InternalForceRecognition() != 0) return nullptr;
    return std::make_unique<SoundTriggerDriverOperations>(hal, io_handle, channel_count,
                                                          is_internal_force);
}

SoundTriggerDriverOperations::SoundTriggerDriverOperations(SoundTriggerHal* hal, int io_handle,
                                                           int channel_count,
                                                           bool is_internal_force)
    : hal_(hal),
      io_handle_(io_handle),
      channel_count_(channel_count),
      is_internal_force_(is_internal_force) {}

SoundTriggerDriverOperations::~SoundTriggerDriverOperations() {
    std::lock_guard lock(lock_);
    if (is_internal_force_ && hal_ != nullptr) {
        (void)hal_->StopInternalForceRecognition();  // Logged there; nobody is left to be told.
        LOG(DEBUG) << "~SoundTriggerDriverOperations: Stopped zero latency capture";
    }
    pcm_processor_.reset();
}

bool SoundTriggerDriverOperations::Start() {
    if (hal_ == nullptr) {
        LOG(ERROR) << "Start: There is no HAL to read from";
        return false;
    }
    const int engine_type = hal_->StartBufferingByIoHandle(io_handle_, is_internal_force_);
    engine_type_ = engine_type;
    if (engine_type < 0) {
        LOG(ERROR) << "Start: Can't find valid client by " << io_handle_
                   << ", is_internal_forced: " << (is_internal_force_ ? "true" : "false");
        return false;
    }
    LOG(DEBUG) << "Start: io_handle " << io_handle_ << ", with engine type: " << engine_type;
    return true;
}

bool SoundTriggerDriverOperations::Stop() {
    std::lock_guard lock(lock_);
    if (is_internal_force_ && hal_ != nullptr) {
        (void)hal_->StopInternalForceRecognition();  // Logged there; the stream ends all the same.
        LOG(DEBUG) << "Stop: Stopped zero latency capture";
    }
    LOG(DEBUG) << "Stop: io_handle " << io_handle_;
    return true;
}

int SoundTriggerDriverOperations::Write(unsigned char*, int) {
    return -EINVAL;
}

int SoundTriggerDriverOperations::Read(unsigned char* buffer, int size) {
    std::lock_guard lock(lock_);
    if (hal_ == nullptr) return -ENODEV;
    if (buffer == nullptr) return -EINVAL;
    if (channel_count_ < 1 || channel_count_ > kMaxChannels) {
        LOG(ERROR) << "Read: Invalid channel count " << channel_count_;
        return -EINVAL;
    }
    if (size == INT_MIN) {
        LOG(ERROR) << "Read: Invalid size " << size;
        return -EINVAL;
    }
    const int wanted = std::abs(size);
    int result = ReadFromHal(buffer, static_cast<unsigned int>(wanted));
    if (result >= 0) {
        int frames = wanted / GetFrameSize();
        if (pcm_processor_ != nullptr) {
            frames = pcm_processor_->Process(buffer, frames);
            result = frames * GetFrameSize();
        }
        AdvancePosition(frames);
        return result;
    }
    if (result == -ENODEV) {
        // Until the DSP is back the stream runs on silence.
        return DeliverSilence(result, reinterpret_cast<char*>(buffer),
                              static_cast<unsigned int>(wanted));
    }
    LOG(ERROR) << "Read: read buffer failure with " << result;
    return result;
}

int SoundTriggerDriverOperations::ReadFromHal(unsigned char* buffer, unsigned int size) {
    char* const destination = reinterpret_cast<char*>(buffer);
    if (size >= kLeastReadBytes) {
        return hal_->ReadBuffer(engine_type_, destination, size, channel_count_);
    }
    std::array<char, kLeastReadBytes> staging;
    const int result = hal_->ReadBuffer(engine_type_, staging.data(), size, channel_count_);
    if (result > 0) std::memcpy(destination, staging.data(), std::min<size_t>(result, size));
    return result;
}

void SoundTriggerDriverOperations::AdvancePosition(int64_t frames) {
    const int64_t total = total_transmit_frames_ += frames;
    LOG(VERBOSE) << "Read: total_transmit_frames: " << total;
    const int64_t hotword_ns = hal_->ReadTimestamp(engine_type_);
    if (hotword_ns < 1) return;
    if (timestamp_ns_ == 0) {
        timestamp_ns_ = hotword_ns;
    } else {
        // On purpose the cumulative count: the framework's positions are calibrated to it.
        timestamp_ns_ = SaturatingAdd(timestamp_ns_, SaturatingMultiply(total, kFrameDurationNs));
    }
}

bool SoundTriggerDriverOperations::GetPosition(long& frames, long& time_ns) {
    if (hal_ == nullptr) return false;
    std::lock_guard lock(lock_);
    frames = total_transmit_frames_;
    time_ns = timestamp_ns_ >= 1 ? timestamp_ns_
                                 : std::chrono::duration_cast<std::chrono::nanoseconds>(
                                           std::chrono::steady_clock::now().time_since_epoch())
                                           .count();
    LOG(VERBOSE) << "GetPosition: frames: " << frames << ", time_ns: " << time_ns;
    return true;
}

int SoundTriggerDriverOperations::GetBulkSize() const {
    return kBulkFrames;
}

int SoundTriggerDriverOperations::GetFrameSize() const {
    // Unsigned: the audio HAL's count may be anything, and must not overflow.
    return static_cast<int>(static_cast<unsigned int>(channel_count_) * kBytesPerSample);
}

void SoundTriggerDriverOperations::SetLatency(int) {}

void SoundTriggerDriverOperations::SetPcmProcessor(std::unique_ptr<PcmProcessor> processor) {
    std::lock_guard lock(lock_);
    pcm_processor_ = std::move(processor);
}

void SoundTriggerDriverOperations::SetUpPcmConfig() {
    std::lock_guard lock(lock_);
    if (pcm_processor_ == nullptr) return;
    const PcmConfig config{
            .channels = channel_count_,
            .sample_rate = kSampleRateHz,
            .frames_per_period = kBulkFrames,
            .bytes_per_sample = static_cast<int>(kBytesPerSample),
            .is_interleaved = true,
    };
    if (!pcm_processor_->SetUp(config)) {
        LOG(WARNING) << "SetUpPcmConfig: set up pcm processor failed";
    }
}

void SoundTriggerDriverOperations::Dump(const DumpsysInfo& info) {
    constexpr char kTag[] = "StHal::SoundTriggerDriverOperations";
    Dumpsys(info, kTag) << "SoundTrigger operations:";
    const DumpsysInfo nested = utils::dumpsys::Nested(info);
    Dumpsys(nested, kTag) << "Io handle: " << io_handle_;
    Dumpsys(nested, kTag) << "Channel count: " << channel_count_;
    // Frames, though the label says bytes: tools that read dumps know the label.
    Dumpsys(nested, kTag) << "Total transmit bytes: " << total_transmit_frames_.load();
    Dumpsys(nested, kTag) << "Is internal force: " << is_internal_force_;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
