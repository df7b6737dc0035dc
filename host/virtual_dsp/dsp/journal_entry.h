#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "host/virtual_dsp/dsp/engine.h"
#include "host/virtual_dsp/dsp/sound_model.h"

// What the DSP writes down: facts with their values. ToText() makes the sentence of each.
namespace virtual_dsp {

// What the answer to a command is about, beyond its status.
enum class AnswerCause {
    kNone,

    // Refusals.
    kDspDown,
    kNoCommand,           // Too short to be one. `value`: its bytes.
    kUnknownId,           //
    kSizeOfHeader,        // `value`: the command's bytes; `other`: what its header says.
    kSize,                // `value`: the command's bytes; `other`: what this command has.
    kReservedBytes,       //
    kNoChunk,             // No chunk of a model was written before its write-model command.
    kChunkOffset,         // `value`: the command's offset; `other`: the bytes staged so far.
    kModelTooLarge,       //
    kNothingStaged,       //
    kBadModel,            // `model_fault` says why, and what `value` and `other` are.
    kModelOfOtherEngine,  // `value`: the engine that the model was made for.
    kNoModel,             //
    kNotStarted,          //
    kNoReferenceSource,   // `value`: the one that was asked for.
    kNeitherOnNorOff,     //
    kNoHotwordYet,        //

    // Remarks on a command that was carried out.
    kChunkPlaced,        // `value`: the offset; `other`: the chunk's bytes.
    kModelLoaded,        // `value`: its bytes.
    kAlreadyDetecting,   //
    kAlreadyDetected,    //
    kArmedWithoutModel,  // Good for an internal recognition only.
    kValue,              // `value`: what was set, or the ticks that were asked for.
    kOn,
    kOff,
};

struct CommandAnswered {
    std::optional<uint32_t> id = {};  // None: the command was too short to have one.
    std::vector<uint8_t> bytes = {};  // As received.
    int status = 0;                   // 0 or a negative errno.
    AnswerCause cause = AnswerCause::kNone;
    int64_t value = 0;  // What they are, AnswerCause says.
    int64_t other = 0;
    ModelFault model_fault = ModelFault::kNone;
};

// A chunk of a model at the model-data node.
struct ChunkTaken {
    size_t offered = 0;  // Bytes of the write.
    size_t taken = 0;
    int status = 0;                  // -ENODEV: the DSP was down.
    bool replaces_unplaced = false;  // No command had placed the chunk before.
};

struct DetectionRaised {
    enum class Origin { kHeard, kForced, kInternal };
    Engine engine = Engine::kHotword;
    Origin origin = Origin::kHeard;
    uint64_t frame = 0;          // The microphone's at which the template ended.
    double score = 0;            // The correlation, 0..1.
    double threshold = 0;        // That the score had to reach.
    uint64_t captured_from = 0;  // The microphone's frame that the capture begins with.
};

struct RecordTaken {
    Engine engine = Engine::kHotword;
};

// What makes a detection void.
enum class VoidedBy { kStart, kStop, kUnload, kInternalRecognition };
// "stop", "internal recognition".
const char* Name(VoidedBy cause);

struct RecordDropped {
    Engine engine = Engine::kHotword;
    VoidedBy cause = VoidedBy::kStop;
};

struct CaptureEnded {
    Engine engine = Engine::kHotword;
    VoidedBy cause = VoidedBy::kStop;
    uint64_t bytes = 0;  // Delivered.
};

struct CaptureReplaced {
    Engine engine = Engine::kHotword;
    Engine by = Engine::kHotword;
};

// The first read of a capture.
struct CaptureReadBegun {
    PcmPort port = PcmPort::kHotword;
    uint64_t frame = 0;  // The microphone's.
};

// The reader was too slow for the history.
struct CaptureOverrun {
    PcmPort port = PcmPort::kHotword;
    uint64_t lost = 0;   // Frames.
    uint64_t frame = 0;  // The first one that was not lost.
};

// Nothing was heard for a time: the sound's source paused, or this machine was busy.
struct MicrophonePaused {
    int64_t pause_ns = 0;
    uint64_t frame = 0;  // The next one.
};

struct PowerChanged {
    bool is_up = false;
};

// A fault that was set on purpose hit a call on a node.
struct FaultHit {
    std::string rule = {};          // As fault scripts have it.
    uint64_t count = 0;             // Of its hits so far.
    bool is_last_reported = false;  // The rule's next hits are not written down.
};

struct JournalEntry {
    using What = std::variant<CommandAnswered, ChunkTaken, DetectionRaised, RecordTaken,
                              RecordDropped, CaptureEnded, CaptureReplaced, CaptureReadBegun,
                              CaptureOverrun, MicrophonePaused, PowerChanged, FaultHit>;

    int64_t boottime_ns = 0;  // When the journal took it.
    What what = {};

    // The entry's fields if it is of this kind, else null.
    template <typename Kind>
    const Kind* As() const {
        return std::get_if<Kind>(&what);
    }
};

// Whether the entry tells of something that the DSP refused.
bool IsRefusal(const JournalEntry& entry);

// The part of the DSP that speaks: "command", "model-data", "detector", "notification", "pcm",
// "microphone", "life" or "fault".
const char* SourceName(const JournalEntry& entry);

// What a detection's record says on the wire: "score=1.00 frame=67652" of one that was heard,
// "forced frame=67652" or "internal frame=67652" of the others.
std::string RecordPayload(const DetectionRaised& raised);

// The sentence for a person, without its source: "command 227 hotword start -> 0".
std::string ToText(const JournalEntry& entry);

// The sentence with its source, where that is not plain: "detector: hotword detected, score=...".
std::string ToLine(const JournalEntry& entry);

}  // namespace virtual_dsp
