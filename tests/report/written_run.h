#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "audio/hal/aidl/soundtrigger/zyl/zyl_wire.h"
#include "tools/sthal/facts/run_facts.h"
#include "tools/sthal/findings/run_findings.h"

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
        facts.recordings.push_back({.recording = recording, .first_frame = 1000});
        for (size_t block = 1; block <= 300; ++block) {
            facts.recordings[0].heard.Add(block * 160, static_cast<int64_t>(block) * 10 * kMs);
        }
        facts.models.push_back({.ns = 20 * kMs,
                                .handle = 1,
                                .name = "hey",
                                .threshold = 0.7,
                                .pattern = std::vector<int16_t>(16000, 1)});
    }

    void Online() { Log(5, "OnSoundCardStateChanged: true"); }
    void Call(int64_t ms, Operation operation, int result = 0, int handle = 1) {
        facts.calls.push_back({.operation = operation,
                               .begin_ns = ms * kMs,
                               .end_ns = ms * kMs + 1000,
                               .result = result,
                               .handle = handle,
                               .io_handle = 13});
    }
    void Journal(int64_t ms, virtual_dsp::JournalEntry::What what) {
        facts.journal.push_back({.boottime_ns = ms * kMs, .what = std::move(what)});
    }
    void Command(int64_t ms, uint32_t id, int status = 0) {
        Journal(ms, virtual_dsp::CommandAnswered{.id = id, .bytes = {}, .status = status});
    }
    void Log(int64_t ms, const std::string& text) {
        facts.log.push_back({.ns = ms * kMs, .text = text});
        facts.hal = ReadHalLog(facts.log);
    }
    // A load that the HAL refuses, of a model that the DSP refuses within it.
    void LoadIntoOtherEngine(int64_t ms, const std::string& name, int made_for) {
        Call(ms, Operation::kLoadPhraseSoundModel, -22, /*handle=*/0);
        facts.calls.back().name = name;
        Journal(ms,
                virtual_dsp::CommandAnswered{.id = wire::CMD_AUDIO_INPUT_HOTWORD_LOAD_MODEL,
                                             .bytes = {},
                                             .status = -22,
                                             .cause = virtual_dsp::AnswerCause::kModelOfOtherEngine,
                                             .value = made_for});
    }
    // Model 1 loaded and started, in the DSP, too.
    void Start(int64_t ms = 30) {
        Online();
        Call(20, Operation::kLoadPhraseSoundModel);
        Command(21, wire::CMD_AUDIO_INPUT_HOTWORD_LOAD_MODEL);
        Call(ms, Operation::kStartRecognition);
        Command(ms, wire::CMD_AUDIO_INPUT_HOTWORD_START);
    }
    // Model 2, with a pattern of its own, loaded and started in the HAL.
    void AddStarted(virtual_dsp::Engine engine) {
        facts.models.push_back({.ns = 405 * kMs,
                                .handle = 2,
                                .name = "other",
                                .engine = engine,
                                .pattern = std::vector<int16_t>(16000, 2)});
        Call(410, Operation::kStartRecognition, 0, /*handle=*/2);
    }
    // The DSP detects the hotword, and the HAL reads the record.
    void Detect(int64_t ms = 2010, uint64_t frame = 32999) {
        Journal(ms,
                virtual_dsp::DetectionRaised{.frame = frame, .score = 0.91, .captured_from = 9000});
    }
    void DetectAndRead() {
        Detect();
        Journal(2012, virtual_dsp::RecordTaken{});
        Log(2013, "ControlThreadLoop: read trigger event with model type: 1");
    }
    void Deliver() {
        DetectAndRead();
        facts.events.push_back({.handle = 1, .entered_ns = 2015 * kMs, .returned_ns = 2016 * kMs});
    }
    // A stream of the model, opened at a time.
    void Open(int64_t ms, int io_handle = 13) {
        facts.streams.push_back(
                {.io_handle = io_handle, .opened_ns = ms * kMs, .bulk_frames = 1024});
    }

    std::vector<MissedHotword> Missed(double correlation = 0.9) const {
        const std::vector<SpokenHotword> spoken = {
                {.range = {16000, 32000}, .correlation = correlation}};
        return ExplainMissed(facts, StateSpans(facts), DetectionTrails(facts), spoken);
    }

    RunFacts facts;
};

}  // namespace sthal
