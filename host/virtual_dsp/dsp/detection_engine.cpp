#include "host/virtual_dsp/dsp/detection_engine.h"

#include <string>
#include <utility>

namespace virtual_dsp {

Outcome DetectionEngine::Write(std::span<const uint8_t> piece, uint32_t offset) {
    if (piece.empty()) return Refused("no piece was written to the model-data node");
    if (offset == 0) staged_.clear();
    if (offset != staged_.size()) {
        return Refused("offset " + std::to_string(offset) + " does not follow the " +
                       std::to_string(staged_.size()) + " bytes staged");
    }
    if (piece.size() > kMaxSoundModelBytes - staged_.size()) return Refused("model too large");
    staged_.insert(staged_.end(), piece.begin(), piece.end());
    return Done("offset " + std::to_string(offset) + ", " + std::to_string(piece.size()) +
                " bytes");
}

Outcome DetectionEngine::Load(uint64_t next_frame) {
    if (staged_.empty()) return Refused("nothing staged");
    ParsedSoundModel parsed = ParseSoundModel(staged_);
    if (!parsed.model) return Refused("bad model: " + parsed.reason);
    if (parsed.model->engine != engine_) {
        return Refused("bad model: made for engine " +
                       std::to_string(static_cast<int>(parsed.model->engine)));
    }
    model_ = std::move(parsed.model);
    loaded_ = std::exchange(staged_, {});
    if (state_ == State::kArmedWithoutModel || state_ == State::kDetecting) Listen(next_frame);
    return Done(std::to_string(loaded_.size()) + " bytes");
}

Outcome DetectionEngine::Start(uint64_t next_frame) {
    if (state_ == State::kDetecting) return Done("already detecting");
    if (model_) {
        Listen(next_frame);
        return Done();
    }
    if (engine_ != Engine::kHotword) return Refused("no model loaded");
    state_ = State::kArmedWithoutModel;
    return Done("without a model, for an internal recognition only");
}

void DetectionEngine::Listen(uint64_t next_frame) {
    detector_.emplace(model_->pcm_template, model_->threshold, next_frame);
    state_ = State::kDetecting;
}

void DetectionEngine::Stop() {
    detector_.reset();
    state_ = State::kIdle;
}

void DetectionEngine::Unload() {
    Stop();
    model_.reset();
    loaded_ = {};
    staged_ = {};
}

std::optional<Detection> DetectionEngine::Hear(std::span<const int16_t> audio) {
    return detector_ ? detector_->Hear(audio) : std::nullopt;
}

void DetectionEngine::MarkDetected() {
    detector_.reset();
    state_ = State::kDetected;
}

}  // namespace virtual_dsp
