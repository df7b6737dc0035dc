#pragma once

#include <string>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

class SoundTriggerAdapter;
class SoundTriggerHalClient;

/** What the DSP is doing for a client's model. */
enum RuntimeState : int {
    ModelUnloaded = 0,
    ModelLoaded = 1,
    StartDetecting = 2,
    CallbackProcessing = 3,
    Buffering = 4,
    InternalForceDetected = 5,
};

/** The enumerator's name; for any other value its decimal number. */
std::string toString(RuntimeState state);

/** True, after an ERROR line, when `client` is null. */
bool IsInvalidClient(SoundTriggerHalClient* client);

// clang-format off
/**
 * A client's runtime state: carries out the requests that it allows in the DSP, then replaces
 * itself in the client by the state that follows.
 *
 * Each operation returns 0 (done) or 1. A failure in the DSP is logged and leaves the state as it
 * is; what the DSP had already done is not undone. Other requests are refused without a word.
 *
 *                ToLoadState            ToDetecting               ToCallbackProcessing
 *  ModelUnloaded -----------> ModelLoaded ---------> StartDetecting -----------> CallbackProcessing
 *        |                         |                       |                             |
 *        '-------------------------+-----------------------'                             | ToBuffering
 *                                  | ToInternalForceRecognition                          v
 *                                  v                              ToBuffering
 *                        InternalForceDetected -------------------------------------> Buffering
 *
 * Wherever the DSP detects or captures, ToLoadState leads back to ModelLoaded and ToUnloadState to
 * ModelUnloaded; from CallbackProcessing and Buffering, ToDetecting leads back to StartDetecting.
 *
 * Runs under the HAL's lock.
 */
// clang-format on
class RuntimeStateBase {
  public:
    virtual ~RuntimeStateBase() = default;
    RuntimeStateBase(const RuntimeStateBase&) = delete;
    RuntimeStateBase& operator=(const RuntimeStateBase&) = delete;

    [[nodiscard]] virtual int ToUnloadState(SoundTriggerHalClient* client) = 0;
    [[nodiscard]] virtual int ToLoadState(SoundTriggerHalClient* client) = 0;
    [[nodiscard]] virtual int ToDetecting(SoundTriggerHalClient* client);
    [[nodiscard]] virtual int ToCallbackProcessing(SoundTriggerHalClient* client);
    [[nodiscard]] virtual int ToBuffering(SoundTriggerHalClient* client);
    [[nodiscard]] virtual int ToInternalForceRecognition(SoundTriggerHalClient* client);

    const RuntimeState state_;

  protected:
    RuntimeStateBase(RuntimeState state, SoundTriggerAdapter* adapter)
        : state_(state), adapter_(adapter) {}

    // Shared steps. Each checks the client first; a change of state destroys this object.
    template <typename State>
    int ChangeTo(SoundTriggerHalClient* client);
    int StopAndUnload(SoundTriggerHalClient* client);
    int StopDetection(SoundTriggerHalClient* client, const char* failure);
    int StartDetection(SoundTriggerHalClient* client, const char* failure);
    int StartInternalRecognition(SoundTriggerHalClient* client);

    SoundTriggerAdapter* const adapter_;
};

/** The DSP holds no model: at first, after an unload, and after the DSP has lost its models. */
class StateModelUnloaded final : public RuntimeStateBase {
  public:
    explicit StateModelUnloaded(SoundTriggerAdapter* adapter)
        : RuntimeStateBase(RuntimeState::ModelUnloaded, adapter) {}
    [[nodiscard]] int ToUnloadState(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToLoadState(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToInternalForceRecognition(SoundTriggerHalClient* client) override;
};

/** The model is in the DSP and nothing listens for it: after a load or a stop. */
class StateModelLoaded final : public RuntimeStateBase {
  public:
    explicit StateModelLoaded(SoundTriggerAdapter* adapter)
        : RuntimeStateBase(RuntimeState::ModelLoaded, adapter) {}
    [[nodiscard]] int ToUnloadState(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToLoadState(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToDetecting(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToInternalForceRecognition(SoundTriggerHalClient* client) override;
};

/** The DSP listens: after a start, until a detection or a stop. */
class StateModelDetecting final : public RuntimeStateBase {
  public:
    explicit StateModelDetecting(SoundTriggerAdapter* adapter)
        : RuntimeStateBase(RuntimeState::StartDetecting, adapter) {}
    [[nodiscard]] int ToUnloadState(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToLoadState(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToDetecting(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToCallbackProcessing(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToInternalForceRecognition(SoundTriggerHalClient* client) override;
};

/** The DSP has detected and the framework is being told; left by its next request. */
class StateCallbackProcessing final : public RuntimeStateBase {
  public:
    explicit StateCallbackProcessing(SoundTriggerAdapter* adapter)
        : RuntimeStateBase(RuntimeState::CallbackProcessing, adapter) {}
    [[nodiscard]] int ToUnloadState(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToLoadState(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToDetecting(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToBuffering(SoundTriggerHalClient* client) override;
};

/** A capture stream reads the audio of the detection; left by the framework's next request. */
class StateBuffering final : public RuntimeStateBase {
  public:
    explicit StateBuffering(SoundTriggerAdapter* adapter)
        : RuntimeStateBase(RuntimeState::Buffering, adapter) {}
    [[nodiscard]] int ToUnloadState(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToLoadState(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToDetecting(SoundTriggerHalClient* client) override;
};

/**
 * The hotword engine runs for a capture without a detection; left when that capture starts to read
 * or ends.
 */
class StateInternalForceDetected final : public RuntimeStateBase {
  public:
    explicit StateInternalForceDetected(SoundTriggerAdapter* adapter)
        : RuntimeStateBase(RuntimeState::InternalForceDetected, adapter) {}
    [[nodiscard]] int ToUnloadState(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToLoadState(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToDetecting(SoundTriggerHalClient* client) override;
    [[nodiscard]] int ToBuffering(SoundTriggerHalClient* client) override;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
