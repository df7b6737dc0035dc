// Every operation of the adapter fails under every operation of the HAL that reaches it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <initializer_list>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "tests/faults/bench.h"
#include "tests/product/log_capture.h"
#include "tests/product/scripted_adapter.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

using std::chrono::milliseconds;

// What has to happen before the framework hears of hotwords again, once the retry is through.
enum class Then {
    kDetects,  // A start, as always.
    kRestart,  // The engine was left as an internal recognition left it: a stop and a start.
};

// By which words the scripted DSP's journal knows the adapter's operations that can fail. The other
// two are no calls to the DSP: one closes a device, one tells what is known of a timestamp.
constexpr std::pair<const char*, const char*> kJournalWords[] = {
        {"GetLibraryArchitecture", "Library("},
        {"LoadSoundModelToDsp", "Load("},
        {"StartDetectionInDsp", "Start("},
        {"StopDetectionInDsp", "Stop("},
        {"UnloadSoundModelFromDsp", "Unload("},
        {"TriggerForceRecognition", "Force("},
        {"ReadDspBuffer", "Read("},
        {"GetNotificationFileDescriptor", "Watch("},
        {"ReadDspNotification", "Notification("},
        {"SetupEraserInDsp", "Eraser("},
        {"SetupApProcessWithDock", "ApProcess("},
        {"SetupMicSwapInDsp", "MicSwap("},
        {"SetupReferenceSource", "Reference("},
        {"SendTuningToDsp", "Tuning("},
        {"InternalHotwordRecognition", "Internal("},
        {"SetupNeuralAecInDsp", "NeuralAec("},
};

struct AdapterRow {
    const char* call;     // What fails,
    int times;            // so often in a row.
    const char* setup;    // See Bench::Reach.
    const char* request;  // See Bench::Do.
    const char* result;   // "status": what the adapter returned, unchanged.
    const char* state;
    const char* retry;
    const char* retry_result;
    const char* retry_state;
    Then then = Then::kDetects;
};

