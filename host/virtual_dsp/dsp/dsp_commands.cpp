#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/virtual_dsp/dsp/dsp_clock.h"
#include "host/virtual_dsp/dsp/dsp_impl.h"

// How the DSP takes commands and chunks of models.
namespace virtual_dsp {
namespace {

using Bytes = std::span<const uint8_t>;

// The command as `T`; its length has been checked against the table.
template <typename T>
T As(Bytes command) {
    T payload;
    std::memcpy(&payload, command.data(), sizeof(payload));
    return payload;
}

template <typename T>
void Put(const T& payload, std::vector<uint8_t>* reply) {
    std::memcpy(reply->data(), &payload, sizeof(payload));
}

}  // namespace

int Dsp::Impl::Execute(Bytes command, std::vector<uint8_t>* reply) {
    reply->assign(command.begin(), command.end());
    CommandAnswered answer{.bytes = *reply};
    const CommandInfo* info = nullptr;
    if (command.size() >= sizeof(wire::CommandHeader)) {
        answer.id = As<wire::CommandHeader>(command).id;
        info = FindCommand(*answer.id);
    }

    Outcome outcome = Check(command, info);
    if (outcome.status == 0 && info != nullptr) outcome = CarryOut(*info, command, reply);
    if (outcome.status != 0) reply->clear();

    answer.status = outcome.status;
    answer.cause = outcome.cause;
    answer.value = outcome.value;
    answer.other = outcome.other;
    answer.model_fault = outcome.model_fault;
    journal_.Append(std::move(answer));
    return outcome.status;
}

Outcome Dsp::Impl::Check(Bytes command, const CommandInfo* info) const {
    if (!up_) return {-ENODEV, AnswerCause::kDspDown};
    const auto bytes = static_cast<int64_t>(command.size());
    if (command.size() < sizeof(wire::CommandHeader)) {
        return Refused(AnswerCause::kNoCommand, bytes);
    }
    if (info == nullptr) return Refused(AnswerCause::kUnknownId);
    const auto header = As<wire::CommandHeader>(command);
    if (header.size != command.size()) {
        return Refused(AnswerCause::kSizeOfHeader, bytes, header.size);
    }
    if (info->bytes != command.size()) return Refused(AnswerCause::kSize, bytes, info->bytes);
    if (header.reserved0 != 0 || header.reserved6 != 0) {
        return Refused(AnswerCause::kReservedBytes);
    }
    return Done();
}

Outcome Dsp::Impl::CarryOut(const CommandInfo& info, Bytes command, std::vector<uint8_t>* reply) {
    DetectionEngine& concerned = engine(info.engine);
    switch (info.action) {
        case Action::kWriteModel:
            // A chunk serves one command, whatever becomes of it.
            return concerned.Write(std::exchange(chunk_, {}),
                                   As<wire::WriteModelPayload>(command).offset);
        case Action::kLoadModel:
            return concerned.Load(history_.end());
        case Action::kUnloadModel:
            DropDetections(info.engine, VoidedBy::kUnload);
            concerned.Unload();
            return Done();
        case Action::kStart:
            if (concerned.state() == DetectionEngine::State::kDetected) {
                DropDetections(info.engine, VoidedBy::kStart);
            }
            return concerned.Start(history_.end());
        case Action::kStop:
            DropDetections(info.engine, VoidedBy::kStop);
            concerned.Stop();
            return Done();
        case Action::kForceRecognition:
            return ForceRecognition(info.engine);
        case Action::kInternalRecognition:
            return InternalRecognition();
        case Action::kQueryLibraryArchitecture:
            QueryLibraryArchitecture(command, reply);
            return Done();
        case Action::kQueryHotwordTimestamp:
            return QueryHotwordTimestamp(command, reply);
        case Action::kSetTuning:
            return SetTuning(info.id, As<wire::ValuePayload>(command).value);
        case Action::kSetReferenceSource:
            return SetReferenceSource(As<wire::ValuePayload>(command).value);
        case Action::kSetApProcessWithDock:
            return SetApProcessWithDock(command);
        case Action::kEraserOn:
        case Action::kEraserOff:
        case Action::kNeuralAecOn:
        case Action::kNeuralAecOff:
        case Action::kMicSwapOn:
        case Action::kMicSwapOff:
            return SetSwitch(info.action);
    }
    return Refused(AnswerCause::kUnknownId);
}

Outcome Dsp::Impl::SetTuning(uint16_t id, uint32_t bits) {
    const auto value = static_cast<int32_t>(bits);
    tuning_[id] = value;
    return Done(AnswerCause::kValue, value);
}

Outcome Dsp::Impl::SetReferenceSource(uint32_t value) {
    if (value != wire::kReferenceSourceOff && value != wire::kReferenceSourceDock) {
        return Refused(AnswerCause::kNoReferenceSource, value);
    }
    settings_.reference_source = value;
    return Done(AnswerCause::kValue, value);
}

Outcome Dsp::Impl::SetApProcessWithDock(Bytes command) {
    const auto payload = As<wire::ApProcessPayload>(command);
    if (payload.enabled > 1 || payload.reserved9 != 0) {
        return Refused(AnswerCause::kNeitherOnNorOff);
    }
    settings_.ap_process_with_dock = payload.enabled == 1;
    return Done(payload.enabled == 1 ? AnswerCause::kOn : AnswerCause::kOff);
}

Outcome Dsp::Impl::SetSwitch(Action action) {
    if (action == Action::kEraserOn || action == Action::kEraserOff) {
        settings_.eraser = action == Action::kEraserOn;
    } else if (action == Action::kNeuralAecOn || action == Action::kNeuralAecOff) {
        settings_.neural_aec = action == Action::kNeuralAecOn;
    } else {
        settings_.mic_swap = action == Action::kMicSwapOn;
    }
    return Done();
}

Outcome Dsp::Impl::ForceRecognition(Engine of) {
    DetectionEngine& forced = engine(of);
    if (!forced.has_model()) return Refused(AnswerCause::kNoModel);
    if (forced.state() == DetectionEngine::State::kDetected)
        return Done(AnswerCause::kAlreadyDetected);
    if (forced.state() != DetectionEngine::State::kDetecting)
        return Refused(AnswerCause::kNotStarted);
    // As if the template ended with the audio heard so far.
    Raise(of, DetectionRaised::Origin::kForced, {PresentFrame(), forced.template_frames(), 1});
    return Done();
}

Outcome Dsp::Impl::InternalRecognition() {
    if (engine(Engine::kHotword).state() == DetectionEngine::State::kIdle) {
        return Refused(AnswerCause::kNotStarted);
    }
    DropDetections(Engine::kHotword, VoidedBy::kInternalRecognition);
    Raise(Engine::kHotword, DetectionRaised::Origin::kInternal, {PresentFrame(), 0, 1});
    return Done();
}

Outcome Dsp::Impl::QueryHotwordTimestamp(Bytes command, std::vector<uint8_t>* reply) const {
    if (!hotword_ns_) return Refused(AnswerCause::kNoHotwordYet);
    auto payload = As<wire::HotwordTimestampPayload>(command);
    payload.ticks = NanosecondsToTicks(static_cast<uint64_t>(*hotword_ns_) +
                                       static_cast<uint64_t>(options_.clock_ahead_ns));
    Put(payload, reply);
    return Done(AnswerCause::kValue, static_cast<int64_t>(payload.ticks));
}

void Dsp::Impl::QueryLibraryArchitecture(Bytes command, std::vector<uint8_t>* reply) const {
    auto payload = As<wire::LibraryArchitecturePayload>(command);
    payload.library_version = options_.library_version;
    payload.architecture = {};
    std::copy_n(options_.architecture.begin(),
                std::min(options_.architecture.size(), payload.architecture.size()),
                payload.architecture.begin());
    Put(payload, reply);
}

int Dsp::Impl::WriteChunk(Bytes chunk) {
    if (!up_) {
        journal_.Append(ChunkTaken{.offered = chunk.size(), .status = -ENODEV});
        return -ENODEV;
    }
    const Bytes taken = chunk.first(std::min(chunk.size(), size_t{wire::kModelChunkBytes}));
    journal_.Append(ChunkTaken{
            .offered = chunk.size(), .taken = taken.size(), .replaces_unplaced = !chunk_.empty()});
    chunk_.assign(taken.begin(), taken.end());
    return static_cast<int>(taken.size());
}

}  // namespace virtual_dsp
