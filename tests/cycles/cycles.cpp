// cycles [--cycles N]: the life of a hotword, over and over: load, start, detect, capture, stop,
// unload, with a DSP that crashes in every tenth cycle, each time at another point. Prints what the
// process holds before and after, and ends with status 1 when that has grown or a step fails.
#include <android-base/logging.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_driver_operations.h"
#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "host/virtual_dsp/board/board.h"
#include "host/virtual_dsp/board/enter_board.h"
#include "host/virtual_dsp/dsp/sample_pattern.h"
#include "host/virtual_dsp/dsp/sound_model.h"
#include "tests/support/model.h"
#include "tests/support/recording_callback.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/allocator_interface.h>
#endif

namespace {

using namespace ::vendor::quarno::brindlecove::audio::hal::soundtrigger;
using ::virtual_dsp::Board;
using ::virtual_dsp::Engine;

constexpr int kDefaultCycles = 10000;
// Before the first count: what is made once (buffers of the C library, threads' stacks) is made.
constexpr int kWarmUpCycles = 20;
constexpr int kCyclesPerCrash = 10;
constexpr int kIoHandle = 7;
constexpr uint64_t kFirst = 12000;
constexpr uint64_t kFrames = 1600;
constexpr size_t kModelBytes = 20000;
constexpr std::chrono::milliseconds kSettled{100};
// Chunks that the allocator keeps for the next request count as used; a leak of 8 bytes a cycle
// comes to more in the long form.
constexpr int64_t kHeapNoiseBytes = 64 * 1024;

volatile std::sig_atomic_t interrupted = 0;

extern "C" void OnInterrupt(int) {
    interrupted = 1;
}

size_t EntriesOf(const char* directory) {
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

// The control thread closes the notification device, and the board ends a call, in their own time.
void Settle() {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    auto same_since = std::chrono::steady_clock::now();
    size_t last = EntriesOf("/proc/self/fd");
    while (std::chrono::steady_clock::now() < std::min(deadline, same_since + kSettled)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const size_t now = EntriesOf("/proc/self/fd");
        if (std::exchange(last, now) != now) same_since = std::chrono::steady_clock::now();
    }
}

/** What the process holds. */
struct Holdings {
    size_t descriptors = EntriesOf("/proc/self/fd");
    size_t threads = EntriesOf("/proc/self/task");
#if defined(__SANITIZE_ADDRESS__)
    size_t heap_bytes = __sanitizer_get_current_allocated_bytes();
#else
    size_t heap_bytes = mallinfo2().uordblks + mallinfo2().hblkhd;
#endif
};

/** One phone, and one framework that leads the life. A step that fails says which and why. */
class Life {
  public:
    explicit Life(Board& board) : board_(board) {
        (void)hal_->Initialize();
        hal_->OnSoundCardStateChanged(true);
    }

    bool Cycle(int number) {
        const bool crashes = number % kCyclesPerCrash == 0;
        // A different point of the cycle each time.
        const int crash_step = crashes ? number / kCyclesPerCrash % 5 : -1;
        const bool with_music = number % 3 == 0;
        int music = -1;
        const bool lived =
                (!with_music || Load(SoundModelType::GENERIC, &music)) &&
                Load(SoundModelType::KEYPHRASE, &hotword_) && CrashAt(0, crash_step) &&
                Check("StartRecognition", hal_->StartRecognition(hotword_, 0, kIoHandle, {})) &&
                CrashAt(1, crash_step) && Detect() && AfterDetection(crash_step) &&
                Check("StopRecognition", hal_->StopRecognition(hotword_)) &&
                CrashAt(4, crash_step) && Check("Unload", hal_->UnloadSoundModel(hotword_)) &&
                (!with_music || Check("Unload", hal_->UnloadSoundModel(music))) &&
                (number % 7 != 0 || InternalCapture());
        ReadJournal();
        return lived;
    }

    int highest_handle() const { return highest_handle_; }
    size_t crashes() const { return crashes_; }
    size_t events() const { return events_ + framework_->events().size(); }
    size_t commands() const { return commands_; }
    size_t wraps() const { return wraps_; }
    size_t gaps() const { return gaps_; }

  private:
    static bool Check(const char* step, int result) {
        if (result >= 0) return true;
        fprintf(stderr, "%s came to %d\n", step, result);
        return false;
    }

    bool Load(SoundModelType type, int* handle) {
        const bool is_music = type == SoundModelType::GENERIC;
        const auto& bytes = is_music ? music_model_ : hotword_model_;
        const SoundModel model = ModelOf(type, is_music ? "music" : "hotword", bytes);
        if (!Check("LoadSoundModel", hal_->LoadSoundModel(model, framework_, handle))) return false;
        highest_handle_ = std::max(highest_handle_, *handle);
        return true;
    }

    void Say() {
        board_.dsp().Hear(::virtual_dsp::PatternFrames(kFirst, kFrames + 1024),
                          ::virtual_dsp::BoottimeNow());
    }

    bool Detect() {
        events_ += framework_->Take().size();
        Say();
        return Check("Waiting for an event", framework_->WaitForEvents(1) ? 0 : -1);
    }

    // After a crash nothing is detected any more, and the hotword has to be said again.
    bool AfterDetection(int crash_step) {
        if (!CrashAt(2, crash_step) || (crash_step == 2 && !Detect())) return false;
        SoundTriggerDriverOperationsBuilder builder;
        builder.hal = hal_.get();
        builder.io_handle = kIoHandle;
        builder.channel_count = 2;
        const auto stream = builder.Build();
        return stream->Start() && Capture(*stream) && CrashAt(3, crash_step) &&
               (crash_step == 3 || Capture(*stream)) && stream->Stop();
    }

    bool InternalCapture() {
        SoundTriggerDriverOperationsBuilder builder;
        builder.hal = hal_.get();
        builder.channel_count = 2;
        builder.is_internal_force = true;
        const auto stream = builder.Build();
        if (stream == nullptr || !stream->Start()) return Check("the internal stream", -1);
        Say();
        return Capture(*stream) && stream->Stop();
    }

    bool Capture(SoundTriggerDriverOperations& stream) {
        std::vector<unsigned char> audio(4096, 0x55);
        const int size = stream.Read(audio.data(), static_cast<int>(audio.size()));
        if (size != 4096) return Check("Read", -1);
        const bool silent = std::ranges::all_of(audio, [](int byte) { return byte == 0; });
        return Check("Read delivered silence, which", silent ? -1 : 0);
    }

    bool CrashAt(int step, int crash_step) {
        if (step != crash_step) return true;
        ++crashes_;
        ReadJournal();
        board_.dsp().Crash();
        hal_->OnSoundCardStateChanged(false);
        board_.dsp().Boot();
        hal_->OnSoundCardStateChanged(true);
        return true;
    }

    // Follows the sequence numbers: one more with each command, and after 255 from 0 again.
    void ReadJournal() {
        for (const auto& entry : board_.dsp().journal().Snapshot()) {
            const auto* command = entry.As<::virtual_dsp::CommandAnswered>();
            if (command == nullptr || command->bytes.size() < 2) continue;
            const uint8_t sequence = command->bytes[1];
            if (commands_++ > 0 && sequence != static_cast<uint8_t>(sequence_ + 1)) ++gaps_;
            if (sequence < sequence_) ++wraps_;
            sequence_ = sequence;
        }
        board_.dsp().journal().Clear();
    }

    static std::vector<uint8_t> Model(Engine engine) {
        return ::virtual_dsp::BuildSoundModel(
                {engine, 0.7F, ::virtual_dsp::PatternChannel(kFirst, kFrames, 0)}, kModelBytes);
    }

    Board& board_;
    const std::vector<uint8_t> hotword_model_ = Model(Engine::kHotword);
    const std::vector<uint8_t> music_model_ = Model(Engine::kAmbientMusic);
    const std::shared_ptr<RecordingCallback> framework_ =
            ::ndk::SharedRefBase::make<RecordingCallback>();
    size_t events_ = 0;
    const std::unique_ptr<SoundTriggerHal> hal_ = SoundTriggerHalBuilder::BuildSoundTriggerHal();
    int hotword_ = -1;
    int highest_handle_ = 0;
    size_t crashes_ = 0;
    size_t commands_ = 0;
    size_t wraps_ = 0;
    size_t gaps_ = 0;
    uint8_t sequence_ = 0;
};

std::optional<int> CyclesWanted(int argc, char** argv) {
    if (argc == 1) return kDefaultCycles;
    int cycles = 0;
    if (argc != 3 || strcmp(argv[1], "--cycles") != 0) return std::nullopt;
    const char* const end = argv[2] + strlen(argv[2]);
    if (std::from_chars(argv[2], end, cycles).ptr != end || cycles < 1) return std::nullopt;
    return cycles;
}

bool Print(const Life& life, int cycles, const Holdings& before, const Holdings& after) {
    printf("%d cycles, %zu crashes of the DSP, %zu events, highest handle %d\n", cycles,
           life.crashes(), life.events(), life.highest_handle());
    printf("%zu commands; their sequence number began anew %zu times, %zu gaps\n", life.commands(),
           life.wraps(), life.gaps());
    printf("%-14s %12s %12s\n", "", "before", "after");
    printf("%-14s %12zu %12zu\n", "descriptors", before.descriptors, after.descriptors);
    printf("%-14s %12zu %12zu\n", "threads", before.threads, after.threads);
    printf("%-14s %12zu %12zu\n", "heap (bytes)", before.heap_bytes, after.heap_bytes);
    const auto grown =
            static_cast<int64_t>(after.heap_bytes) - static_cast<int64_t>(before.heap_bytes);
    return after.descriptors == before.descriptors && after.threads == before.threads &&
           grown < kHeapNoiseBytes && life.gaps() == 0 && life.highest_handle() <= 2;
}

int Run(Board& board, int cycles) {
    const bool shows_progress = isatty(STDERR_FILENO) != 0;
    Life life(board);
    std::optional<Holdings> before;
    for (int number = 1; number <= kWarmUpCycles + cycles; ++number) {
        if (interrupted != 0) {
            fprintf(stderr, "\ninterrupted in cycle %d\n", number);
            return 130;
        }
        if (!life.Cycle(number)) {
            fprintf(stderr, "in cycle %d\n", number);
            return 1;
        }
        if (number == kWarmUpCycles) {
            Settle();
            before.emplace();
        }
        if (shows_progress && number % 50 == 0) fprintf(stderr, "\r%d", number);
    }
    if (shows_progress) fprintf(stderr, "\r");
    Settle();
    const bool is_clean = Print(life, cycles, *before, Holdings());
    printf("%s\n", is_clean ? "Nothing was left behind." : "FAILED: see the numbers above.");
    return is_clean ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const auto cycles = CyclesWanted(argc, argv);
    if (!cycles) {
        fprintf(stderr, "usage: %s [--cycles N]\n", argv[0]);
        return 2;
    }
    if (const auto status = virtual_dsp::EnterBoard(argc, argv)) return *status;
    struct sigaction action {};
    action.sa_handler = OnInterrupt;
    action.sa_flags = SA_RESTART;
    (void)sigaction(SIGINT, &action, nullptr);
    (void)sigaction(SIGTERM, &action, nullptr);
    ::android::base::SetLogger([](auto, auto, auto, auto, auto, auto) {});
    const auto board = Board::Create({});
    if (!board.ok()) {
        fprintf(stderr, "%s\n", board.error().c_str());
        return 1;
    }
    return Run(**board, *cycles);
}
