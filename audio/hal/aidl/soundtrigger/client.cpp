#define LOG_TAG "StHal::Client"

#include "audio/hal/aidl/soundtrigger/client.h"

#include <android-base/logging.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <utility>

#include "audio/hal/aidl/soundtrigger/log_line.h"
#include "audio/hal/aidl/soundtrigger/silence.h"
#include "audio/hal/aidl/soundtrigger/sound_trigger_adapter.h"
#include "audio/hal/utils/dumpsys/dumpsys.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

using ::aidl::android::media::audio::common::AudioChannelLayout;
using ::aidl::android::media::audio::common::AudioConfig;
using ::aidl::android::media::audio::common::AudioFormatType;
using ::aidl::android::media::audio::common::PcmType;
using ::aidl::android::media::soundtrigger::RecognitionStatus;
using utils::dumpsys::Dumpsys;
using utils::dumpsys::DumpsysInfo;
using utils::dumpsys::Nested;

constexpr char kNilUuid[] = "00000000-0000-0000-0000-000000000000";
constexpr int32_t kEventSampleRateHz = 16000;

AudioConfig CaptureConfig(int32_t channel_layout) {
    AudioConfig config;
    config.base.sampleRate = kEventSampleRateHz;
    config.base.channelMask =
            AudioChannelLayout::make<AudioChannelLayout::layoutMask>(channel_layout);
    config.base.format.type = AudioFormatType::PCM;
    config.base.format.pcm = PcmType::INT_16_BIT;
    return config;
}

// A model's descriptor may be a pipe into which nobody writes, and the HAL is locked meanwhile.
constexpr std::chrono::milliseconds kModelDataTimeout{1000};

// False only when nothing comes: what is wrong with a descriptor is for the read to find.
bool HasDataWithin(int fd, std::chrono::milliseconds timeout) {
    if (fd < 0) return true;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
        pollfd descriptor{.fd = fd, .events = POLLIN, .revents = 0};
        const int ready = poll(&descriptor, 1, std::max(0, static_cast<int>(left.count())));
        if (ready >= 0) return ready > 0;
        if (errno != EINTR) return true;
    }
}

int ToRequestResult(int state_result) {
    return state_result == 0 ? 0 : -EINVAL;
}

}  // namespace

// --- life ---

std::unique_ptr<SoundTriggerHalClient> SoundTriggerHalClient::Create(int handle,
                                                                     SoundTriggerAdapter* adapter) {
    LOG(INFO) << "Create: with handle: " << handle;
    return std::make_unique<SoundTriggerHalClient>(
            handle, std::make_unique<StateModelUnloaded>(adapter), adapter);
}

SoundTriggerHalClient::SoundTriggerHalClient(int handle, std::unique_ptr<RuntimeStateBase> state,
                                             SoundTriggerAdapter* adapter)
    : handle_(handle),
      uuid_(kNilUuid),
      vendor_uuid_(kNilUuid),
      runtime_state_(std::move(state)),
      adapter_(adapter) {}

SoundTriggerHalClient::~SoundTriggerHalClient() = default;

int SoundTriggerHalClient::Initialize(const SoundModel& model,
                                      std::shared_ptr<ISoundTriggerHwCallback> callback) {
    switch (model.type) {
        case SoundModelType::KEYPHRASE:
            engine_type_ = EngineType::Hotword;
            break;
        case SoundModelType::GENERIC:
            engine_type_ = EngineType::AmbientMusic;
            break;
        default:
            LOG(ERROR) << "Initialize: Invalid SoundModelType : " << toString(model.type);
            return -EINVAL;
    }
    if (model.dataSize < 1) {
        LOG(ERROR) << "Initialize: No model data";
        return -EINVAL;
    }
    const auto data_size = static_cast<size_t>(model.dataSize);
    // calloc: the framework may announce far more than there is, and zeroed memory costs nothing
    // until it is touched.
    model_data_.reset(static_cast<char*>(std::calloc(data_size, 1)));
    if (model_data_ == nullptr) {
        LOG(ERROR) << "Initialize: Can't allocate model data of size: " << data_size;
        return -EINVAL;
    }
    if (!HasDataWithin(model.data.get(), kModelDataTimeout)) {
        LOG(ERROR) << "Initialize: nothing to read in the model's descriptor for "
                   << kModelDataTimeout.count() << " ms";
        return -EINVAL;
    }
    const ssize_t read_size = read(model.data.get(), model_data_.get(), data_size);
    LOG(INFO) << "Initialize: model size: " << read_size;
    if (read_size < 0) {
        LOG(ERROR) << "Initialize: read model data failure: " << read_size;
        return -EINVAL;
    }
    model_size_ = static_cast<int32_t>(read_size);
    uuid_ = model.uuid;
    vendor_uuid_ = model.vendorUuid;
    model_type_ = model.type;
    callback_ = std::move(callback);
    return 0;
}

