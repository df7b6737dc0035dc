#pragma once

#include <aidl/android/media/audio/common/AudioUsage.h>
#include <aidl/android/media/soundtrigger/PhraseRecognitionEvent.h>

#include <android-base/logging.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "host/framework_monitor/framework_monitor.h"
#include "host/virtual_dsp/dsp/journal_entry.h"
#include "tools/audio/sound.h"
#include "tools/sthal/facts/hal_log.h"
#include "tools/sthal/facts/heard_times.h"

// What is known of a run, and who says so. All times are boot times in nanoseconds; 0 stands for
// "never" or "not yet". Facts hold values; the output makes sentences of them.
namespace sthal {

// --- said by the tool: the calls that it makes into the HAL

enum class Operation {
    // Of the audio service.
    kInitialize,
    kOnSoundCardStateChanged,
    kOnDockChargerConnected,
    kOnRoutingGraphChanged,
    kOnSourceMetadataChanged,
    kSetParameter,
    kDump,
    // Of the framework.
    kGetProperties,
    kLoadSoundModel,
    kLoadPhraseSoundModel,
    kStartRecognition,
    kStopRecognition,
    kUnloadSoundModel,
    kForceRecognitionEvent,
};

constexpr bool IsOfFramework(Operation operation) {
    return operation >= Operation::kGetProperties;
}

struct Route {
    std::string usecase;
    std::string device;
};

struct Call {
    Operation operation = Operation::kInitialize;
    int64_t begin_ns = 0;
    int64_t end_ns = 0;           // 0: it has not returned yet.
    std::optional<int> result{};  // None: the call returns nothing, or nothing yet.

    // Its arguments, as far as the operation has them.
    bool on = false;        // Online, docked, or a charger with a fan; of Initialize, its result.
    bool accepted = false;  // Of SetParameter, what it returned.
    int handle = 0;         // Of the model, if it is about one.
    int io_handle = 0;      // Of a start.
    std::string name{};     // Of a model that is loaded, or of a usecase.
    size_t bytes = 0;       // Of a model that is loaded.
    std::vector<Route> routes{};
    std::vector<::aidl::android::media::audio::common::AudioUsage> usages{};
};

// A model that was handed to the HAL.
struct Model {
    int64_t ns = 0;
    int handle = 0;  // 0: the HAL refused it.
    std::string name{};
    virtual_dsp::Engine engine = virtual_dsp::Engine::kHotword;
    double threshold = 0;
    std::vector<int16_t> pattern{};  // Empty: the bytes are no model.
};

// --- said by the framework's end of the callback

struct Event {
    int handle = 0;
    int64_t entered_ns = 0;   // The callback was entered.
    int64_t returned_ns = 0;  // 0: it has not returned yet.
    int64_t record_ns = 0;    // The DSP's latest detection record before it; 0: none, or not known.
    bool is_phrase = false;
    ::aidl::android::media::soundtrigger::PhraseRecognitionEvent
            event{};  // A generic one's `common`.
};

// The HAL broke a rule of the framework, or did what is worth a note.
struct BrokenRule {
    int64_t ns = 0;
    framework::FrameworkMonitor::Violation violation;
};

// Android's framework does not restart a HAL for it: what was started is started anew with the DSP,
// whether or not its event has come.
bool IsNoteOnly(const framework::FrameworkMonitor::Violation& violation);

// --- said by the readers of capture streams

// Audio that the DSP holds ready for a reader, in frames.
struct BufferFill {
    int64_t ns = 0;
    size_t hotword_frames = 0;
    size_t ambient_frames = 0;