// A void operation is "done" whatever fails in it; what the DSP then lacks comes with the next
// online report.
constexpr AdapterRow kAdapterRows[] = {
        {"GetLibraryArchitecture", 1, "", "properties", "-22", "none", "properties", "0", "none"},

        {"LoadSoundModelToDsp", 1, "", "load", "-22", "none", "load", "0", "1 ModelLoaded"},
        {"LoadSoundModelToDsp", 1, "", "load music", "-22", "none", "load music", "0",
         "1 ModelLoaded"},
        {"LoadSoundModelToDsp", 1, "offline, load", "online", "done", "1 ModelUnloaded", "online",
         "done", "1 ModelLoaded"},
        {"LoadSoundModelToDsp", 1, "offline, load, start", "online", "done",
         "1 ModelUnloaded started", "online", "done", "1 StartDetecting started"},
        {"LoadSoundModelToDsp", 1, "offline, load, start, load music", "online", "done",
         "1 ModelUnloaded started, 2 ModelLoaded", "online", "done",
         "1 StartDetecting started, 2 ModelLoaded"},
        {"LoadSoundModelToDsp", 1, "internal, offline, online", "stop internal", "0", "none",
         "internal", "0", "0 InternalForceDetected internal"},

        {"StartDetectionInDsp", 1, "load", "start", "-22", "1 ModelLoaded", "start", "0",
         "1 StartDetecting started"},
        {"StartDetectionInDsp", 1, "load music", "start music", "-22", "1 ModelLoaded",
         "start music", "0", "1 StartDetecting started"},
        {"StartDetectionInDsp", 1, "load, start, detect", "start", "-22",
         "1 CallbackProcessing started", "start", "0", "1 StartDetecting started"},
        {"StartDetectionInDsp", 1, "load, start, detect, buffer", "start", "-22",
         "1 Buffering started", "start", "0", "1 StartDetecting started"},
        {"StartDetectionInDsp", 1, "load, internal", "start", "-22", "1 ModelLoaded", "start", "0",
         "1 StartDetecting started"},
        {"StartDetectionInDsp", 1, "load, start, internal", "start", "-22", "1 ModelLoaded started",
         "start", "0", "1 StartDetecting started"},
        {"StartDetectionInDsp", 1, "offline, load, start", "online", "done",
         "1 ModelLoaded started", "online", "done", "1 StartDetecting started"},
        {"StartDetectionInDsp", 1, "", "internal", "-22", "none", "internal", "0",
         "0 InternalForceDetected internal"},
        {"StartDetectionInDsp", 1, "load", "internal", "-22", "none", "load", "0", "1 ModelLoaded"},
        {"StartDetectionInDsp", 1, "load, start, internal", "stop internal", "-22",
         "1 ModelLoaded started", "start", "0", "1 StartDetecting started"},
        {"StartDetectionInDsp", 1, "load, start, internal", "load", "-22", "1 ModelLoaded started",
         "start", "0", "1 StartDetecting started"},
        {"StartDetectionInDsp", 1, "load, start, internal", "stop", "-22", "1 ModelLoaded started",
         "stop", "0", "1 ModelLoaded"},
        {"StartDetectionInDsp", 1, "load, start, internal", "unload", "-22",
         "1 ModelLoaded started", "unload", "0", "none"},

        {"StopDetectionInDsp", 1, "load, start", "stop", "-22", "1 StartDetecting started", "stop",
         "0", "1 ModelLoaded"},
        {"StopDetectionInDsp", 1, "load music, start music", "stop music", "-22",
         "1 StartDetecting started", "stop music", "0", "1 ModelLoaded"},
        {"StopDetectionInDsp", 1, "load, start, detect", "stop", "-22",
         "1 CallbackProcessing started", "stop", "0", "1 ModelLoaded"},
        {"StopDetectionInDsp", 1, "load, start, detect, buffer", "stop", "-22",
         "1 Buffering started", "stop", "0", "1 ModelLoaded"},
        {"StopDetectionInDsp", 1, "load, start", "unload", "-22", "1 StartDetecting started",
         "unload", "0", "none"},
        {"StopDetectionInDsp", 1, "load, start, detect", "unload", "-22",
         "1 CallbackProcessing started", "unload", "0", "none"},
        {"StopDetectionInDsp", 1, "load, start, detect, buffer", "unload", "-22",
         "1 Buffering started", "unload", "0", "none"},
        {"StopDetectionInDsp", 1, "load music, start music", "unload music", "-22",
         "1 StartDetecting started", "unload music", "0", "none"},
        // A repeated report stops what detects, and starts it again.
        {"StopDetectionInDsp", 1, "load, start", "online", "done", "1 StartDetecting started",
         "online", "done", "1 StartDetecting started"},
        {"StopDetectionInDsp", 1, "load, start, speaker", "stop", "-22", "1 StartDetecting started",
         "stop", "0", "1 ModelLoaded"},
        // The internal client goes whatever becomes of it; unloading it stops it once more.
        {"StopDetectionInDsp", 1, "internal", "stop internal", "0", "none", "internal", "0",
         "0 InternalForceDetected internal"},
        {"StopDetectionInDsp", 2, "internal", "stop internal", "-22", "none", "internal", "0",
         "0 InternalForceDetected internal"},
        {"StopDetectionInDsp", 2, "internal", "load", "-22", "none", "load", "0", "1 ModelLoaded"},
        // A borrowed model whose stop fails stays in the internal state with nobody to end it. A
        // start finds it running and succeeds without a word to the DSP.
        {"StopDetectionInDsp", 1, "load, internal", "stop internal", "-22",
         "1 InternalForceDetected", "start", "0", "1 InternalForceDetected started",
         Then::kRestart},
        {"StopDetectionInDsp", 1, "load, internal", "start", "-22", "1 InternalForceDetected",
         "start", "0", "1 InternalForceDetected started", Then::kRestart},
        {"StopDetectionInDsp", 1, "load, internal", "unload", "-22", "1 InternalForceDetected",
         "unload", "0", "none"},
        {"StopDetectionInDsp", 1, "load, start, internal", "stop internal", "0",
         "1 InternalForceDetected started", "stop", "0", "1 ModelLoaded"},
        {"StopDetectionInDsp", 1, "load, start, internal", "stop", "0", "1 ModelLoaded", "start",
         "0", "1 StartDetecting started"},
        {"StopDetectionInDsp", 2, "load, start, internal", "stop", "-22",
         "1 InternalForceDetected started", "stop", "0", "1 ModelLoaded"},

        {"UnloadSoundModelFromDsp", 1, "load", "unload", "-22", "1 ModelLoaded", "unload", "0",
         "none"},
        {"UnloadSoundModelFromDsp", 1, "load music", "unload music", "-22", "1 ModelLoaded",
         "unload music", "0", "none"},
        // Stopped by then, which is not undone: deaf until the framework goes on.
        {"UnloadSoundModelFromDsp", 1, "load, start", "unload", "-22", "1 StartDetecting started",
         "unload", "0", "none"},
        {"UnloadSoundModelFromDsp", 1, "load, start, detect", "unload", "-22",
         "1 CallbackProcessing started", "start", "0", "1 StartDetecting started"},
        {"UnloadSoundModelFromDsp", 1, "internal", "stop internal", "-22", "none", "internal", "0",
         "0 InternalForceDetected internal"},
        {"UnloadSoundModelFromDsp", 1, "internal", "load", "-22", "none", "load", "0",
         "1 ModelLoaded"},

        {"TriggerForceRecognition", 1, "load, start", "force", "status", "1 StartDetecting started",
         "force", "0", "1 StartDetecting started"},
        {"TriggerForceRecognition", 1, "load music, start music", "force music", "status",
         "1 StartDetecting started", "force music", "0", "1 StartDetecting started"},

        {"ReadDspBuffer", 1, "load, start, detect, buffer", "read", "silence",
         "1 Buffering started", "read", "audio", "1 Buffering started"},
        {"ReadDspBuffer", 1, "load, start, detect, buffer", "read mono", "silence",
         "1 Buffering started", "read mono", "audio", "1 Buffering started"},
        {"ReadDspBuffer", 1, "load music, start music, detect music, buffer music", "read music",
         "silence", "1 Buffering started", "read music", "audio", "1 Buffering started"},
        {"ReadDspBuffer", 1, "load, start, detect, buffer", "timestamp", "silence, no timestamp",
         "1 Buffering started", "timestamp", "audio, no timestamp", "1 Buffering started"},
        {"ReadDspBuffer", 1, "internal, buffer internal", "read", "silence", "0 Buffering internal",
         "read", "audio", "0 Buffering internal"},

        {"GetNotificationFileDescriptor", 1, "load", "start", "0", "1 StartDetecting started",
         "start", "0", "1 StartDetecting started"},
        {"GetNotificationFileDescriptor", 1, "", "internal", "0",
         "0 InternalForceDetected internal", "stop internal", "0", "none"},
        {"GetNotificationFileDescriptor", 1, "offline, load, start", "online", "done",
         "1 StartDetecting started", "online", "done", "1 StartDetecting started"},
        // The record stays where it is, and the next turn of the control thread reads it.
        {"ReadDspNotification", 1, "load, start", "detect", "0", "1 CallbackProcessing started",
         "start", "0", "1 StartDetecting started"},
        {"ReadDspNotification", 3, "load music, start music", "detect music", "0",
         "1 CallbackProcessing started", "start music", "0", "1 StartDetecting started"},

        {"InternalHotwordRecognition", 1, "", "internal", "-22", "none", "internal", "0",
         "0 InternalForceDetected internal"},
        {"InternalHotwordRecognition", 1, "load", "internal", "-22", "none", "load", "0",
         "1 ModelLoaded"},
        {"InternalHotwordRecognition", 1, "load, start", "internal", "-22", "none", "load", "0",
         "1 ModelLoaded"},

        // The environment: never a failure of the request.
        {"SetupEraserInDsp", 1, "built", "initialize", "0", "none", "online", "done", "none"},
        {"SetupEraserInDsp", 1, "load, start", "speaker", "done", "1 StartDetecting started aec",
         "no speaker", "done", "1 StartDetecting started"},
        {"SetupEraserInDsp", 1, "load, start, speaker", "no speaker", "done",
         "1 StartDetecting started", "speaker", "done", "1 StartDetecting started aec"},
        {"SetupEraserInDsp", 1, "load, speaker", "start", "0", "1 StartDetecting started aec",
         "stop", "0", "1 ModelLoaded"},
        {"SetupEraserInDsp", 1, "load, start, speaker", "stop", "0", "1 ModelLoaded", "start", "0",
         "1 StartDetecting started aec"},
        {"SetupNeuralAecInDsp", 1, "load, start", "speaker", "done", "1 StartDetecting started aec",
         "no speaker", "done", "1 StartDetecting started"},
        {"SetupNeuralAecInDsp", 1, "load, start, speaker", "stop", "0", "1 ModelLoaded", "start",
         "0", "1 StartDetecting started aec"},
        {"SetupReferenceSource", 1, "built", "initialize", "0", "none", "online", "done", "none"},
        {"SetupReferenceSource", 1, "", "dock", "done", "none", "online", "done", "none"},
        {"SetupReferenceSource", 1, "", "online", "done", "none", "online", "done", "none"},
        {"SetupReferenceSource", 1, "load, start", "speaker", "done",
         "1 StartDetecting started aec", "online", "done", "1 StartDetecting started aec"},
        {"SetupEraserInDsp", 1, "load, start, primary on speaker", "music plays", "done",
         "1 StartDetecting started aec", "music ends", "done", "1 StartDetecting started"},
        {"SetupEraserInDsp", 1, "load, start, primary on speaker, music plays", "music ends",
         "done", "1 StartDetecting started", "music plays", "done", "1 StartDetecting started aec"},
        {"SetupNeuralAecInDsp", 1, "load, start, primary on speaker", "music plays", "done",
         "1 StartDetecting started aec", "music ends", "done", "1 StartDetecting started"},
        {"SetupNeuralAecInDsp", 1, "load, start, primary on speaker, music plays", "music ends",
         "done", "1 StartDetecting started", "music plays", "done", "1 StartDetecting started aec"},
        {"SetupReferenceSource", 1, "load, start, primary on speaker", "music plays", "done",
         "1 StartDetecting started aec", "music ends", "done", "1 StartDetecting started"},
        {"SetupReferenceSource", 1, "load, start, primary on speaker, music plays", "music ends",
         "done", "1 StartDetecting started", "music plays", "done", "1 StartDetecting started aec"},
        {"SetupNeuralAecInDsp", 1, "load, start, speaker", "no speaker", "done",
         "1 StartDetecting started", "speaker", "done", "1 StartDetecting started aec"},
        {"SetupReferenceSource", 1, "load, start, speaker", "no speaker", "done",
         "1 StartDetecting started", "speaker", "done", "1 StartDetecting started aec"},
        {"SetupReferenceSource", 1, "load, start, speaker", "stop", "0", "1 ModelLoaded", "start",
         "0", "1 StartDetecting started aec"},
        {"SetupReferenceSource", 1, "dock", "undock", "done", "none", "online", "done", "none"},
        {"SetupApProcessWithDock", 1, "built", "initialize", "0", "none", "online", "done", "none"},
        {"SetupApProcessWithDock", 1, "", "dock", "done", "none", "online", "done", "none"},
        {"SetupApProcessWithDock", 1, "dock", "undock", "done", "none", "online", "done", "none"},
        {"SetupApProcessWithDock", 1, "offline", "online", "done", "none", "online", "done",
         "none"},
        {"SetupMicSwapInDsp", 1, "built", "initialize", "0", "none", "online", "done", "none"},
        {"SetupMicSwapInDsp", 1, "", "fan", "0", "none", "online", "done", "none"},
        {"SetupMicSwapInDsp", 1, "offline, load", "online", "done", "1 ModelLoaded", "online",
         "done", "1 ModelLoaded"},
        {"SendTuningToDsp", 1, "built", "initialize", "0", "none", "online", "done", "none"},
        {"SendTuningToDsp", 1, "", "dock", "done", "none", "undock", "done", "none"},
        {"SendTuningToDsp", 1, "dock", "undock", "done", "none", "online", "done", "none"},
        {"SendTuningToDsp", 1, "offline, load", "online", "done", "1 ModelLoaded", "online", "done",
         "1 ModelLoaded"},
        {"StopDetectionInDsp", 2, "built", "initialize", "0", "none", "online", "done", "none"},
        {"UnloadSoundModelFromDsp", 2, "built", "initialize", "0", "none", "online", "done",
         "none"},
};

