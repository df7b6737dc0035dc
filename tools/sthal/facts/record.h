#pragma once

#include <android-base/logging.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/virtual_dsp/dsp/engine.h"
#include "host/virtual_dsp/dsp/journal.h"
#include "tools/audio/sound.h"
#include "tools/sthal/phone/playback.h"

// What is known of a run from outside the HAL. All times are boot times in nanoseconds; 0 stands
// for "never" or "not yet".
namespace sthal {

struct RecordedCall {
    enum class Caller { kFramework, kAudioService };
    enum class Kind { kOther, kLoad, kStart, kStop, kUnload };

    Caller caller = Caller::kFramework;
    Kind kind = Kind::kOther;
    std::string name;
    std::string detail{};
    int64_t begin_ns = 0;
    int64_t end_ns = 0;
    std::optional<int> result{};  // None: the call returns nothing.
    int handle = 0;               // Of the model, if it is about one.
    int io_handle = 0;            // Of a start.
};

struct RecordedLogLine {
    int64_t ns = 0;
    int thread = 0;
    android::base::LogSeverity severity = android::base::INFO;
    std::string tag{};
    std::string text{};
};

struct RecordedEvent {
    int handle = 0;
    int64_t entered_ns = 0;
    int64_t returned_ns = 0;
    std::string text{};
};

// Audio that the DSP holds ready for a reader, in frames.
struct BufferFill {
    int64_t ns = 0;
    size_t hotword_frames = 0;
    size_t ambient_frames = 0;

    size_t Of(virtual_dsp::PcmPort port) const {
        return port == virtual_dsp::PcmPort::kHotword ? hotword_frames : ambient_frames;
    }
};

struct RecordedRead {
    int64_t begin_ns = 0;
    int64_t end_ns = 0;
    int result = 0;             // Bytes, or a negative errno.
    bool is_silent = false;     // All of its samples are 0.
    int64_t position = 0;       // What the stream told of its position.
    int64_t time_stamp_ns = 0;  // The same of its time.
    BufferFill left{};          // After the read.
};

struct RecordedStream {
    int io_handle = 0;
    int channels = 0;
    bool is_internal = false;
    int64_t begin_ns = 0;   // The request to open it.
    int64_t opened_ns = 0;  // 0: refused, for the reason in `error`.
    int64_t closed_ns = 0;
    std::string error{};
    int bulk_frames = 0;
    std::vector<RecordedRead> reads{};
};

struct RecordedModel {
    int64_t ns = 0;
    int handle = 0;  // 0: the HAL refused it.
    std::string name{};
    virtual_dsp::Engine engine = virtual_dsp::Engine::kHotword;
    double threshold = 0;
    std::vector<int16_t> pattern{};  // Empty: the bytes are no model.
};

struct RecordedPlayback {
    static constexpr size_t kBlockFrames = audio::kSampleRateHz / 100;

    std::shared_ptr<const audio::Sound> recording;
    uint64_t first_frame = 0;         // The microphone's, counted as the DSP does.
    std::vector<int64_t> heard_ns{};  // Of the last frame of each block; up to what was heard.
    std::shared_ptr<const audio::Sound> said{};  // What it was made of, where that is known.
    size_t said_at = 0;                          // The recording's frame that it begins with.

    // When a frame of the recording was heard.
    int64_t HeardAt(size_t frame) const;
    // The frame that was heard at a time, within the recording.
    size_t FrameAt(int64_t ns) const;
};

// Whether an entry only tells of a piece of a model on its way, of which there are many.
bool IsModelPiece(const virtual_dsp::JournalEntry& entry);

// How the journal's entry of a fault's hit ends after which no more of its rule are told.
inline constexpr char kNextHitsNotTold[] = "; the next ones are not told";

struct RecordedText {
    int64_t ns = 0;
    std::string text{};
};

/** Everything that was recorded of a run, in the order of time. */
struct RunFacts {
    int64_t start_ns = 0;
    int64_t end_ns = 0;
    std::vector<RecordedCall> calls{};
    std::vector<RecordedLogLine> log{};
    std::vector<virtual_dsp::JournalEntry> journal{};
    std::vector<RecordedEvent> events{};
    std::vector<RecordedStream> streams{};
    std::vector<BufferFill> fills{};
    std::vector<RecordedModel> models{};
    std::vector<RecordedPlayback> playbacks{};
    std::vector<RecordedText> dumps{};
    std::vector<RecordedText> steps{};  // What the tool did, and its headings.
    std::string title{};
    std::string verdict{};                // Empty: the run did not come to its end.
    std::vector<std::string> problems{};  // What was wrong, as far as somebody has noticed.
    std::vector<std::string> notes{};     // What is worth knowing, and not wrong.
    size_t left_out = 0;                  // Facts beyond what a record keeps.
};

/**
 * Collects the facts of a run while it goes on. Does nothing until Enable(), so that a run of which
 * nobody wants files costs no memory. Thread-safe.
 */
class RunRecord {
  public:
    // Of each list; what comes later is counted only.
    static constexpr size_t kCapacity = 400'000;

    // Times of the run's files count from `start_ns`.
    explicit RunRecord(int64_t start_ns = virtual_dsp::BoottimeNow()) {
        facts_.start_ns = start_ns;
    }

    void Enable(std::string title);
    bool is_enabled() const { return enabled_; }

    void Add(RecordedCall call);
    void Add(RecordedEvent event);
    void Add(const virtual_dsp::JournalEntry& entry);
    void Add(const BufferFill& fill);
    void AddLogLine(android::base::LogSeverity severity, std::string_view tag,
                    std::string_view text);
    void AddModel(int handle, const std::string& name, std::span<const uint8_t> bytes);
    void AddPlayback(const audio::Sound& recording, std::shared_ptr<Playback> playback);
    // What the latest playback was made of, before noise and loudness, and its first frame there:
    // so that a hotword is known that was said too quietly to be found.
    void AddSaid(const audio::Sound& said, size_t at);
    void AddDump(std::string text);
    void AddStep(int64_t ns, std::string_view text);
    void SetVerdict(std::string text);
    void AddProblem(std::string text);
    void AddNote(std::string text);

    // Streams are counted from 0 in the order of their opening.
    size_t AddStream(RecordedStream stream);
    void AddRead(size_t stream, const RecordedRead& read);
    void CloseStream(size_t stream);

    RunFacts Snapshot() const;

  private:
    struct Played {
        std::shared_ptr<const audio::Sound> recording;
        std::shared_ptr<Playback> playback;
        std::shared_ptr<const audio::Sound> said{};
        size_t said_at = 0;
    };
    template <typename Fact>
    void Keep(std::vector<Fact> RunFacts::*list, Fact fact);

    std::atomic<bool> enabled_{false};
    mutable std::mutex lock_;
    RunFacts facts_;              // Under lock_, as all below.
    std::vector<Played> played_;  // What becomes the playbacks.
};

/** Records a call into the HAL from its construction to its end. */
class CallSpan {
  public:
    CallSpan(RunRecord& record, RecordedCall call);
    ~CallSpan();
    CallSpan(const CallSpan&) = delete;
    CallSpan& operator=(const CallSpan&) = delete;

  private:
    RunRecord& record_;
    RecordedCall call_;
};

}  // namespace sthal
