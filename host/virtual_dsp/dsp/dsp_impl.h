#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "host/virtual_dsp/dsp/capture.h"
#include "host/virtual_dsp/dsp/command_table.h"
#include "host/virtual_dsp/dsp/detection_engine.h"
#include "host/virtual_dsp/dsp/dsp.h"
#include "host/virtual_dsp/dsp/microphone_history.h"
#include "host/virtual_dsp/dsp/outcome.h"

namespace virtual_dsp {

// What Dsp is inside. Members are called through Do() and See(), which hold the lock; what they do
// to waiting readers is collected in woken_ and told when the lock is free again.
class Dsp::Impl {
  public:
    explicit Impl(DspOptions options)
        : options_(std::move(options)),
          now_(options_.boottime_ns ? options_.boottime_ns : BoottimeNow),
          journal_(now_) {}

    // Runs `act` under the lock and then, without it, tells the listeners what it has led to.
    template <typename Act>
    auto Do(Act act) {
        std::unique_lock lock(lock_);
        const auto result = act();
        const std::set<Readiness> woken = std::exchange(woken_, {});
        lock.unlock();
        journal_.Deliver();
        if (listener_) {
            for (Readiness readiness : woken) listener_(readiness);
        }
        return result;
    }
    template <typename Look>
    auto See(Look look) const {
        std::lock_guard lock(lock_);
        return look();
    }

    int Execute(std::span<const uint8_t> command, std::vector<uint8_t>* reply);
    int WritePiece(std::span<const uint8_t> piece);
    int ReadPcm(PcmPort port, std::span<uint8_t> out);
    std::optional<wire::NotificationRecord> TakeNotification();
    int64_t Now() const { return now_(); }
    std::string Clock() const;
    bool Hear(std::span<const int16_t> frames, int64_t last_frame_ns);
    bool SetUp(bool up);
    Settings CurrentSettings() const;

    DetectionEngine& engine(Engine engine) { return engines_[static_cast<size_t>(engine) - 1]; }
    Capture& capture(PcmPort port) { return captures_[static_cast<size_t>(port)]; }
    bool Captures(Engine of) { return capture(PortOf(of)).owner() == of; }

    const DspOptions options_;
    const std::function<int64_t()> now_;
    Journal journal_;
    std::function<void(Readiness)> listener_;  // Set before there is a second thread.

    mutable std::mutex lock_;
    // All below: under lock_.
    bool up_ = true;
    MicrophoneHistory history_;
    // One per engine at most: an engine that has detected is silent until its record is void.
    std::deque<std::pair<Engine, wire::NotificationRecord>> unread_;

  private:
    Outcome Check(std::span<const uint8_t> command, const CommandInfo* info) const;
    Outcome CarryOut(const CommandInfo& info, std::span<const uint8_t> command,
                     std::vector<uint8_t>* reply);
    Outcome SetSwitch(Action action);
    Outcome ForceRecognition(Engine of);
    Outcome InternalRecognition();
    Outcome QueryHotwordTimestamp(std::span<const uint8_t> command,
                                  std::vector<uint8_t>* reply) const;
    void QueryLibraryArchitecture(std::span<const uint8_t> command,
                                  std::vector<uint8_t>* reply) const;

    uint64_t PresentFrame() const { return history_.end() == 0 ? 0 : history_.end() - 1; }
    void HearSlice(std::span<const int16_t> frames);
    void Raise(Engine of, const Detection& detection, const std::string& text);
    void DropDetections(Engine of, const char* why);
    void WakeReaderOf(PcmPort port);
    void Note(std::string source, std::string text);

    std::array<DetectionEngine, 3> engines_ = {DetectionEngine(Engine::kHotword),
                                               DetectionEngine(Engine::kAmbientMusic),
                                               DetectionEngine(Engine::kAmbientMusicBreak)};
    std::array<Capture, 2> captures_ = {Capture(PcmPort::kHotword), Capture(PcmPort::kAmbient)};
    std::vector<uint8_t> piece_;  // The latest one that no write-model command has placed yet.
    FrameTimes frame_times_;
    std::optional<int64_t> hotword_ns_;  // Boot time of the latest hotword.
    Settings settings_;                  // All but the tuning.
    std::map<uint32_t, int32_t> tuning_;
    std::vector<int16_t> swapped_;  // Hear()'s scratch.
    std::vector<int16_t> mono_;     // HearSlice()'s scratch.
    std::set<Readiness> woken_;     // What the listener is to be told when the lock is free.
};

}  // namespace virtual_dsp
