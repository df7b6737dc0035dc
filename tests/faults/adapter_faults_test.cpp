// Every operation of the adapter fails under every operation of the HAL that reaches it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <initializer_list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "tests/faults/result_tables.h"
#include "tests/faults/rig.h"
#include "tests/support/log_capture.h"
#include "tests/support/scripted_adapter.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

// What has to happen before the framework hears of hotwords again, once the retry is through.
enum class Then {
    kDetects,  // A start, as always.
    kRestart,  // The engine was left as an internal recognition left it: a stop and a start.
};

/** How the scripted DSP's journal and the oracle call an operation of the adapter. */
struct Operation {
    const char* name;
    const char* journal_word;
    std::optional<DspOp> op;  // None: the oracle predicts that its failure changes nothing.
};

// Those that can fail. The other two are no calls to the DSP: one closes a device, one tells what
// is known of a timestamp.
constexpr Operation kOperations[] = {
        {"GetLibraryArchitecture", "Library(", DspOp::kQuery},
        {"LoadSoundModelToDsp", "Load(", DspOp::kLoad},
        {"StartDetectionInDsp", "Start(", DspOp::kStart},
        {"StopDetectionInDsp", "Stop(", DspOp::kStop},
        {"UnloadSoundModelFromDsp", "Unload(", DspOp::kUnload},
        {"TriggerForceRecognition", "Force(", DspOp::kForce},
        {"ReadDspBuffer", "Read(", DspOp::kRead},
        {"GetNotificationFileDescriptor", "Watch(", std::nullopt},
        {"ReadDspNotification", "Notification(", std::nullopt},
        {"SetupEraserInDsp", "Eraser(", DspOp::kEraser},
        {"SetupApProcessWithDock", "ApProcess(", DspOp::kApProcess},
        {"SetupMicSwapInDsp", "MicSwap(", DspOp::kMicSwap},
        {"SetupReferenceSource", "Reference(", DspOp::kReference},
        {"SendTuningToDsp", "Tuning(", DspOp::kTuning},
        {"InternalHotwordRecognition", "Internal(", DspOp::kInternal},
        {"SetupNeuralAecInDsp", "NeuralAec(", DspOp::kNeuralAec},
};

struct AdapterRow {
    const char* call;     // What fails,
    int times;            // so often in a row.
    const char* setup;    // See Rig::Reach.
    const char* request;  // See Rig::CarryOut.
    const char* retry;
    Then then = Then::kDetects;
    const char* result = nullptr;  // Where the oracle knows none.
    const char* retry_result = nullptr;
};