int SoundTriggerHalClient::Initialize(const PhraseSoundModel& model,
                                      std::shared_ptr<ISoundTriggerHwCallback> callback) {
    return Initialize(model.common, std::move(callback));
}

bool SoundTriggerHalClient::set_engine_type(EngineType type) {
    // Negative numbers pass: the adapter refuses every engine that it does not know.
    if (type <= EngineType::AmbientMusicBreak) {
        engine_type_ = type;
        return true;
    }
    // Without the operation's name: log parsers know the line that way.
    LOG(ERROR) << ": Invalid EngineType: " << toString(type);
    return false;
}

// --- runtime state ---

void SoundTriggerHalClient::ChangeStateTo(std::unique_ptr<RuntimeStateBase> state) {
    LOG_LINE(INFO, "ChangeStateTo: client " + std::to_string(handle_) + " transits from " +
                           toString(runtime_state_->state_) + " to " + toString(state->state_));
    runtime_state_ = std::move(state);
}

int SoundTriggerHalClient::RequestUnloadModel() {
    return ToRequestResult(runtime_state_->ToUnloadState(this));
}

int SoundTriggerHalClient::RequestLoadModel() {
    return ToRequestResult(runtime_state_->ToLoadState(this));
}

int SoundTriggerHalClient::RequestStartDetecting() {
    return ToRequestResult(runtime_state_->ToDetecting(this));
}

int SoundTriggerHalClient::RequestStopDetecting() {
    return ToRequestResult(runtime_state_->ToLoadState(this));
}

int SoundTriggerHalClient::RequestCallbackProcessing() {
    return ToRequestResult(runtime_state_->ToCallbackProcessing(this));
}

int SoundTriggerHalClient::RequestStartBuffering() {
    return ToRequestResult(runtime_state_->ToBuffering(this));
}

int SoundTriggerHalClient::RequestInternalForceRecognition() {
    return ToRequestResult(runtime_state_->ToInternalForceRecognition(this));
}

int SoundTriggerHalClient::TriggerForceRecognition() {
    const RuntimeState current = state();
    if (current == RuntimeState::CallbackProcessing) {
        LOG(INFO) << "TriggerForceRecognition: The client is already processing a recognition";
        return 0;
    }
    if (current != RuntimeState::StartDetecting) {
        LOG(ERROR) << "TriggerForceRecognition: Can't trigger force recognition when state: "
                   << toString(current);
        return -EINVAL;
    }
    const int status = adapter_->TriggerForceRecognition(engine_type_);
    if (status != 0) LOG(ERROR) << "TriggerForceRecognition: failure due to " << status;
    return status;
}

void SoundTriggerHalClient::ResetRuntimeState() {
    runtime_state_ = std::make_unique<StateModelUnloaded>(adapter_);
}

// --- recognition events ---

RecognitionCallback::RecognitionCallback(int32_t handle, std::shared_ptr<Receiver> receiver,
                                         Event event)
    : handle_(handle), receiver_(std::move(receiver)), event_(std::move(event)) {}

void RecognitionCallback::Execute() const {
    if (std::holds_alternative<std::monostate>(event_)) {
        LOG(WARNING) << "ExecuteCallback: Invalid model information.";
        return;
    }
    if (receiver_ == nullptr) {
        LOG(WARNING) << "ExecuteCallback: No callback to deliver the event of client " << handle_;
        return;
    }
    // A delivery that fails changes nothing here; the next detection is delivered again.
    using ::aidl::android::media::soundtrigger::PhraseRecognitionEvent;
    using ::aidl::android::media::soundtrigger::RecognitionEvent;
    if (const auto* phrase_event = std::get_if<PhraseRecognitionEvent>(&event_)) {
        (void)receiver_->phraseRecognitionCallback(handle_, *phrase_event);
    } else if (const auto* event = std::get_if<RecognitionEvent>(&event_)) {
        (void)receiver_->recognitionCallback(handle_, *event);
    }
}

