#include "tools/sthal/facts/record.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "host/virtual_dsp/dsp/dsp.h"
#include "host/virtual_dsp/dsp/sound_model.h"

namespace sthal {

namespace {

using virtual_dsp::BoottimeNow;

template <typename Fact>
void SortByTime(std::vector<Fact>& facts, int64_t Fact::*time) {
    std::ranges::stable_sort(facts, {}, time);
}

}  // namespace

int64_t RecordedPlayback::HeardAt(size_t frame) const {
    const size_t block = frame / kBlockFrames;
    if (block >= heard_ns.size()) return 0;
    // The first block is taken as long as it is in real time: no hotword ends in it.
    constexpr int64_t kBlockNs = 10'000'000;
    const int64_t begin = block == 0 ? heard_ns[0] - kBlockNs : heard_ns[block - 1];
    const auto nth = static_cast<int64_t>(frame % kBlockFrames + 1);
    return begin + (heard_ns[block] - begin) * nth / static_cast<int64_t>(kBlockFrames);
}

size_t RecordedPlayback::FrameAt(int64_t ns) const {
    const auto block = std::ranges::upper_bound(heard_ns, ns);
    const auto frame = static_cast<size_t>(block - heard_ns.begin()) * kBlockFrames;
    return std::min(frame, recording->frames());
}

bool IsModelPiece(const virtual_dsp::JournalEntry& entry) {
    namespace wire = virtual_dsp::wire;
    if (entry.result != 0 || entry.source == "fault") return false;
    if (entry.source == "model-data") return true;
    const uint32_t id = entry.command_id.value_or(0);
    return id == wire::CMD_AUDIO_INPUT_HOTWORD_WRITE_MODEL ||
           id == wire::CMD_AUDIO_INPUT_AMBIENT_MUSIC_WRITE_MODEL ||
           id == wire::CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_WRITE_MODEL;
}

void RunRecord::Enable(std::string title) {
    std::lock_guard lock(lock_);
    facts_.title = std::move(title);
    enabled_ = true;
}

template <typename Fact>
void RunRecord::Keep(std::vector<Fact> RunFacts::*list, Fact fact) {
    if (!enabled_) return;
    std::lock_guard lock(lock_);
    std::vector<Fact>& facts = facts_.*list;
    if (facts.size() < kCapacity) {
        facts.push_back(std::move(fact));
    } else {
        ++facts_.left_out;
    }
}

void RunRecord::Add(RecordedCall call) {
    Keep(&RunFacts::calls, std::move(call));
}

void RunRecord::Add(RecordedEvent event) {
    Keep(&RunFacts::events, std::move(event));
}

void RunRecord::Add(const virtual_dsp::JournalEntry& entry) {
    if (!enabled_) return;
    virtual_dsp::JournalEntry kept = entry;
    kept.command_bytes.clear();  // Its text says all that is shown.
    Keep(&RunFacts::journal, std::move(kept));
}

void RunRecord::Add(const BufferFill& fill) {
    Keep(&RunFacts::fills, fill);
}

void RunRecord::AddLogLine(android::base::LogSeverity severity, std::string_view tag,
                           std::string_view text) {
    if (!enabled_) return;
    Keep(&RunFacts::log, RecordedLogLine{.ns = BoottimeNow(),
                                         .thread = gettid(),
                                         .severity = severity,
                                         .tag = std::string(tag),
                                         .text = std::string(text)});
}

void RunRecord::AddModel(int handle, const std::string& name, std::span<const uint8_t> bytes) {
    if (!enabled_) return;
    RecordedModel kept{.ns = BoottimeNow(), .handle = handle, .name = name};
    if (auto parsed = virtual_dsp::ParseSoundModel(bytes); parsed.model) {
        kept.engine = parsed.model->engine;
        kept.threshold = static_cast<double>(parsed.model->threshold);
        kept.pattern = std::move(parsed.model->pcm_template);
    }
    Keep(&RunFacts::models, std::move(kept));
}

void RunRecord::AddPlayback(const audio::Sound& recording, std::shared_ptr<Playback> playback) {
    if (!enabled_) return;
    std::lock_guard lock(lock_);
    // A recording that is played over and over is kept once.
    const auto same = std::ranges::find_if(played_, [&](const Played& played) {
        return played.recording->channels == recording.channels &&
               played.recording->samples == recording.samples;
    });
    auto kept = same != played_.end() ? same->recording
                                      : std::make_shared<const audio::Sound>(recording);
    played_.push_back({std::move(kept), std::move(playback)});
}

void RunRecord::AddSaid(const audio::Sound& said, size_t at) {
    if (!enabled_) return;
    std::lock_guard lock(lock_);
    if (played_.empty()) return;
    played_.back().said = std::make_shared<const audio::Sound>(said);
    played_.back().said_at = at;
}

void RunRecord::AddDump(std::string text) {
    Keep(&RunFacts::dumps, RecordedText{BoottimeNow(), std::move(text)});
}

void RunRecord::AddStep(int64_t ns, std::string_view text) {
    if (enabled_) Keep(&RunFacts::steps, RecordedText{ns, std::string(text)});
}

void RunRecord::SetVerdict(std::string text) {
    std::lock_guard lock(lock_);
    facts_.verdict = std::move(text);
}

void RunRecord::AddProblem(std::string text) {
    Keep(&RunFacts::problems, std::move(text));
}

void RunRecord::AddNote(std::string text) {
    Keep(&RunFacts::notes, std::move(text));
}

size_t RunRecord::AddStream(RecordedStream stream) {
    if (!enabled_) return 0;
    std::lock_guard lock(lock_);
    facts_.streams.push_back(std::move(stream));
    return facts_.streams.size() - 1;
}

void RunRecord::AddRead(size_t stream, const RecordedRead& read) {
    std::lock_guard lock(lock_);
    if (!enabled_ || stream >= facts_.streams.size()) return;
    auto& reads = facts_.streams[stream].reads;
    if (reads.size() < kCapacity) {
        reads.push_back(read);
    } else {
        ++facts_.left_out;
    }
}

void RunRecord::CloseStream(size_t stream) {
    std::lock_guard lock(lock_);
    if (enabled_ && stream < facts_.streams.size()) {
        facts_.streams[stream].closed_ns = BoottimeNow();
    }
}

RunFacts RunRecord::Snapshot() const {
    std::lock_guard lock(lock_);
    RunFacts facts = facts_;
    facts.end_ns = BoottimeNow();
    for (const Played& played : played_) {
        RecordedPlayback playback{.recording = played.recording,
                                  .first_frame = played.playback->first_frame(),
                                  .said = played.said,
                                  .said_at = played.said_at};
        constexpr size_t kBlock = RecordedPlayback::kBlockFrames;
        const size_t heard = played.playback->heard_frames();
        for (size_t end = kBlock; end <= heard; end += kBlock) {
            playback.heard_ns.push_back(played.playback->HeardAtNs(end - 1));
        }
        facts.playbacks.push_back(std::move(playback));
    }
    // They come from several threads, and are stamped before they get here.
    SortByTime(facts.calls, &RecordedCall::begin_ns);
    SortByTime(facts.log, &RecordedLogLine::ns);
    SortByTime(facts.journal, &virtual_dsp::JournalEntry::boottime_ns);
    SortByTime(facts.events, &RecordedEvent::entered_ns);
    SortByTime(facts.fills, &BufferFill::ns);
    SortByTime(facts.steps, &RecordedText::ns);
    return facts;
}

CallSpan::CallSpan(RunRecord& record, RecordedCall call) : record_(record), call_(std::move(call)) {
    call_.begin_ns = BoottimeNow();
}

CallSpan::~CallSpan() {
    call_.end_ns = BoottimeNow();
    record_.Add(std::move(call_));
}

}  // namespace sthal
