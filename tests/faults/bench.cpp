#include "tests/faults/bench.h"

#include <aidl/android/media/audio/common/AudioUsage.h>
#include <aidl/android/media/audio/common/Boolean.h>
#include <aidl/android/media/soundtrigger/AudioCapabilities.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <utility>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using ::aidl::android::media::audio::common::AudioUsage;
using ::aidl::android::media::audio::common::Boolean;
using ::aidl::android::media::soundtrigger::AudioCapabilities;
using ::aidl::android::media::soundtrigger::SoundModelType;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr int kIoHandle = 10;  // Of the hotword; the next one is the music's.

// The framework asks for all that there is, so that the neural canceller is in the game, too.
SoundTriggerHal::RecognitionConfig Config() {
    SoundTriggerHal::RecognitionConfig config;
    config.captureRequested = true;
    config.audioCapabilities = static_cast<int32_t>(AudioCapabilities::ECHO_CANCELLATION);
    return config;
}

std::vector<std::string> Split(std::string_view text, std::string_view separator) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const size_t end = std::min(text.find(separator), text.size());
        parts.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + separator.size(), text.size()));
    }
    return parts;
}

}  // namespace

/** What no caller can see. */
class SoundTriggerHalPeer {
  public:
    static std::string StateOf(SoundTriggerHal& hal) {
        std::lock_guard lock(hal.lock_);
        std::string text;
        for (const auto& [handle, client] : hal.clients_) {
            text += (text.empty() ? "" : ", ") + std::to_string(handle) + " " +
                    toString(client->state());
            if (client->is_started_) text += " started";
            if (client->is_aec_enabled_) text += " aec";
            if (client->is_internal_force_active_) text += " internal";
        }
        return text.empty() ? "none" : text;
    }
};

Bench::Bench(std::unique_ptr<SoundTriggerHal> hal, Detector detector, std::string hotword_model,
             std::string music_model)
    : detector_(std::move(detector)),
      models_{std::move(hotword_model), std::move(music_model)},
      hal_(std::move(hal)),
      actions_(Actions()) {}

Bench::~Bench() = default;

std::map<std::string, Bench::Action> Bench::Actions() {
    std::map<std::string, Action> actions;
    const auto add = [&](const char* request, auto action) {
        actions[request] = [action] { return std::to_string(action()); };
    };
    const auto add_void = [&](const char* request, auto action) {
        actions[request] = [action] { return action(), "done"; };
    };
    for (const bool music : {false, true}) {
        const std::string of = music ? " music" : "";
        const int io_handle = kIoHandle + (music ? 1 : 0);
        add(("load" + of).c_str(), [=, this] { return Load(music); });
        add(("unload" + of).c_str(), [=, this] { return hal_->UnloadSoundModel(HandleOf(music)); });
        add(("start" + of).c_str(),
            [=, this] { return hal_->StartRecognition(HandleOf(music), 0, io_handle, Config()); });
        add(("stop" + of).c_str(), [=, this] { return hal_->StopRecognition(HandleOf(music)); });
        add(("force" + of).c_str(),
            [=, this] { return hal_->ForceRecognitionEvent(HandleOf(music)); });
        add(("buffer" + of).c_str(), [=, this] {
            const int engine = hal_->StartBufferingByIoHandle(io_handle, false);
            return engine > 0 ? 0 : engine;
        });
        actions["detect" + of] = [=, this] { return Detect(music); };
    }
    actions["read"] = [this] { return Read(kHotwordEngine, 4096, 2); };
    actions["read mono"] = [this] { return Read(kHotwordEngine, 2048, 1); };
    actions["read music"] = [this] { return Read(kAmbientMusicEngine, 2048, 1); };
    actions["timestamp"] = [this] { return ReadWithTimestamp(); };
    add("properties", [this] {
        SoundTriggerHal::Properties properties;
        return hal_->GetProperties(&properties);
    });
    add("internal", [this] { return hal_->InternalForceRecognition(); });
    add("stop internal", [this] { return hal_->StopInternalForceRecognition(); });
    add("buffer internal", [this] { return hal_->StartBufferingByIoHandle(0, true) - 1; });
    add("initialize", [this] { return hal_->Initialize() ? 0 : -1; });
    add("fan", [this] { return ReportFan(true) ? 0 : -1; });
    add_void("online", [this] { hal_->OnSoundCardStateChanged(true); });
    add_void("offline", [this] { hal_->OnSoundCardStateChanged(false); });
    add_void("dock", [this] { hal_->OnDockChargerConnected(true); });
    add_void("undock", [this] { hal_->OnDockChargerConnected(false); });
    add_void("speaker", [this] { Route("deep-buffer-playback"); });
    add_void("primary on speaker", [this] { Route("primary-playback"); });
    add_void("no speaker", [this] { Route(nullptr); });
    add_void("music plays", [this] { Play(1); });
    add_void("music ends", [this] { Play(0); });
    return actions;
}

void Bench::Reach(std::string_view setup) {
    if (setup == "built") return;
    ASSERT_TRUE(hal_->Initialize());
    hal_->OnSoundCardStateChanged(true);
    CarryOutAll(setup);
}

void Bench::CarryOutAll(std::string_view requests) {
    for (const std::string& request : Split(requests, ", ")) {
        const Outcome outcome = CarryOut(request);
        ASSERT_TRUE(IsSuccess(outcome.result))
                << request << " of \"" << requests << "\" came to " << outcome.result;
    }
}

