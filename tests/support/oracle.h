#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/client_table.h"
#include "tests/support/simple_dsp.h"
#include "tests/support/step.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** A client of the HAL, as the oracle expects it and as the HAL has it. */
struct ClientView {
    int handle = 0;
    int io_handle = 0;
    int engine = 0;
    bool is_loaded = false;
    bool is_started = false;
    bool is_aec_enabled = false;
    bool is_forced = false;
    bool is_internal = false;
    int state = 0;  // Of RuntimeState.

    bool operator==(const ClientView&) const = default;
};

std::string ToText(const std::vector<ClientView>& clients);

/** An event, as the framework should get it and as it does get it. */
struct EventView {
    int handle = 0;
    bool is_phrase = false;
    bool is_capture_available = false;
    int extra = -1;  // The id of the only phrase extra; -1 without one.
    std::string payload;

    bool operator==(const EventView&) const = default;
};

std::string ToText(const std::vector<EventView>& events);

// What a start with configuration `number` asks for.
struct StartConfiguration {
    bool is_capture_requested;
    int audio_capabilities;
    int extra;  // The id of a phrase extra; -1 for none.
};
inline constexpr std::array<StartConfiguration, 4> kConfigurations = {
        {{false, 0, -1}, {true, 1, 3}, {true, 3, 5}, {false, 1, -1}}};

/**
 * What the framework, the environment and the DSP may expect of the HAL, as a plain sequential
 * program. It has no threads and no state classes, and uses nothing of the HAL. A client's states
 * are those of client_table.h.
 *
 * The result of each step is what the HAL's operation must return. For a load it is the handle, for
 * a read 1 for audio and 0 for silence.
 */
class Oracle {
  public:
    // `model_crcs`: the CRCs of the models that steps name by number, keyphrases first.
    explicit Oracle(std::array<std::array<uint32_t, kStepModels>, 2> model_crcs)
        : model_crcs_(model_crcs) {}

    // The HAL is built and initialised again, on the same DSP.
    void RestartHal();
    // None for an operation that returns nothing.
    std::optional<int> Apply(const Step& step);

    // Since the last call.
    std::vector<EventView> TakeEvents() { return std::exchange(events_, {}); }
    std::vector<ClientView> clients() const;
    int ModelHandleOf(int io_handle) const;
    SimpleDsp& dsp() { return dsp_; }
    // Whether the control thread has taken a record from the DSP in the last step, or may have.
    bool has_read() const { return has_read_; }
    // What the DSP has to hold after a recovery in which nothing failed, derived from the
    // framework's requests alone.
    std::optional<DspView> Wanted() const;

  private:
    struct Client : ClientView {
        int model = -1;  // Its vendor uuid.
        uint32_t crc = 0;
        int configuration = 0;
    };

    std::optional<int> ApplyStep(const Step& step);
    void Metadata(size_t port, int tracks);
    // Each returns the HAL's result.
    int Load(int type, int model, int defect);
    int Unload(int handle);
    int Start(int handle, int io_handle, int configuration);
    int Stop(int handle);
    int Force(int handle);
    int InternalForce();
    int StopInternalForce();
    int StartBuffering(int io_handle, bool is_forced);
    int Read(int engine, bool is_silent);
    void Dock(bool is_docked);
    void MicSwap(bool is_on);
    void Route(int usecases);
    void Online(bool is_online);
    void Recover();

    // Whether the DSP, and the client, do it.
    bool Ask(DspOp op, int argument, uint32_t model = 0);
    bool Carry(Client& client, Request request);

    Client* Find(int handle);
    int SmallestFree(int from) const;
    void UpdateAec();
    void SwitchAec(bool is_wanted);
    void Deliver();

    const std::array<std::array<uint32_t, kStepModels>, 2> model_crcs_;
    SimpleDsp dsp_;
    std::map<int, Client> clients_;
    bool is_online_ = false;
    bool is_docked_ = false;
    bool is_mic_swapped_ = false;
    std::array<bool, 4> routed_ = {};
    std::array<int, 4> tracks_ = {};
    std::vector<EventView> events_;
    bool has_read_ = false;
    bool is_recovered_ = false;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
