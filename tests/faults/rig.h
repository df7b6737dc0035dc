#pragma once

#include <cerrno>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/hal_driver.h"
#include "tests/support/oracle.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** The result of one request, as text: a number, "done", or "audio" or "silence" for a read. */
struct RequestResult {
    std::string result;
    std::string expected;  // By the oracle, which knows nothing of timestamps.
    std::chrono::milliseconds took;
};

/**
 * A HAL and all its callers, controlled by words: "load", "start", "detect", "buffer", "read" and
 * so on, and an oracle that predicts what comes of them. So a table of faults needs no more than
 * the requests. The second word "music" means the ambient model instead of the hotword.
 *
 * Used by one thread.
 */
class Rig {
  public:
    // Makes a detection happen.
    using Detector = std::function<void(int engine)>;
    using Bytes = std::vector<uint8_t>;

    Rig(std::unique_ptr<SoundTriggerHal> hal, Detector detector, Bytes hotword_model = {1},
        Bytes music_model = {2});

    // Make these requests, separated by ", ", one after the other; all must succeed. Reach
    // initialises the HAL and brings it online first, except for "built".
    void Reach(std::string_view setup);
    void CarryOutAll(std::string_view requests);
    // Waits for the events that the oracle expects of it.
    RequestResult CarryOut(const std::string& request);
    // The same, unknown to the oracle.
    RequestResult CarryOutUnpredicted(const std::string& request);

    // Every request that CarryOut knows.
    std::vector<std::string> Requests() const;

    // Tells the oracle that an operation fails so many times, or until Mend().
    void WillFail(std::optional<DspOp> operation, int status = -EIO, int times = 1000);
    void Mend() { oracle_.dsp().Mend(); }
    // Expects the oracle's result, or `result` where it has none, and the oracle's clients.
    void ExpectAsPredicted(const RequestResult& request, const char* result = nullptr);
    void ExpectClients();

    // All clients, e.g. "1 StartDetecting started aec"; "none" when there are none.
    std::string State();
    // Expects that a hotword is detected and delivered from here on. `restart`: the framework has
    // to stop and start recognition before that.
    void ExpectDetection(bool restart = false);

    RecordingCallback& framework() { return *framework_; }

  private:
    // What the words mean now.
    std::map<std::string, Step> Steps() const;
    std::string Apply(const std::string& request, const Step& step);
    int Load(const Step& step);
    int Read(int engine, int channels);
    int Detect(int engine);

    const std::shared_ptr<RecordingCallback> framework_ =
            ::ndk::SharedRefBase::make<RecordingCallback>();
    const Detector detector_;
    HalDriver driver_;
    Oracle oracle_;
    int handles_[2] = {-1, -1};  // Of the hotword and of the music.
    int models_loaded_ = 0;
};

bool IsSuccess(const std::string& result);

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