    size_t Of(virtual_dsp::PcmPort port) const {
        return port == virtual_dsp::PcmPort::kHotword ? hotword_frames : ambient_frames;
    }
};

struct Read {
    int64_t begin_ns = 0;
    int64_t end_ns = 0;
    int result = 0;            // Bytes, or a negative errno.
    bool is_silent = false;    // All of its samples are 0.
    int64_t position = 0;      // What the stream told of its position, in frames.
    int64_t timestamp_ns = 0;  // The same of its time.
    BufferFill left{};         // After the read.
};

// A read of one of the run's streams, and what it makes of the stream.
struct StreamRead {
    size_t stream = 0;  // Of RunFacts::streams.
    Read read{};
    int64_t opened_ns = 0;        // When the stream was opened.
    size_t frames_before = 0;     // Read before this one, ...
    size_t frames = 0;            // ... and with it.
    bool is_first_audio = false;  // Everything before it was silence.
};

struct StreamClosed {
    size_t stream = 0;
    size_t frames = 0;
    bool has_audio = false;
};

enum class StreamRefusal { kNone, kInternalRecognitionRefused, kNoDetection };

struct Stream {
    int io_handle = 0;
    int channels = 0;
    bool is_internal = false;  // A capture without a detection.
    int64_t begin_ns = 0;      // The request to open it.
    int64_t opened_ns = 0;     // 0: refused.
    int64_t closed_ns = 0;
    StreamRefusal refusal = StreamRefusal::kNone;
    int bulk_frames = 0;  // Frames of a read.
    std::vector<Read> reads{};
};

// --- said by the board: what the microphones heard

struct PlayedRecording {
    int64_t ns = 0;  // It was asked for; others may be heard before it.
    std::shared_ptr<const audio::Sound> recording;
    uint64_t first_frame = 0;  // The microphone's, counted as the DSP does.
    HeardTimes heard{};
    // What it was made of before noise and loudness, where that is known, and the recording's frame
    // that it begins with: so that a hotword is known that was said too quietly to be found.
    std::shared_ptr<const audio::Sound> said{};
    size_t said_at = 0;
    double speed = 1;  // Times faster than real time.
};

// Whether an entry only tells of a chunk of a model on its way, of which there are many.
bool IsModelChunk(const virtual_dsp::JournalEntry& entry);

struct WakeLocksHeld {
    int64_t ns = 0;
    std::vector<std::string> names;
};

// --- said by the HAL itself

struct LogLine {
    int64_t ns = 0;
    int thread = 0;
    android::base::LogSeverity severity = android::base::INFO;
    std::string tag{};
    std::string text{};
};

struct Dump {
    int64_t ns = 0;
    std::string text{};
};

// --- said by the story that is told

struct StoryStep {
    enum class Kind {
        kHeading,      // Of a part of the story.
        kExplanation,  // Of the heading before it.
        kVerb,         // A line of a scenario or a shell.
        kRemark,       // What the tool has to say of its own work.
    };
    int64_t ns = 0;
    Kind kind = Kind::kRemark;
    std::string text;
};

// A verb that failed.
struct Failure {
    std::string file{};  // The scenario's; empty in the shell.
    int line = 0;        // Of the file, from 1.
    std::string verb{};  // The whole line.
    std::string expected{};
    std::string seen{};  // Instead; empty where `expected` says all that is wrong.
};

// The judgement on one detection and its capture, or on one capture without a detection.
struct Delivery {
    enum class Problem {
        kNone,
        kEventMissing,  // The hotword was spoken and no event came.
        kNobodySpoke,   // An event came and nobody said the hotword.
        kOtherModel,    // The event is for another model.
        kNotOpened,     // No capture stream could be opened.
        kOtherAudio,    // The captured audio is not what the microphone heard.
        kDiffers,       // It differs from what the microphone heard.
        kNoPreroll,     // It begins after the hotword.
        kWrongPlace,    // It begins long before the hotword.
        kTimestampOff,  // `timestamp_error_ns` is too large.
    };
    Problem problem = Problem::kNone;
    bool wants_event = true;  // Else a capture without a detection.
    bool is_ambient = false;
    bool has_event = false;
    int64_t callback_latency_ns = 0;  // From the record to the callback.
    int64_t timestamp_error_ns = 0;   // The stream's timestamp of the hotword, less the truth.
};

struct Verdict {
    enum class Kind {
        kNone,           // The run did not come to its end.
        kHeld,           // Every expectation held.
        kEnded,          // A session was ended; nobody judges it.
        kNothingSpoken,  // There was no hotword in the recording, and no event came.
        kFailed,
        kInterrupted,
    };
    Kind kind = Kind::kNone;
    std::string subject{};               // The scenario's file.
    std::optional<Failure> failure{};    // Of kFailed: a step, ...
    std::optional<BrokenRule> broken{};  // ... or a rule of the framework, ...
    std::optional<Delivery> delivery{};  // ... or a delivery, which a good verdict may have, too.
};

// --- all of it

/** Everything that was recorded of a run, each list in the order of time. */
struct RunFacts {
    int64_t start_ns = 0;
    int64_t end_ns = 0;
    std::string title{};
    std::vector<Call> calls{};
    std::vector<Model> models{};
    std::vector<Event> events{};
    std::vector<BrokenRule> broken_rules{};
    std::vector<Stream> streams{};
    std::vector<BufferFill> fills{};
    std::vector<virtual_dsp::JournalEntry> journal{};
    std::vector<PlayedRecording> recordings{};
    std::vector<LogLine> log{};
    std::vector<HalFact> hal{};  // What the log lines say.
    std::vector<Dump> dumps{};
    std::vector<WakeLocksHeld> wake_locks{};
    std::vector<StoryStep> steps{};
    Verdict verdict{};
    size_t left_out = 0;  // Facts beyond what a record keeps.
};

}  // namespace sthal