// Above 0 is a failure, too, except where it would be an amount or a descriptor.
std::vector<int> StatusesOf(const AdapterRow& row) {
    const std::string call = row.call;
    if (call.find("Notification") != call.npos) return {-EIO, -ENODEV, -EINVAL};
    if (call == "ReadDspBuffer") return {-EIO, -ETIMEDOUT};
    return {-EIO, -ETIMEDOUT, 5};
}

class AdapterFaultsTest : public ::testing::TestWithParam<size_t> {
  protected:
    static void SetUpTestSuite() {
        Report::Get().Begin("A failed operation of the adapter",
                            {"Fails", "From", "Request", "Result", "Clients afterwards", "Retry",
                             "Result", "Clients then", "Detection then needs"});
    }

    const AdapterRow& row() const { return kAdapterRows[GetParam()]; }

    std::string JournalWord() const {
        return std::ranges::find(kJournalWords, std::string_view(row().call),
                                 [](const auto& words) { return std::string_view(words.first); })
                ->second;
    }

    void Check(int status) {
        SCOPED_TRACE(std::string(row().call) + " -> " + std::to_string(status) + " under \"" +
                     row().request + "\" from \"" + row().setup + "\"");
        auto adapter = std::make_unique<ScriptedAdapter>();
        ScriptedAdapter& dsp = *adapter;
        Bench bench(SoundTriggerHalBuilder::BuildSoundTriggerHal(std::move(adapter)),
                    [&](int engine) { dsp.Notify({.engine = engine, .payload = "text"}); });
        ASSERT_NO_FATAL_FAILURE(bench.Reach(row().setup));
        (void)dsp.Take();
        const std::string call = JournalWord();
        dsp.Script({.call = call, .result = status, .times = row().times});

        const Outcome outcome = bench.CarryOut(row().request);
        dsp.WaitForCall(call, static_cast<size_t>(row().times));

        const std::string expected = row().result;
        EXPECT_EQ(expected == "status" ? std::to_string(status) : expected, outcome.result);
        EXPECT_EQ(row().state, bench.State());
        EXPECT_EQ(row().retry_result, bench.CarryOut(row().retry).result);
        EXPECT_EQ(row().retry_state, bench.State());
        bench.ExpectDetection(row().then == Then::kRestart);
    }