// A void operation is "done" whatever fails in it; what the DSP then lacks comes with the next
// online report.
constexpr AdapterRow kAdapterRows[] = {
        {"GetLibraryArchitecture", 1, "", "properties", "properties"},

        {"LoadSoundModelToDsp", 1, "", "load", "load"},
        {"LoadSoundModelToDsp", 1, "", "load music", "load music"},
        {"LoadSoundModelToDsp", 1, "offline, load", "online", "online"},
        {"LoadSoundModelToDsp", 1, "offline, load, start", "online", "online"},
        {"LoadSoundModelToDsp", 1, "offline, load, start, load music", "online", "online"},
        {"LoadSoundModelToDsp", 1, "internal, offline, online", "stop internal", "internal"},

        {"StartDetectionInDsp", 1, "load", "start", "start"},
        {"StartDetectionInDsp", 1, "load music", "start music", "start music"},
        {"StartDetectionInDsp", 1, "load, start, detect", "start", "start"},
        {"StartDetectionInDsp", 1, "load, start, detect, buffer", "start", "start"},
        {"StartDetectionInDsp", 1, "load, internal", "start", "start"},
        {"StartDetectionInDsp", 1, "load, start, internal", "start", "start"},
        {"StartDetectionInDsp", 1, "offline, load, start", "online", "online"},
        {"StartDetectionInDsp", 1, "", "internal", "internal"},
        {"StartDetectionInDsp", 1, "load", "internal", "load"},
        {"StartDetectionInDsp", 1, "load, start, internal", "stop internal", "start"},
        {"StartDetectionInDsp", 1, "load, start, internal", "load", "start"},
        {"StartDetectionInDsp", 1, "load, start, internal", "stop", "stop"},
        {"StartDetectionInDsp", 1, "load, start, internal", "unload", "unload"},

        {"StopDetectionInDsp", 1, "load, start", "stop", "stop"},
        {"StopDetectionInDsp", 1, "load music, start music", "stop music", "stop music"},
        {"StopDetectionInDsp", 1, "load, start, detect", "stop", "stop"},
        {"StopDetectionInDsp", 1, "load, start, detect, buffer", "stop", "stop"},
        {"StopDetectionInDsp", 1, "load, start", "unload", "unload"},
        {"StopDetectionInDsp", 1, "load, start, detect", "unload", "unload"},
        {"StopDetectionInDsp", 1, "load, start, detect, buffer", "unload", "unload"},
        {"StopDetectionInDsp", 1, "load music, start music", "unload music", "unload music"},
        // A repeated report stops what detects, and starts it again.
        {"StopDetectionInDsp", 1, "load, start", "online", "online"},
        {"StopDetectionInDsp", 1, "load, start, speaker", "stop", "stop"},
        // The internal client goes whatever becomes of it; unloading it stops it once more.
        {"StopDetectionInDsp", 1, "internal", "stop internal", "internal"},
        {"StopDetectionInDsp", 2, "internal", "stop internal", "internal"},
        {"StopDetectionInDsp", 2, "internal", "load", "load"},
        // A borrowed model whose stop fails stays in the internal state with nobody to end it. A
        // start finds it running and succeeds without a word to the DSP.
        {"StopDetectionInDsp", 1, "load, internal", "stop internal", "start", Then::kRestart},
        {"StopDetectionInDsp", 1, "load, internal", "start", "start", Then::kRestart},
        {"StopDetectionInDsp", 1, "load, internal", "unload", "unload"},
        {"StopDetectionInDsp", 1, "load, start, internal", "stop internal", "stop"},
        {"StopDetectionInDsp", 1, "load, start, internal", "stop", "start"},
        {"StopDetectionInDsp", 2, "load, start, internal", "stop", "stop"},

        {"UnloadSoundModelFromDsp", 1, "load", "unload", "unload"},
        {"UnloadSoundModelFromDsp", 1, "load music", "unload music", "unload music"},
        // Stopped by then, which is not undone: deaf until the framework goes on.
        {"UnloadSoundModelFromDsp", 1, "load, start", "unload", "unload"},
        {"UnloadSoundModelFromDsp", 1, "load, start, detect", "unload", "start"},
        {"UnloadSoundModelFromDsp", 1, "internal", "stop internal", "internal"},
        {"UnloadSoundModelFromDsp", 1, "internal", "load", "load"},

        {"TriggerForceRecognition", 1, "load, start", "force", "force"},
        {"TriggerForceRecognition", 1, "load music, start music", "force music", "force music"},

        {"ReadDspBuffer", 1, "load, start, detect, buffer", "read", "read"},
        {"ReadDspBuffer", 1, "load, start, detect, buffer", "read mono", "read mono"},
        {"ReadDspBuffer", 1, "load music, start music, detect music, buffer music", "read music",
         "read music"},
        {"ReadDspBuffer", 1, "load, start, detect, buffer", "timestamp", "timestamp",
         Then::kDetects, "silence, no timestamp", "audio, no timestamp"},
        {"ReadDspBuffer", 1, "internal, buffer internal", "read", "read"},

        {"GetNotificationFileDescriptor", 1, "load", "start", "start"},
        {"GetNotificationFileDescriptor", 1, "", "internal", "stop internal"},
        {"GetNotificationFileDescriptor", 1, "offline, load, start", "online", "online"},
        // The record stays where it is, and the next turn of the control thread reads it.
        {"ReadDspNotification", 1, "load, start", "detect", "start"},
        {"ReadDspNotification", 3, "load music, start music", "detect music", "start music"},

        {"InternalHotwordRecognition", 1, "", "internal", "internal"},
        {"InternalHotwordRecognition", 1, "load", "internal", "load"},
        {"InternalHotwordRecognition", 1, "load, start", "internal", "load"},

        // The environment: never a failure of the request.
        {"SetupEraserInDsp", 1, "built", "initialize", "online"},
        {"SetupEraserInDsp", 1, "load, start", "speaker", "no speaker"},
        {"SetupEraserInDsp", 1, "load, start, speaker", "no speaker", "speaker"},
        {"SetupEraserInDsp", 1, "load, speaker", "start", "stop"},
        {"SetupEraserInDsp", 1, "load, start, speaker", "stop", "start"},
        {"SetupNeuralAecInDsp", 1, "load, start", "speaker", "no speaker"},
        {"SetupNeuralAecInDsp", 1, "load, start, speaker", "stop", "start"},
        {"SetupReferenceSource", 1, "built", "initialize", "online"},
        {"SetupReferenceSource", 1, "", "dock", "online"},
        {"SetupReferenceSource", 1, "", "online", "online"},
        {"SetupReferenceSource", 1, "load, start", "speaker", "online"},
        {"SetupEraserInDsp", 1, "load, start, primary on speaker", "music plays", "music ends"},
        {"SetupEraserInDsp", 1, "load, start, primary on speaker, music plays", "music ends",
         "music plays"},
        {"SetupNeuralAecInDsp", 1, "load, start, primary on speaker", "music plays", "music ends"},
        {"SetupNeuralAecInDsp", 1, "load, start, primary on speaker, music plays", "music ends",
         "music plays"},
        {"SetupReferenceSource", 1, "load, start, primary on speaker", "music plays", "music ends"},
        {"SetupReferenceSource", 1, "load, start, primary on speaker, music plays", "music ends",
         "music plays"},
        {"SetupNeuralAecInDsp", 1, "load, start, speaker", "no speaker", "speaker"},
        {"SetupReferenceSource", 1, "load, start, speaker", "no speaker", "speaker"},
        {"SetupReferenceSource", 1, "load, start, speaker", "stop", "start"},
        {"SetupReferenceSource", 1, "dock", "undock", "online"},
        {"SetupApProcessWithDock", 1, "built", "initialize", "online"},
        {"SetupApProcessWithDock", 1, "", "dock", "online"},
        {"SetupApProcessWithDock", 1, "dock", "undock", "online"},
        {"SetupApProcessWithDock", 1, "offline", "online", "online"},
        {"SetupMicSwapInDsp", 1, "built", "initialize", "online"},
        {"SetupMicSwapInDsp", 1, "", "fan", "online"},
        {"SetupMicSwapInDsp", 1, "offline, load", "online", "online"},
        {"SendTuningToDsp", 1, "built", "initialize", "online"},
        {"SendTuningToDsp", 1, "", "dock", "undock"},
        {"SendTuningToDsp", 1, "dock", "undock", "online"},
        {"SendTuningToDsp", 1, "offline, load", "online", "online"},
        {"StopDetectionInDsp", 2, "built", "initialize", "online"},
        {"UnloadSoundModelFromDsp", 2, "built", "initialize", "online"},
};

