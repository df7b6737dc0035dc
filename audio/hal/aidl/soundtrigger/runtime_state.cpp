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

int EngineOf(const SoundTriggerHalClient* client) {
    return static_cast<int>(client->engine_type_);
}

// True, after the ERROR line that all transitions share, when the DSP refused.
bool Failed(int status, const char* operation, const char* failure) {
    if (status == 0) return false;
    LOG(ERROR) << operation << failure << status;
    return true;
}

int Stay(const SoundTriggerHalClient* client, const char* operation) {
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

// --- what all states share ---

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
    client->ChangeStateTo(std::make_unique<State>(adapter_));
    return kDone;  // `this` is gone.
}

int RuntimeStateBase::StopAndUnload(SoundTriggerHalClient* client, int engine_type) {
    constexpr char kOperation[] = "ToUnloadState";
    if (Failed(adapter_->StopDetectionInDsp(engine_type), kOperation, kStopFailure)) {
        return kRefused;
    }
    if (Failed(adapter_->UnloadSoundModelFromDsp(engine_type), kOperation, kUnloadFailure)) {
        return kRefused;
    }
    return ChangeTo<StateModelUnloaded>(client);
}

int RuntimeStateBase::StopDetection(SoundTriggerHalClient* client, int engine_type,
                                    const char* failure) {
    if (Failed(adapter_->StopDetectionInDsp(engine_type), "ToLoadState", failure)) return kRefused;
    return ChangeTo<StateModelLoaded>(client);
}

int RuntimeStateBase::StartDetection(SoundTriggerHalClient* client, const char* failure) {
    if (Failed(adapter_->StartDetectionInDsp(EngineOf(client)), "ToDetecting", failure)) {
        return kRefused;
    }
    return ChangeTo<StateModelDetecting>(client);
}

int RuntimeStateBase::StartInternalRecognition(SoundTriggerHalClient* client, bool is_detecting) {
    constexpr char kOperation[] = "ToInternalForceRecognition";
    if (client->engine_type_ != EngineType::Hotword) return kRefused;
    if (!is_detecting &&
        Failed(adapter_->StartDetectionInDsp(kHotwordEngine), kOperation, kFailure)) {
        return kRefused;
    }
    if (Failed(adapter_->InternalHotwordRecognition(kInternalRecognitionValue), kOperation,
               kFailure)) {
        return kRefused;
    }
    return ChangeTo<StateInternalForceDetected>(client);
}

// --- ModelUnloaded ---

StateModelUnloaded::StateModelUnloaded(SoundTriggerAdapter* adapter)
    : RuntimeStateBase(RuntimeState::ModelUnloaded, adapter) {}

int StateModelUnloaded::ToUnloadState(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return Stay(client, "ToUnloadState");
}

int StateModelUnloaded::ToLoadState(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    const int status = adapter_->LoadSoundModelToDsp(EngineOf(client), client->model_size(),
                                                     client->model_data());
    if (Failed(status, "ToLoadState", kFailure)) return kRefused;
    return ChangeTo<StateModelLoaded>(client);
}

int StateModelUnloaded::ToInternalForceRecognition(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return StartInternalRecognition(client, /*is_detecting=*/false);
}

// --- ModelLoaded ---

StateModelLoaded::StateModelLoaded(SoundTriggerAdapter* adapter)
    : RuntimeStateBase(RuntimeState::ModelLoaded, adapter) {}

int StateModelLoaded::ToUnloadState(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    if (Failed(adapter_->UnloadSoundModelFromDsp(EngineOf(client)), "ToUnloadState", kFailure)) {
        return kRefused;
    }
    return ChangeTo<StateModelUnloaded>(client);
}

int StateModelLoaded::ToLoadState(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return Stay(client, "ToLoadState");
}

int StateModelLoaded::ToDetecting(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return StartDetection(client, kFailure);
}

int StateModelLoaded::ToInternalForceRecognition(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return StartInternalRecognition(client, /*is_detecting=*/false);
}

// --- StartDetecting ---

StateModelDetecting::StateModelDetecting(SoundTriggerAdapter* adapter)
    : RuntimeStateBase(RuntimeState::StartDetecting, adapter) {}

int StateModelDetecting::ToUnloadState(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return StopAndUnload(client, EngineOf(client));
}

int StateModelDetecting::ToLoadState(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return StopDetection(client, EngineOf(client), kFailure);
}

int StateModelDetecting::ToDetecting(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return Stay(client, "ToDetecting");
}

int StateModelDetecting::ToCallbackProcessing(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return ChangeTo<StateCallbackProcessing>(client);
}

int StateModelDetecting::ToInternalForceRecognition(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return StartInternalRecognition(client, /*is_detecting=*/true);
}

// --- CallbackProcessing ---

StateCallbackProcessing::StateCallbackProcessing(SoundTriggerAdapter* adapter)
    : RuntimeStateBase(RuntimeState::CallbackProcessing, adapter) {}

int StateCallbackProcessing::ToUnloadState(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return StopAndUnload(client, EngineOf(client));
}

int StateCallbackProcessing::ToLoadState(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return StopDetection(client, EngineOf(client), kStopFailure);
}

int StateCallbackProcessing::ToDetecting(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    // Speaks of a stop although it starts: log parsers in the field know the failure of a restart
    // after a detection by this text.
    return StartDetection(client, kStopFailure);
}

int StateCallbackProcessing::ToBuffering(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return ChangeTo<StateBuffering>(client);
}

// --- Buffering ---

StateBuffering::StateBuffering(SoundTriggerAdapter* adapter)
    : RuntimeStateBase(RuntimeState::Buffering, adapter) {}

int StateBuffering::ToUnloadState(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return StopAndUnload(client, EngineOf(client));
}

int StateBuffering::ToLoadState(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return StopDetection(client, EngineOf(client), kStopFailure);
}

int StateBuffering::ToDetecting(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return StartDetection(client, kStopFailure);  // The text: see CallbackProcessing.
}

// --- InternalForceDetected ---

StateInternalForceDetected::StateInternalForceDetected(SoundTriggerAdapter* adapter)
    : RuntimeStateBase(RuntimeState::InternalForceDetected, adapter) {}

int StateInternalForceDetected::ToUnloadState(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return StopAndUnload(client, kHotwordEngine);
}

int StateInternalForceDetected::ToLoadState(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return StopDetection(client, kHotwordEngine, kStopFailure);
}

int StateInternalForceDetected::ToDetecting(SoundTriggerHalClient*) {
    // The engine is running already, and whoever asks is told so; no client is looked at.
    return kDone;
}

int StateInternalForceDetected::ToBuffering(SoundTriggerHalClient* client) {
    if (IsInvalidClient(client)) return kRefused;
    return ChangeTo<StateBuffering>(client);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
