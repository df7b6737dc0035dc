#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "tests/product/recording_callback.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** The result of one request, as text: a number, or "audio" or "silence" for a read. */
struct Outcome {
    std::string result;
    std::chrono::milliseconds took;
};

/**
 * A HAL and all its callers, controlled by words: "load", "start", "detect", "buffer", "read" and
 * so on. So a table of faults can name the requests and their results. The second word "music"
 * means the ambient model instead of the hotword.
 *
 * Used by one thread.
 */
class Bench {
  public:
    // Makes a detection happen.
    using Detector = std::function<void(int engine)>;

    Bench(std::unique_ptr<SoundTriggerHal> hal, Detector detector,
          std::string hotword_model = "hotword model", std::string music_model = "music model");
    ~Bench();

    // Make these requests, separated by ", ", one after the other; all must succeed. Reach
    // initialises the HAL and brings it online first, except for "built".
    void Reach(std::string_view setup);
    void CarryOutAll(std::string_view requests);
    Outcome CarryOut(const std::string& request);

    // Every request that CarryOut knows.
    std::vector<std::string> Requests() const;

    // All clients, e.g. "1 StartDetecting started aec"; "none" when there are none.
    std::string State() const;
    // Expects that a hotword is detected and delivered from here on. `restart`: the framework has
    // to stop and start recognition before that.
    void ExpectDetection(bool restart = false);

    RecordingCallback& framework() { return *framework_; }
    SoundTriggerHal& hal() { return *hal_; }

  private:
    using Action = std::function<std::string()>;

    std::map<std::string, Action> Actions();
    int Load(bool is_music);
    int HandleOf(bool is_music) const;
    std::string Read(int engine, unsigned size, int channels);
    std::string ReadWithTimestamp();
    std::string Detect(bool is_music);
    void Route(const char* usecase);
    void Play(size_t tracks);
    bool ReportFan(bool present);

    const std::shared_ptr<RecordingCallback> framework_ =
            ::ndk::SharedRefBase::make<RecordingCallback>();
    const Detector detector_;
    const std::string models_[2];
    const std::unique_ptr<SoundTriggerHal> hal_;
    const std::map<std::string, Action> actions_;
    int handles_[2] = {-1, -1};
    int models_loaded_ = 0;
};

bool IsSuccess(const std::string& result);

/** A row of the table that this program prints. */
struct ReportRow {
    std::vector<std::string> cells;
    bool operator==(const ReportRow&) const = default;
};

/** The results, table by table, in the order in which they came. */
class Report {
  public:
    static Report& Get();

    void Begin(const std::string& title, std::vector<std::string> columns);
    void Add(std::vector<std::string> cells);
    void PrintMarkdown() const;

  private:
    struct Table {
        std::string title;
        std::vector<ReportRow> rows;  // The first one names the columns.
    };
    std::vector<Table> tables_;
};

std::string Milliseconds(std::chrono::milliseconds duration);

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
