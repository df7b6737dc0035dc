#include "host/virtual_dsp/dsp/detection_engine.h"

#include <utility>

namespace virtual_dsp {

Outcome DetectionEngine::Write(std::span<const uint8_t> chunk, uint32_t offset) {
    if (chunk.empty()) return Refused(AnswerCause::kNoChunk);
    if (offset == 0) staged_.clear();
    if (offset != staged_.size()) {
        return Refused(AnswerCause::kChunkOffset, offset, static_cast<int64_t>(staged_.size()));
    }
    if (chunk.size() > kMaxSoundModelBytes - staged_.size()) {
        return Refused(AnswerCause::kModelTooLarge);
    }
    staged_.insert(staged_.end(), chunk.begin(), chunk.end());
    return Done(AnswerCause::kChunkPlaced, offset, static_cast<int64_t>(chunk.size()));
}

Outcome DetectionEngine::Load(uint64_t next_frame) {
    if (staged_.empty()) return Refused(AnswerCause::kNothingStaged);
    auto parsed = ParseSoundModel(staged_);
    if (!parsed.ok()) return Refused(parsed.error());
    if (parsed->engine != engine_) {
        return Refused(AnswerCause::kModelOfOtherEngine, static_cast<int64_t>(parsed->engine));
    }
    model_ = std::move(*parsed);
    loaded_ = std::exchange(staged_, {});
    if (state_ == State::kArmedWithoutModel || state_ == State::kDetecting) Listen(next_frame);
    return Done(AnswerCause::kModelLoaded, static_cast<int64_t>(loaded_.size()));
}

Outcome DetectionEngine::Start(uint64_t next_frame) {
    if (state_ == State::kDetecting) return Done(AnswerCause::kAlreadyDetecting);
    if (model_) {
        Listen(next_frame);
        return Done();
    }
    if (engine_ != Engine::kHotword) return Refused(AnswerCause::kNoModel);
    state_ = State::kArmedWithoutModel;
    return Done(AnswerCause::kArmedWithoutModel);
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