Outcome Bench::CarryOut(const std::string& request) {
    const auto action = actions_.find(request);
    if (action == actions_.end()) {
        ADD_FAILURE() << "no such request: " << request;
        return {"no such request", milliseconds(0)};
    }
    const auto began = steady_clock::now();
    std::string result = action->second();
    const auto took = std::chrono::duration_cast<milliseconds>(steady_clock::now() - began);
    return {std::move(result), took};
}

std::vector<std::string> Bench::Requests() const {
    std::vector<std::string> requests;
    for (const auto& [request, action] : actions_) requests.push_back(request);
    return requests;
}

std::string Bench::State() const {
    return SoundTriggerHalPeer::StateOf(*hal_);
}

void Bench::ExpectDetection(bool restart) {
    (void)hal_->StopInternalForceRecognition();
    // Both models hear the same.
    if (HandleOf(true) > 0) (void)hal_->StopRecognition(HandleOf(true));
    hal_->OnRoutingGraphChanged({});
    EXPECT_TRUE(ReportFan(false)) << "it swaps the microphones";
    if (State().find(std::to_string(HandleOf(false)) + " ") == std::string::npos) {
        EXPECT_EQ("0", CarryOut("load").result);
    }
    if (restart) {
        EXPECT_EQ("0", CarryOut("stop").result);
    }
    EXPECT_EQ("0", CarryOut("start").result);
    EXPECT_EQ("0", CarryOut("detect").result) << State();
}

int Bench::Load(bool is_music) {
    SoundTriggerHal::SoundModel model;
    model.type = is_music ? SoundModelType::GENERIC : SoundModelType::KEYPHRASE;
    model.vendorUuid = "model " + std::to_string(++models_loaded_);
    const std::string& bytes = models_[is_music ? 1 : 0];
    model.data.set(memfd_create("model", MFD_CLOEXEC));
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
              pwrite(model.data.get(), bytes.data(), bytes.size(), 0));
    model.dataSize = static_cast<int32_t>(bytes.size());
    return hal_->LoadSoundModel(model, framework_, &handles_[is_music ? 1 : 0]);
}

int Bench::HandleOf(bool is_music) const {
    return handles_[is_music ? 1 : 0];
}

std::string Bench::Read(int engine, unsigned size, int channels) {
    std::vector<char> audio(4096, 0x55);
    const int result = hal_->ReadBuffer(engine, audio.data(), size, channels);
    if (result != static_cast<int>(size)) return std::to_string(result);
    const bool silent = std::all_of(audio.begin(), audio.begin() + static_cast<ptrdiff_t>(size),
                                    [](char byte) { return byte == 0; });
    return silent ? "silence" : "audio";
}

// Audio, and the timestamp of its hotword, which the first read after a detection asks for.
std::string Bench::ReadWithTimestamp() {
    const std::string audio = Read(kHotwordEngine, 4096, 2);
    return audio + (hal_->ReadTimestamp(kHotwordEngine) > 0 ? ", timestamp" : ", no timestamp");
}

std::string Bench::Detect(bool is_music) {
    const size_t before = framework_->events().size();
    detector_(is_music ? kAmbientMusicEngine : kHotwordEngine);
    framework_->WaitForEvents(before + 1);
    return framework_->events().size() == before + 1 ? "0" : "no event";
}

void Bench::Route(const char* usecase) {
    SoundTriggerHal::RoutingGraph graph;
    if (usecase != nullptr) graph.edges.push_back({usecase, "speaker"});
    hal_->OnRoutingGraphChanged(graph);
}

void Bench::Play(size_t tracks) {
    SoundTriggerHal::SourceMetadata metadata;
    metadata.tracks.resize(tracks);
    for (auto& track : metadata.tracks) track.usage = AudioUsage::MEDIA;
    hal_->OnSourceMetadataChanged("primary-playback", metadata);
}

bool Bench::ReportFan(bool present) {
    SoundTriggerHal::VendorParameter parameter;
    parameter.id = "vendor.vexor.st.wireless.charger.with.fan";
    Boolean value;
    value.value = present;
    EXPECT_EQ(STATUS_OK, parameter.ext.setParcelable(value));
    return hal_->SetParameter(parameter);
}

bool IsSuccess(const std::string& result) {
    return result == "0" || result == "done" || result == "audio" || result == "audio, timestamp";
}

// --- the report ---

Report& Report::Get() {
    static Report report;
    return report;
}

void Report::Begin(const std::string& title, std::vector<std::string> columns) {
    tables_.push_back({title, {{std::move(columns)}}});
}

void Report::Add(std::vector<std::string> cells) {
    std::vector<ReportRow>& rows = tables_.back().rows;
    ReportRow row{std::move(cells)};
    if (std::find(rows.begin(), rows.end(), row) == rows.end()) rows.push_back(std::move(row));
}

void Report::PrintMarkdown() const {
    for (const Table& table : tables_) {
        printf("\n### %s\n\n", table.title.c_str());
        for (size_t i = 0; i < table.rows.size(); ++i) {
            for (const std::string& cell : table.rows[i].cells) printf("| %s ", cell.c_str());
            printf("|\n");
            if (i > 0) continue;
            for (size_t k = 0; k < table.rows[0].cells.size(); ++k) printf("|---");
            printf("|\n");
        }
    }
}

std::string Milliseconds(milliseconds duration) {
    return std::to_string(duration.count()) + " ms";
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
