#define LOG_TAG "StHal::RuntimeState"

#include "audio/hal/aidl/soundtrigger/runtime_state.h"

#include <android-base/logging.h>

#include <memory>

#include "audio/hal/aidl/soundtrigger/client.h"
#include "audio/hal/aidl/soundtrigger/sound_trigger_adapter.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

constexpr int kDone = 0;
constexpr int kRefused = 1;

constexpr char kFailure[] = ": failure due to ";
constexpr char kStopFailure[] = ": stop detection failure due to ";
constexpr char kUnloadFailure[] = ": unload model failure due to ";

// What internal recognition is started with; the DSP gives other values no meaning yet.
constexpr unsigned int kInternalRecognitionValue = 0;

// Internal recognition runs the hotword engine, whatever the client's.
int RunningEngine(RuntimeState state, const SoundTriggerHalClient& client) {
    return state == RuntimeState::InternalForceDetected ? EngineType::Hotword : client.engine_type_;
}

// Whether the DSP refused; then it is logged.
bool Failed(int status, const char* operation, const char* failure) {
    if (status == 0) return false;
    LOG(ERROR) << operation << failure << status;
    return true;
}

int Stay(SoundTriggerHalClient* client, const char* operation) {
    if (IsInvalidClient(client)) return kRefused;
    LOG(INFO) << operation << ": client type: " << toString(client->engine_type_);
    return kDone;
}

}  // namespace

std::string toString(RuntimeState state) {
    switch (state) {
        case RuntimeState::ModelUnloaded:
            return "ModelUnloaded";
        case RuntimeState::ModelLoaded:
            return "ModelLoaded";
        case RuntimeState::StartDetecting:
            return "StartDetecting";
        case RuntimeState::CallbackProcessing:
            return "CallbackProcessing";
        case RuntimeState::Buffering:
            return "Buffering";
        case RuntimeState::InternalForceDetected:
            return "InternalForceDetected";
    }
    return std::to_string(static_cast<int>(state));
}

bool IsInvalidClient(SoundTriggerHalClient* client) {
    if (client != nullptr) return false;
    LOG(ERROR) << "IsInvalidClient: Client is NULL.";
    return true;
}

// --- what states share ---

int RuntimeStateBase::ToDetecting(SoundTriggerHalClient*) {
    return kRefused;
}

int RuntimeStateBase::ToCallbackProcessing(SoundTriggerHalClient*) {
    return kRefused;
}

int RuntimeStateBase::ToBuffering(SoundTriggerHalClient*) {
    return kRefused;
}

int RuntimeStateBase::ToInternalForceRecognition(SoundTriggerHalClient*) {
    return kRefused;
}

template <typename State>
int RuntimeStateBase::ChangeTo(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    client->ChangeStateTo(std::make_unique<State>(adapter_));
    return kDone;
}

int RuntimeStateBase::StopAndUnload(SoundTriggerHalClient* client) {
    constexpr char kOperation[] = "ToUnloadState";
    if (IsInvalidClient(client)) return kRefused;
    const int engine = RunningEngine(state_, *client);
    if (Failed(adapter_->StopDetectionInDsp(engine), kOperation, kStopFailure)) return kRefused;
    if (Failed(adapter_->UnloadSoundModelFromDsp(engine), kOperation, kUnloadFailure)) {
        return kRefused;
    }
    return ChangeTo<StateModelUnloaded>(client);
}

int RuntimeStateBase::StopDetection(SoundTriggerHalClient* client, const char* failure) {
    if (IsInvalidClient(client)) return kRefused;
    const int status = adapter_->StopDetectionInDsp(RunningEngine(state_, *client));
    if (Failed(status, "ToLoadState", failure)) return kRefused;
    return ChangeTo<StateModelLoaded>(client);
}

int RuntimeStateBase::StartDetection(SoundTriggerHalClient* client, const char* failure) {
    if (IsInvalidClient(client)) return kRefused;
    const int status = adapter_->StartDetectionInDsp(client->engine_type_);
    if (Failed(status, "ToDetecting", failure)) return kRefused;
    return ChangeTo<StateModelDetecting>(client);
}

