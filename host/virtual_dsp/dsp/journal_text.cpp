#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>
#include <utility>
#include <variant>

#include "host/virtual_dsp/dsp/command_table.h"
#include "host/virtual_dsp/dsp/journal_entry.h"

// All that the journal says to a person.
namespace virtual_dsp {
namespace {

// The first "{}" of each text is the entry's value, the second one its other value.
constexpr std::pair<AnswerCause, const char*> kCauses[] = {
        {AnswerCause::kNone, ""},
        {AnswerCause::kDspDown, "the DSP is down"},
        {AnswerCause::kNoCommand, "{} bytes are no command"},
        {AnswerCause::kUnknownId, "unknown id"},
        {AnswerCause::kSizeOfHeader, "{} bytes, but the header says {}"},
        {AnswerCause::kSize, "{} bytes instead of {}"},
        {AnswerCause::kReservedBytes, "reserved bytes are set"},
        {AnswerCause::kNoChunk, "no chunk was written to the model-data node"},
        {AnswerCause::kChunkOffset, "offset {} does not follow the {} bytes staged"},
        {AnswerCause::kModelTooLarge, "model too large"},
        {AnswerCause::kNothingStaged, "nothing staged"},
        {AnswerCause::kBadModel, "bad model: "},
        {AnswerCause::kModelOfOtherEngine, "bad model: made for engine {}"},
        {AnswerCause::kNoModel, "no model loaded"},
        {AnswerCause::kNotStarted, "not started"},
        {AnswerCause::kNoReferenceSource, "no reference source {}"},
        {AnswerCause::kNeitherOnNorOff, "neither on nor off"},
        {AnswerCause::kNoHotwordYet, "no hotword yet"},
        {AnswerCause::kChunkPlaced, "offset {}, {} bytes"},
        {AnswerCause::kModelLoaded, "{} bytes"},
        {AnswerCause::kAlreadyDetecting, "already detecting"},
        {AnswerCause::kAlreadyDetected, "detected already"},
        {AnswerCause::kArmedWithoutModel, "without a model, for an internal recognition only"},
        {AnswerCause::kValue, "{}"},
        {AnswerCause::kOn, "on"},
        {AnswerCause::kOff, "off"},
};
static_assert(std::size(kCauses) == static_cast<size_t>(AnswerCause::kOff) + 1);

constexpr std::pair<ModelFault, const char*> kModelFaults[] = {
        {ModelFault::kNone, ""},
        {ModelFault::kTooShort, "{} bytes are too few for a header"},
        {ModelFault::kMagic, "not a sound model (wrong magic)"},
        {ModelFault::kVersion, "unknown version {}"},
        {ModelFault::kEngine, "unknown engine {}"},
        {ModelFault::kThreshold, "threshold above 1"},
        {ModelFault::kTemplateLength, "a template of {} frames"},
        {ModelFault::kTemplatePastEnd, "the template runs past the model's end"},
        {ModelFault::kTotalBytes, "{} of {} bytes"},
        {ModelFault::kChecksum, "wrong checksum"},
        {ModelFault::kSilentTemplate, "the template is silent"},
};
static_assert(std::size(kModelFaults) == static_cast<size_t>(ModelFault::kSilentTemplate) + 1);

template <typename Table, typename Key>
std::string TextOf(const Table& table, Key key) {
    const auto* row = std::ranges::find(table, key, [](const auto& entry) { return entry.first; });
    return row == std::end(table) ? "" : row->second;
}

std::string Fill(std::string text, int64_t value, int64_t other) {
    for (const int64_t number : {value, other}) {
        const size_t at = text.find("{}");
        if (at != std::string::npos) text.replace(at, 2, std::to_string(number));
    }
    return text;
}

std::string Detail(const CommandAnswered& answer) {
    const std::string fault = TextOf(kModelFaults, answer.model_fault);
    return Fill(TextOf(kCauses, answer.cause) + fault, answer.value, answer.other);
}

std::string ToText(const CommandAnswered& answer) {
    std::string text = "command ";
    text += answer.id ? std::to_string(*answer.id) + " " + CommandName(*answer.id)
                      : "without an id";
    text += " -> " + std::to_string(answer.status);
    const std::string detail = Detail(answer);
    return detail.empty() ? text : text + ": " + detail;
}

std::string ToText(const ChunkTaken& chunk) {
    const std::string offered = std::to_string(chunk.offered) + " bytes";
    if (chunk.status != 0) return "a chunk of " + offered + ": the DSP is down";
    return std::to_string(chunk.taken) + " of " + offered + " taken" +
           (chunk.replaces_unplaced ? "; the chunk before was never placed" : "");
}

std::string ToText(const DetectionRaised& raised) {
    return Name(raised.engine) + " detected, " + RecordPayload(raised) + ", captured from frame " +
           std::to_string(raised.captured_from);
}

std::string ToText(const RecordTaken& taken) {
    return Name(taken.engine) + " record taken";
}

std::string ToText(const RecordDropped& dropped) {
    return "unread " + Name(dropped.engine) + " record dropped by " + Name(dropped.cause);
}

std::string ToText(const CaptureEnded& ended) {
    return Name(ended.engine) + " capture ended by " + Name(ended.cause) + " after " +
           std::to_string(ended.bytes) + " bytes";
}

std::string ToText(const CaptureReplaced& replaced) {
    return Name(replaced.engine) + " capture replaced by one of " + Name(replaced.by);
}

std::string ToText(const CaptureReadBegun& read) {
    return Name(read.port) + " read begins with frame " + std::to_string(read.frame);
}

std::string ToText(const CaptureOverrun& overrun) {
    return Name(overrun.port) + " overrun: " + std::to_string(overrun.lost) +
           " frames lost before frame " + std::to_string(overrun.frame);
}

std::string ToText(const MicrophonePaused& paused) {
    return "nothing heard for " + std::to_string(paused.pause_ns / 1'000'000) +
           " ms before frame " + std::to_string(paused.frame) +
           " (its source paused, or this machine was busy)";
}

std::string ToText(const PowerChanged& power) {
    return power.is_up ? "boot" : "crash";
}

std::string ToText(const FaultHit& hit) {
    std::string text = hit.rule + ": hit a call";
    if (hit.count > 1) text += ", " + std::to_string(hit.count) + " times by now";
    return hit.is_last_reported ? text + "; the next ones are not told" : text;
}

// By the kind's place in JournalEntry::What.
constexpr const char* kSources[] = {"command",      "model-data", "detector", "notification",
                                    "notification", "pcm",        "pcm",      "pcm",
                                    "pcm",          "microphone", "life",     "fault"};
static_assert(std::size(kSources) == std::variant_size_v<JournalEntry::What>);

}  // namespace

const char* Name(VoidedBy cause) {
    switch (cause) {
        case VoidedBy::kStart:
            return "start";
        case VoidedBy::kStop:
            return "stop";
        case VoidedBy::kUnload:
            return "unload";
        case VoidedBy::kInternalRecognition:
            return "internal recognition";
    }
    return "";
}

bool IsRefusal(const JournalEntry& entry) {
    if (const auto* answer = entry.As<CommandAnswered>()) return answer->status != 0;
    const auto* chunk = entry.As<ChunkTaken>();
    return chunk != nullptr && chunk->status != 0;
}

const char* SourceName(const JournalEntry& entry) {
    return kSources[entry.what.index()];
}

std::string RecordPayload(const DetectionRaised& raised) {
    std::string frame = "frame=" + std::to_string(raised.frame);
    switch (raised.origin) {
        case DetectionRaised::Origin::kHeard: {
            char score[16];
            std::snprintf(score, sizeof(score), "score=%.2f ", raised.score);
            return score + frame;
        }
        case DetectionRaised::Origin::kForced:
            return "forced " + frame;
        case DetectionRaised::Origin::kInternal:
            return "internal " + frame;
    }
    return frame;
}

std::string ToText(const JournalEntry& entry) {
    return std::visit([](const auto& what) { return ToText(what); }, entry.what);
}

std::string ToLine(const JournalEntry& entry) {
    std::string text = ToText(entry);
    if (entry.As<CommandAnswered>() != nullptr) return text;
    return SourceName(entry) + (": " + text);
}

}  // namespace virtual_dsp