    LogCapture log_;
};

TEST_P(AdapterFaultsTest, FailureIsAnsweredAsTheTableSaysAndTheRetryWorks) {
    for (const int status : StatusesOf(row())) Check(status);
    const std::string times = row().times == 1 ? "" : " x" + std::to_string(row().times);
    Report::Get().Add({row().call + times, *row().setup == '\0' ? "idle" : row().setup,
                       row().request,
                       std::string(row().result) == "status" ? "the status" : row().result,
                       row().state, row().retry, row().retry_result, row().retry_state,
                       row().then == Then::kRestart ? "stop, start" : "start"});
}

// A start from each of these is a way through every branch of the HAL that calls the adapter.
constexpr const char* kSituations[] = {
        "built",
        "",
        "dock",
        "load",
        "load music, start music",
        "internal",
        "load, internal",
        "load, start",
        "load, start, speaker",
        "load, start, primary on speaker",
        "load, start, primary on speaker, music plays",
        "load, start, speaker, internal",
        "load, start, detect, buffer",
        "load, start, offline, dock, speaker",
};

TEST(AdapterFaultsTableTest, HasARowForEveryRequestThatReachesAnOperation) {
    LogCapture log;
    std::set<std::string> missing;
    for (const char* situation : kSituations) {
        for (const std::string& request : Bench(nullptr, nullptr).Requests()) {
            auto adapter = std::make_unique<ScriptedAdapter>();
            ScriptedAdapter& dsp = *adapter;
            Bench bench(SoundTriggerHalBuilder::BuildSoundTriggerHal(std::move(adapter)),
                        [&](int engine) { dsp.Notify({.engine = engine, .payload = "text"}); });
            ASSERT_NO_FATAL_FAILURE(bench.Reach(situation));
            (void)dsp.Take();
            if (request.starts_with("detect")) continue;  // Not a request of the framework's.
            if ((std::string(situation) == "built") != (request == "initialize")) continue;
            (void)bench.CarryOut(request);
            for (const std::string& call : dsp.Take()) {
                for (const auto& words : kJournalWords) {
                    const std::string operation = words.first;
                    // What the control thread calls, it calls at some time.
                    const bool is_later = operation.find("Notification") != operation.npos;
                    if (is_later || !call.starts_with(words.second)) continue;
                    const bool has_row =
                            std::ranges::any_of(kAdapterRows, [&](const AdapterRow& row) {
                                return row.call == operation && row.request == request;
                            });
                    if (!has_row) missing.insert(operation + " under " + request);
                }
            }
        }
    }
    EXPECT_THAT(missing, ::testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(, AdapterFaultsTest, ::testing::Range<size_t>(0, std::size(kAdapterRows)));

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