int RuntimeStateBase::StartInternalRecognition(SoundTriggerHalClient* client) {
    constexpr char kOperation[] = "ToInternalForceRecognition";
    if (IsInvalidClient(client) || client->engine_type_ != EngineType::Hotword) return kRefused;
    if (state_ != RuntimeState::StartDetecting &&
        Failed(adapter_->StartDetectionInDsp(kHotwordEngine), kOperation, kFailure)) {
        return kRefused;
    }
    const int status = adapter_->InternalHotwordRecognition(kInternalRecognitionValue);
    if (Failed(status, kOperation, kFailure)) return kRefused;
    return ChangeTo<StateInternalForceDetected>(client);
}

// --- ModelUnloaded ---

int StateModelUnloaded::ToUnloadState(SoundTriggerHalClient* client) {
    return Stay(client, "ToUnloadState");
}

int StateModelUnloaded::ToLoadState(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    const int status = adapter_->LoadSoundModelToDsp(client->engine_type_, client->model_size(),
                                                     client->model_data());
    if (Failed(status, "ToLoadState", kFailure)) return kRefused;
    return ChangeTo<StateModelLoaded>(client);
}

int StateModelUnloaded::ToInternalForceRecognition(SoundTriggerHalClient* client) {
    return StartInternalRecognition(client);
}

// --- ModelLoaded ---

int StateModelLoaded::ToUnloadState(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    const int status = adapter_->UnloadSoundModelFromDsp(client->engine_type_);
    if (Failed(status, "ToUnloadState", kFailure)) return kRefused;
    return ChangeTo<StateModelUnloaded>(client);
}

int StateModelLoaded::ToLoadState(SoundTriggerHalClient* client) {
    return Stay(client, "ToLoadState");
}

int StateModelLoaded::ToDetecting(SoundTriggerHalClient* client) {
    return StartDetection(client, kFailure);
}

int StateModelLoaded::ToInternalForceRecognition(SoundTriggerHalClient* client) {
    return StartInternalRecognition(client);
}

// --- StartDetecting ---

int StateModelDetecting::ToUnloadState(SoundTriggerHalClient* client) {
    return StopAndUnload(client);
}

int StateModelDetecting::ToLoadState(SoundTriggerHalClient* client) {
    return StopDetection(client, kFailure);
}

int StateModelDetecting::ToDetecting(SoundTriggerHalClient* client) {
    return Stay(client, "ToDetecting");
}

int StateModelDetecting::ToCallbackProcessing(SoundTriggerHalClient* client) {
    return ChangeTo<StateCallbackProcessing>(client);
}

int StateModelDetecting::ToInternalForceRecognition(SoundTriggerHalClient* client) {
    return StartInternalRecognition(client);
}

// --- CallbackProcessing ---

int StateCallbackProcessing::ToUnloadState(SoundTriggerHalClient* client) {
    return StopAndUnload(client);
}

int StateCallbackProcessing::ToLoadState(SoundTriggerHalClient* client) {
    return StopDetection(client, kStopFailure);
}

int StateCallbackProcessing::ToDetecting(SoundTriggerHalClient* client) {
    // Log parsers in the field know a failed restart by the text of a stop.
    return StartDetection(client, kStopFailure);
}

int StateCallbackProcessing::ToBuffering(SoundTriggerHalClient* client) {
    return ChangeTo<StateBuffering>(client);
}

// --- Buffering ---

int StateBuffering::ToUnloadState(SoundTriggerHalClient* client) {
    return StopAndUnload(client);
}

int StateBuffering::ToLoadState(SoundTriggerHalClient* client) {
    return StopDetection(client, kStopFailure);
}

int StateBuffering::ToDetecting(SoundTriggerHalClient* client) {
    return StartDetection(client, kStopFailure);  // The text: see CallbackProcessing.
}

// --- InternalForceDetected ---

int StateInternalForceDetected::ToUnloadState(SoundTriggerHalClient* client) {
    return StopAndUnload(client);
}

int StateInternalForceDetected::ToLoadState(SoundTriggerHalClient* client) {
    return StopDetection(client, kStopFailure);
}

int StateInternalForceDetected::ToDetecting(SoundTriggerHalClient*) {
    return kDone;  // The engine runs already.
}

int StateInternalForceDetected::ToBuffering(SoundTriggerHalClient* client) {
    return ChangeTo<StateBuffering>(client);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
