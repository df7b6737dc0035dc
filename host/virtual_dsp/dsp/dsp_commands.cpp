#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/virtual_dsp/dsp/dsp_clock.h"
#include "host/virtual_dsp/dsp/dsp_impl.h"

// How the DSP takes commands and model pieces.
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
    JournalEntry entry;
    entry.source = "command";
    entry.command_bytes = *reply;
    const CommandInfo* info = nullptr;
    if (command.size() >= sizeof(wire::CommandHeader)) {
        entry.command_id = As<wire::CommandHeader>(command).id;
        info = FindCommand(*entry.command_id);
    }

    Outcome outcome = Check(command, info);
    if (outcome.result == 0 && info != nullptr) outcome = CarryOut(*info, command, reply);
    if (outcome.result != 0) reply->clear();

    entry.result = outcome.result;
    entry.text = "command ";
    if (entry.command_id) {
        entry.text += std::to_string(*entry.command_id) + " " + CommandName(*entry.command_id);
    } else {
        entry.text += "without an id";
    }
    entry.text += " -> " + std::to_string(outcome.result);
    if (!outcome.detail.empty()) entry.text += ": " + outcome.detail;
    journal_.Append(std::move(entry));
    return outcome.result;
}

Outcome Dsp::Impl::Check(Bytes command, const CommandInfo* info) const {
    if (!up_) return {-ENODEV, "the DSP is down"};
    const std::string bytes = std::to_string(command.size()) + " bytes";
    if (command.size() < sizeof(wire::CommandHeader)) return Refused(bytes + " are no command");
    if (info == nullptr) return Refused("unknown id");
    const auto header = As<wire::CommandHeader>(command);
    if (header.size != command.size()) {
        return Refused(bytes + ", but the header says " + std::to_string(header.size));
    }
    if (info->bytes != command.size()) {
        return Refused(bytes + " instead of " + std::to_string(info->bytes));
    }
    if (header.reserved0 != 0 || header.reserved6 != 0) return Refused("reserved bytes are set");
    return Done();
}

Outcome Dsp::Impl::CarryOut(const CommandInfo& info, Bytes command, std::vector<uint8_t>* reply) {
    DetectionEngine& concerned = engine(info.engine);
    switch (info.action) {
        case Action::kWriteModel:
            // A piece serves one command, whatever becomes of it.
            return concerned.Write(std::exchange(piece_, {}),
                                   As<wire::WriteModelPayload>(command).offset);
        case Action::kLoadModel:
            return concerned.Load(history_.end());
        case Action::kUnloadModel:
            DropDetections(info.engine, "unload");
            concerned.Unload();
            return Done();
        case Action::kStart:
            if (concerned.state() == DetectionEngine::State::kDetected) {
                DropDetections(info.engine, "start");
            }
            return concerned.Start(history_.end());
        case Action::kStop:
            DropDetections(info.engine, "stop");
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
        case Action::kSetTuning: {
            const auto value = static_cast<int32_t>(As<wire::ValuePayload>(command).value);
            tuning_[info.id] = value;
            return Done(std::to_string(value));
        }
        case Action::kSetReferenceSource: {
            const uint32_t value = As<wire::ValuePayload>(command).value;
            if (value != wire::kReferenceSourceOff && value != wire::kReferenceSourceDock) {
                return Refused("no reference source " + std::to_string(value));
            }
            settings_.reference_source = value;
            return Done(std::to_string(value));
        }
        case Action::kSetApProcessWithDock: {
            const auto payload = As<wire::ApProcessPayload>(command);
            if (payload.enabled > 1 || payload.reserved9 != 0) return Refused("neither on nor off");
            settings_.ap_process_with_dock = payload.enabled == 1;
            return Done(payload.enabled == 1 ? "on" : "off");
        }
        case Action::kEraserOn:
        case Action::kEraserOff:
        case Action::kNeuralAecOn:
        case Action::kNeuralAecOff:
        case Action::kMicSwapOn:
        case Action::kMicSwapOff:
            return SetSwitch(info.action);
    }
    return Refused("unknown action");
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
    if (!forced.has_model()) return Refused("no model loaded");
    if (forced.state() == DetectionEngine::State::kDetected) return Done("detected already");
    if (forced.state() != DetectionEngine::State::kDetecting) return Refused("not started");
    // As if the template ended with the audio heard so far.
    Raise(of, {PresentFrame(), forced.template_frames(), 1},
          "forced frame=" + std::to_string(PresentFrame()));
    return Done();
}

Outcome Dsp::Impl::InternalRecognition() {
    if (engine(Engine::kHotword).state() == DetectionEngine::State::kIdle) {
        return Refused("not started");
    }
    DropDetections(Engine::kHotword, "internal recognition");
    Raise(Engine::kHotword, {PresentFrame(), 0, 1},
          "internal frame=" + std::to_string(PresentFrame()));
    return Done();
}

Outcome Dsp::Impl::QueryHotwordTimestamp(Bytes command, std::vector<uint8_t>* reply) const {
    if (!hotword_ns_) return Refused("no hotword yet");
    auto payload = As<wire::HotwordTimestampPayload>(command);
    payload.ticks = NanosecondsToTicks(static_cast<uint64_t>(*hotword_ns_) +
                                       static_cast<uint64_t>(options_.clock_ahead_ns));
    Put(payload, reply);
    return Done(std::to_string(payload.ticks));
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

int Dsp::Impl::WritePiece(Bytes piece) {
    if (!up_) {
        Note("model-data",
             "a piece of " + std::to_string(piece.size()) + " bytes: the DSP is down");
        return -ENODEV;
    }
    const Bytes taken = piece.first(std::min(piece.size(), size_t{wire::kModelChunkBytes}));
    Note("model-data", std::to_string(taken.size()) + " of " + std::to_string(piece.size()) +
                               " bytes taken" +
                               (piece_.empty() ? "" : "; the piece before was never placed"));
    piece_.assign(taken.begin(), taken.end());
    return static_cast<int>(taken.size());
}

}  // namespace virtual_dsp
