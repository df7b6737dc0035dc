#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "host/virtual_dsp/dsp/detector.h"
#include "host/virtual_dsp/dsp/engine.h"
#include "host/virtual_dsp/dsp/outcome.h"
#include "host/virtual_dsp/dsp/sound_model.h"

namespace virtual_dsp {

// One detection engine: the model it is being sent, the model it holds, and whether it listens.
//
//             start (model loaded)                  detection
//     kIdle ------------------------> kDetecting ---------------> kDetected
//       |                              ^      ^                     |  (start: kDetecting)
//       | start (no model,        load |      +---------------------+
//       v  hotword only)               |
//     kArmedWithoutModel --------------+
//
// stop and unload lead back to kIdle from everywhere and are accepted there, too. Only the hotword
// engine may be started without a model: such a start listens for nothing and is good for an
// internal recognition only. Loading is independent of the state: an engine that is started goes
// on with the new model. Not thread-safe.
class DetectionEngine {
  public:
    enum class State { kIdle, kArmedWithoutModel, kDetecting, kDetected };

    explicit DetectionEngine(Engine engine) : engine_(engine) {}

    // Adds a chunk to the staged model. Chunks come in order and without gaps; offset 0 begins
    // anew.
    Outcome Write(std::span<const uint8_t> chunk, uint32_t offset);
    // Makes the staged bytes the engine's model. Refused bytes stay staged, for a look at them.
    // `next_frame` is the number of the frame that the engine will hear next.
    Outcome Load(uint64_t next_frame);
    Outcome Start(uint64_t next_frame);
    void Stop();
    // Stops, and forgets the model and everything staged.
    void Unload();

    // The next frames of the microphone that detection listens to. A detection leaves the state to
    // the caller, who raises it.
    std::optional<Detection> Hear(std::span<const int16_t> audio);
    void MarkDetected();

    State state() const { return state_; }
    bool has_model() const { return model_.has_value(); }
    uint32_t template_frames() const {
        return model_ ? static_cast<uint32_t>(model_->pcm_template.size()) : 0;
    }
    // The score that a detection needs; 0 without a model.
    float threshold() const { return model_ ? model_->threshold : 0; }
    // The loaded model's bytes; without one, what is staged.
    const std::vector<uint8_t>& bytes() const { return model_ ? loaded_ : staged_; }

  private:
    void Listen(uint64_t next_frame);

    Engine engine_;
    State state_ = State::kIdle;
    std::vector<uint8_t> staged_;
    std::vector<uint8_t> loaded_;
    std::optional<SoundModel> model_;   // What loaded_ says.
    std::optional<Detector> detector_;  // In kDetecting.
};

}  // namespace virtual_dsp
