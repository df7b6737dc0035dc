#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "audio/hal/aidl/soundtrigger/zyl/zyl_wire.h"
#include "host/virtual_dsp/dsp/engine.h"
#include "host/virtual_dsp/dsp/journal.h"

namespace virtual_dsp {

namespace wire = ::vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl;

// Something that a reader of a node may be waiting for.
enum class Readiness { kNotification, kHotwordPcm, kAmbientPcm };

struct DspOptions {
    // The kernel's boot time in nanoseconds; CLOCK_BOOTTIME when empty. Injected by tests.
    std::function<int64_t()> boottime_ns;
    // How far the DSP's clock is ahead of boot time.
    int64_t clock_ahead_ns = 3'600'000'000'000;
    uint32_t library_version = 7;
    std::string architecture = "arm";
    // How much audio from before the start of the detected template a capture begins with.
    int preroll_ms = 500;
};

// The virtual DSP: what the firmware behind the device nodes would be. No I/O of its own: nodes
// hand it bytes and take bytes from it, a microphone hands it audio.
//
// Thread-safe: one lock inside, never held while the readiness listener is called.
class Dsp {
  public:
    explicit Dsp(DspOptions options = {});
    ~Dsp();

    // --- the command node -------------------------------------------------------------------
    // Carries out one command. Returns 0 and the reply (as many bytes as the command), or a
    // negative errno without a reply: -EINVAL for what the DSP refuses (an unknown id, a size that
    // is not the header's, a load without a complete valid model, a start without a loaded model),
    // -ENODEV while the DSP is down.
    //
    // What is not plain from a command's name: stop and unload are accepted by an idle engine, and
    // drop its unread detections and its capture; so does a start, which arms the engine anew. The
    // hotword engine may be started without a model, for an internal recognition only. A forced
    // recognition of an engine whose detection is already out is accepted and changes nothing. The
    // timestamp query is refused until there has been a hotword.
    int Execute(std::span<const uint8_t> command, std::vector<uint8_t>* reply);

    // --- the model-data node ----------------------------------------------------------------
    // Takes one chunk of a model; the write-model command that follows says where it belongs.
    // Returns the bytes taken, at most wire::kModelChunkBytes, or -ENODEV.
    int WriteModelChunk(std::span<const uint8_t> chunk);

    // --- the audio nodes --------------------------------------------------------------------
    // Bytes that ReadPcm would deliver at once; 0 when nothing is being captured.
    size_t PcmBytesReady(PcmPort port) const;
    // How many captures of the port were ended, by a stop or an unload, since the DSP was made.
    uint64_t PcmCapturesEnded(PcmPort port) const;
    // Delivers up to `out.size()` bytes of whole frames; 0 bytes when there are none now.
    // Returns the count, or -ENODEV while down.
    int ReadPcm(PcmPort port, std::span<uint8_t> out);

    // --- the notification node --------------------------------------------------------------
    bool HasNotification() const;
    std::optional<wire::NotificationRecord> TakeNotification();

    // --- the clock node ---------------------------------------------------------------------
    // "<ticks> <boottime_ns>\n", both of one moment; empty while down.
    std::string ReadClock() const;

    // --- the microphones --------------------------------------------------------------------
    // The next frames heard, two interleaved channels at wire::kSampleRateHz. `last_frame_ns` is
    // the boot time at which the last of them was heard. Runs the detectors before it returns.
    // Frames heard while the DSP is down are counted, not kept.
    void Hear(std::span<const int16_t> frames, int64_t last_frame_ns);

    // --- life -------------------------------------------------------------------------------
    // A crash loses models, detections, settings, unread records and all captures; until Boot()
    // every operation above answers -ENODEV.
    void Crash();
    void Boot();
    bool IsUp() const;

    // Called, without the DSP's lock, whenever something may have become readable (or the DSP went
    // down or came up, which ends every wait). Set once, before other threads use the DSP.
    void SetReadinessListener(std::function<void(Readiness)> listener);

    // Everything the DSP was told and did, time-stamped.
    Journal& journal();

    // What a test or a tool may want to look at.
    struct EngineView {
        bool model_loaded = false;
        bool detecting = false;
        bool armed_without_model = false;  // Started, but good for an internal recognition only.
        bool detected = false;   // A detection was raised and neither start nor stop came since.
        bool capturing = false;  // Audio is being kept for a reader.
        uint32_t model_bytes = 0;
        uint64_t model_crc32 = 0;  // Of all of model_bytes(), as zlib computes it.
    };
    struct Settings {
        bool eraser = false;
        bool neural_aec = false;
        bool mic_swap = false;
        uint32_t reference_source = 0;
        bool ap_process_with_dock = false;
        std::vector<std::pair<uint32_t, int32_t>> tuning;  // (id, value), ascending ids.
    };
    EngineView engine(Engine engine) const;
    // The bytes of the model that the engine holds: the loaded ones, else those staged so far.
    std::vector<uint8_t> model_bytes(Engine engine) const;
    Settings settings() const;

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace virtual_dsp