// Above 0 is a failure, too, except where it would be an amount or a descriptor.
std::vector<int> StatusesOf(const AdapterRow& row) {
    const std::string call = row.call;
    if (call.find("Notification") != call.npos) return {-EIO, -ENODEV, -EINVAL};
    if (call == "ReadDspBuffer") return {-EIO, -ETIMEDOUT};
    return {-EIO, -ETIMEDOUT, 5};
}

/** A rig on a scripted DSP. */
class ScriptedRig : public Rig {
  public:
    explicit ScriptedRig(ScriptedAdapter* adapter = new ScriptedAdapter)
        : Rig(SoundTriggerHalBuilder::BuildSoundTriggerHal(
                      std::unique_ptr<ScriptedAdapter>(adapter)),
              [adapter](int engine) { adapter->Notify({.engine = engine, .payload = "text"}); }),
          dsp(*adapter) {}

    ScriptedAdapter& dsp;  // The HAL's.
};

class AdapterFaultsTest : public ::testing::TestWithParam<size_t> {
  protected:
    static void SetUpTestSuite() {
        ResultTables::Get().Begin("A failed operation of the adapter",
                                  {"Fails", "From", "Request", "Result", "Clients afterwards",
                                   "Retry", "Result", "Clients then", "Detection then needs"});
    }

