#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "audio/hal/aidl/soundtrigger/zyl/zyl_wire.h"
#include "tools/sthal/facts/record.h"
#include "tools/sthal/findings/missed.h"

// A run written by hand: model 1 is loaded and started, and its hotword is spoken from 1 s to 2 s.
namespace sthal {

namespace wire = ::vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl;

inline constexpr int64_t kMs = 1'000'000;

class WrittenRun {
  public:
    WrittenRun() {
        facts.end_ns = 5000 * kMs;
        auto recording = std::make_shared<audio::Sound>();
        recording->samples.resize(size_t{3} * audio::kSampleRateHz);
        RecordedPlayback playback{.recording = recording, .first_frame = 1000};
        for (int64_t block = 1; block <= 300; ++block)
            playback.heard_ns.push_back(block * 10 * kMs);
        facts.playbacks.push_back(playback);
        facts.models.push_back({.ns = 20 * kMs,
                                .handle = 1,
                                .name = "hey",
                                .threshold = 0.7,
                                .pattern = std::vector<int16_t>(16000, 1)});
    }

    void Online() { Log(5, "OnSoundCardStateChanged: true"); }
    void Call(int64_t ms, RecordedCall::Kind kind, int result = 0, int handle = 1) {
        RecordedCall call{.kind = kind,
                          .name = "call",
                          .begin_ns = ms * kMs,
                          .end_ns = ms * kMs + 1000,
                          .result = result,
                          .handle = handle,
                          .io_handle = 13};
        facts.calls.push_back(std::move(call));
    }
    void Command(int64_t ms, uint32_t id, int result = 0, const std::string& text = "command") {
        Journal(ms, "command", text);
        facts.journal.back().command_id = id;
        facts.journal.back().result = result;
    }
    void Journal(int64_t ms, const std::string& source, const std::string& text) {
        virtual_dsp::JournalEntry entry;
        entry.boottime_ns = ms * kMs;
        entry.source = source;
        entry.text = text;
        facts.journal.push_back(entry);
    }
    void Log(int64_t ms, const std::string& text) {
        facts.log.push_back({.ns = ms * kMs, .text = text});
    }
    // Model 1 loaded and started, in the DSP, too.
    void Start(int64_t ms = 30) {
        Online();
        Call(20, RecordedCall::Kind::kLoad);
        Command(21, wire::CMD_AUDIO_INPUT_HOTWORD_LOAD_MODEL);
        Call(ms, RecordedCall::Kind::kStart);
        Command(ms, wire::CMD_AUDIO_INPUT_HOTWORD_START);
    }
    // The DSP detects the hotword, and the HAL reads the record.
    void Detect() {
        Journal(2010, "detector",
                "hotword detected, score=0.91 frame=32999, captured from frame 9000");
    }
    void DetectAndRead() {
        Detect();
        Journal(2012, "notification", "hotword record taken");
        Log(2013, "ControlThreadLoop: read trigger event with model type: 1");
    }
    void Deliver() {
        DetectAndRead();
        facts.events.push_back({.handle = 1, .entered_ns = 2015 * kMs, .returned_ns = 2016 * kMs});
    }

    std::vector<MissedHotword> Missed(double likeness = 0.9) const {
        return ExplainMissed(facts, {{.range = {16000, 32000}, .likeness = likeness}});
    }

    RunFacts facts;
};

}  // namespace sthal