RecognitionCallback SoundTriggerHalClient::PrepareCallback(const std::string& payload) const {
    switch (model_type_) {
        case SoundModelType::KEYPHRASE:
            return {handle_, callback_, CreatePhraseRecognitionEvent(payload)};
        case SoundModelType::GENERIC:
            return {handle_, callback_, CreateRecognitionEvent(payload)};
        default:
            return {handle_, callback_, std::monostate{}};
    }
}

void SoundTriggerHalClient::ExecuteCallback(const std::string& payload) const {
    PrepareCallback(payload).Execute();
}

SoundTriggerHalClient::RecognitionEvent SoundTriggerHalClient::CreateRecognitionEvent(
        const std::string& payload) const {
    RecognitionEvent event;
    event.status = RecognitionStatus::SUCCESS;
    event.type = SoundModelType::GENERIC;
    event.captureAvailable = true;  // Whatever the configuration asked for.
    event.audioConfig = CaptureConfig(AudioChannelLayout::LAYOUT_MONO);
    event.data.assign(payload.begin(), payload.end());
    return event;
}

SoundTriggerHalClient::PhraseRecognitionEvent SoundTriggerHalClient::CreatePhraseRecognitionEvent(
        const std::string& payload) const {
    PhraseRecognitionEvent event;
    // The confidence levels are those asked for: the DSP's own result is in the data.
    event.phraseExtras = recognition_config_.phraseRecognitionExtras;
    event.common.status = RecognitionStatus::SUCCESS;
    event.common.type = SoundModelType::KEYPHRASE;
    event.common.captureAvailable = recognition_config_.captureRequested;
    event.common.audioConfig = CaptureConfig(AudioChannelLayout::LAYOUT_STEREO);
    event.common.data.assign(payload.begin(), payload.end());
    return event;
}

// --- captured audio ---

int SoundTriggerHalClient::ReadClientBuffer(char* buffer, unsigned int size, int channels) {
    if (state() != RuntimeState::Buffering) {
        // The grammar stays: tools search for this text.
        LOG(ERROR) << "ReadClientBuffer: The states is no buffering state!";
        return -EINVAL;
    }
    const int result = adapter_->ReadDspBuffer(engine_type_, buffer, size, channels);
    if (result < 0) return DeliverSilence(result, buffer, size);
    return result;
}

int64_t SoundTriggerHalClient::ReadClientTimestamp() {
    return adapter_->ReadDspTimestamp(engine_type_);
}

// --- dump ---

void SoundTriggerHalClient::Dump(const DumpsysInfo& info) {
    Dumpsys(info, LOG_TAG) << "Client: " << handle_;
    const DumpsysInfo sub_info = Nested(info);
    Dumpsys(sub_info, LOG_TAG) << "Io handle: " << io_handle_;
    Dumpsys(sub_info, LOG_TAG) << "Engine type: " << toString(engine_type_);
    // Words, not the 1 and 0 of the HAL's own lines.
    Dumpsys(sub_info, LOG_TAG) << "Client loaded: " << std::boolalpha << is_loaded_;
    Dumpsys(sub_info, LOG_TAG) << "Client started: " << std::boolalpha << is_started_;
    Dumpsys(sub_info, LOG_TAG) << "Aec enabled: " << std::boolalpha << is_aec_enabled_;
    Dumpsys(sub_info, LOG_TAG) << "Model info: ";
    const DumpsysInfo model_info = Nested(sub_info);
    Dumpsys(model_info, LOG_TAG) << "SoundModel type: " << toString(model_type_);
    Dumpsys(model_info, LOG_TAG) << "SoundModel size: " << model_size_;
    Dumpsys(model_info, LOG_TAG) << "SoundModel uuid: " << uuid_;
    Dumpsys(model_info, LOG_TAG) << "SoundModel vendor uuid: " << vendor_uuid_;
    Dumpsys(sub_info, LOG_TAG) << "Runtime state: " << toString(state());
    Dumpsys(sub_info, LOG_TAG) << "Recognition config: " << recognition_config_.toString();
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
