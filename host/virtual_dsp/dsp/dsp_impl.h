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

#include <android-base/thread_annotations.h>

#include "host/virtual_dsp/dsp/capture.h"
#include "host/virtual_dsp/dsp/command_table.h"
#include "host/virtual_dsp/dsp/detection_engine.h"
#include "host/virtual_dsp/dsp/dsp.h"
#include "host/virtual_dsp/dsp/microphone_history.h"
#include "host/virtual_dsp/dsp/outcome.h"

namespace virtual_dsp {

// What Dsp is inside. Lock order: lock_, then the journal's own.
class Dsp::Impl {
  public:
    explicit Impl(DspOptions options)
        : options_(std::move(options)),
          now_(options_.boottime_ns ? options_.boottime_ns : BoottimeNow),
          journal_(now_) {}

    // Makes a change under the lock; then calls the listeners, without it.
    template <typename Result, typename... Parameters, typename... Arguments>
    Result ChangeAndNotify(Result (Impl::*change)(Parameters...), Arguments&&... arguments) {
        std::set<Readiness> woken;
        Result result = [&] {
            std::lock_guard lock(lock_);
            Result changed = (this->*change)(std::forward<Arguments>(arguments)...);
            woken = std::exchange(woken_, {});
            return changed;
        }();
        journal_.Deliver();
        if (listener_) {
            for (Readiness readiness : woken) listener_(readiness);
        }
        return result;
    }

    int Execute(std::span<const uint8_t> command, std::vector<uint8_t>* reply) REQUIRES(lock_);
    int WriteChunk(std::span<const uint8_t> chunk) REQUIRES(lock_);
    int ReadPcm(PcmPort port, std::span<uint8_t> out) REQUIRES(lock_);
    std::optional<wire::NotificationRecord> TakeNotification() REQUIRES(lock_);
    int64_t Now() const { return now_(); }
    std::string Clock() const REQUIRES(lock_);
    // False when there is nothing to hear.
    bool Hear(std::span<const int16_t> frames, int64_t last_frame_ns) REQUIRES(lock_);
    // False when it is so already.
    bool SetUp(bool up) REQUIRES(lock_);
    EngineView View(Engine engine) REQUIRES(lock_);
    Settings CurrentSettings() const REQUIRES(lock_);

    DetectionEngine& engine(Engine of) REQUIRES(lock_);
    Capture& capture(PcmPort port) REQUIRES(lock_);

    const DspOptions options_;
    const std::function<int64_t()> now_;
    Journal journal_;
    std::function<void(Readiness)> listener_;  // Set before there is a second thread.

    mutable std::mutex lock_;
    bool up_ GUARDED_BY(lock_) = true;
    MicrophoneHistory history_ GUARDED_BY(lock_);
    // One per engine at most: an engine that has detected is silent until its record is void.
    std::deque<std::pair<Engine, wire::NotificationRecord>> unread_ GUARDED_BY(lock_);

  private:
    Outcome Check(std::span<const uint8_t> command, const CommandInfo* info) const REQUIRES(lock_);
    Outcome CarryOut(const CommandInfo& info, std::span<const uint8_t> command,
                     std::vector<uint8_t>* reply) REQUIRES(lock_);
    Outcome SetTuning(uint16_t id, uint32_t bits) REQUIRES(lock_);
    Outcome SetReferenceSource(uint32_t value) REQUIRES(lock_);
    Outcome SetApProcessWithDock(std::span<const uint8_t> command) REQUIRES(lock_);
    Outcome SetSwitch(Action action) REQUIRES(lock_);
    Outcome ForceRecognition(Engine of) REQUIRES(lock_);
    Outcome InternalRecognition() REQUIRES(lock_);
    Outcome QueryHotwordTimestamp(std::span<const uint8_t> command,
                                  std::vector<uint8_t>* reply) const REQUIRES(lock_);
    void QueryLibraryArchitecture(std::span<const uint8_t> command,
                                  std::vector<uint8_t>* reply) const;

    bool Captures(Engine of) REQUIRES(lock_);
    uint64_t PresentFrame() const REQUIRES(lock_);
    void HearSlice(std::span<const int16_t> frames) REQUIRES(lock_);
    void Raise(Engine of, DetectionRaised::Origin origin, const Detection& detection)
            REQUIRES(lock_);
    void DropDetections(Engine of, VoidedBy cause) REQUIRES(lock_);
    void WakeReaderOf(PcmPort port) REQUIRES(lock_);

    std::array<DetectionEngine, 3> engines_ GUARDED_BY(lock_) = {
            DetectionEngine(Engine::kHotword), DetectionEngine(Engine::kAmbientMusic),
            DetectionEngine(Engine::kAmbientMusicBreak)};
    std::array<Capture, 2> captures_ GUARDED_BY(lock_) = {Capture(PcmPort::kHotword),
                                                          Capture(PcmPort::kAmbient)};
    // The latest chunk that no write-model command has placed yet.
    std::vector<uint8_t> chunk_ GUARDED_BY(lock_);
    FrameTimes frame_times_ GUARDED_BY(lock_);
    std::optional<int64_t> hotword_ns_ GUARDED_BY(lock_);  // Boot time of the latest hotword.
    Settings settings_ GUARDED_BY(lock_);                  // All but the tuning.
    std::map<uint32_t, int32_t> tuning_ GUARDED_BY(lock_);
    std::vector<int16_t> swapped_ GUARDED_BY(lock_);  // Hear()'s scratch.
    std::vector<int16_t> mono_ GUARDED_BY(lock_);     // HearSlice()'s scratch.
    std::set<Readiness> woken_ GUARDED_BY(lock_);     // What the listener will hear.
};

}  // namespace virtual_dsp