    const AdapterRow& row() const { return kAdapterRows[GetParam()]; }

    static const Operation& OperationOf(std::string_view call) {
        return *std::ranges::find(kOperations, call, &Operation::name);
    }

    void Check(int status) {
        SCOPED_TRACE(std::string(row().call) + " -> " + std::to_string(status) + " under \"" +
                     row().request + "\" from \"" + row().setup + "\"");
        const Operation& operation = OperationOf(row().call);
        ScriptedRig rig;
        ASSERT_NO_FATAL_FAILURE(rig.Reach(row().setup));
        (void)rig.dsp.Take();
        rig.dsp.Script({.call = operation.journal_word, .result = status, .times = row().times});
        if (operation.op == DspOp::kForce) {
            const int engine = std::string(row().setup).find("music") == std::string::npos
                                       ? kHotwordEngine
                                       : kAmbientMusicEngine;
            rig.dsp.Script({.call = "Force(", .during = [&rig, engine] {
                                rig.dsp.Notify({.engine = engine, .payload = "text"});
                            }});
        }
        rig.WillFail(operation.op, status, row().times);

        const RequestResult request = rig.CarryOut(row().request);
        rig.dsp.WaitForCall(operation.journal_word, static_cast<size_t>(row().times));

        rig.ExpectAsPredicted(request, row().result);
        const std::string state = rig.State();
        const RequestResult retry = rig.CarryOut(row().retry);
        rig.ExpectAsPredicted(retry, row().retry_result);
        seen_ = {operation.op == DspOp::kForce ? "the status" : request.result, state, row().retry,
                 retry.result, rig.State()};
        rig.ExpectDetection(row().then == Then::kRestart);
    }

    LogCapture log_;
    std::vector<std::string> seen_;  // Of the last check, as the table shows it.
};

TEST_P(AdapterFaultsTest, FailureIsAnsweredAsPredictedAndTheRetryWorks) {
    for (const int status : StatusesOf(row())) Check(status);
    const std::string times = row().times == 1 ? "" : " x" + std::to_string(row().times);
    std::vector<std::string> cells = {row().call + times,
                                      *row().setup == '\0' ? "idle" : row().setup, row().request};
    cells.insert(cells.end(), seen_.begin(), seen_.end());
    cells.push_back(row().then == Then::kRestart ? "stop, start" : "start");
    ResultTables::Get().Add(cells);
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
        for (const std::string& request : ScriptedRig().Requests()) {
            ScriptedRig rig;
            ASSERT_NO_FATAL_FAILURE(rig.Reach(situation));
            (void)rig.dsp.Take();
            if (request.starts_with("detect")) continue;  // Not a request of the framework's.
            if ((std::string(situation) == "built") != (request == "initialize")) continue;
            (void)rig.CarryOutUnpredicted(request);
            for (const std::string& call : rig.dsp.Take()) {
                for (const auto& [name, word, op] : kOperations) {
                    const std::string operation = name;
                    // What the control thread calls, it calls at some time.
                    const bool is_later = operation.find("Notification") != operation.npos;
                    if (is_later || !call.starts_with(word)) continue;
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
