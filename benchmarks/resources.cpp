// Allocations, idling, memory and size: counted, not timed.
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_driver_operations.h"
#include "benchmarks/fixture.h"
#include "benchmarks/rows.h"

namespace bench {

using virtual_dsp::Engine;

namespace {

struct ThreadUse {
    uint64_t wake_ups = 0;
    int64_t cpu_ns = 0;
};

ThreadUse ControlThreadUse() {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        if (name != "SthalControl") continue;
        ThreadUse use;
        std::ifstream status(task.path() / "status");
        for (std::string key; status >> key;) {
            if (key == "voluntary_ctxt_switches:") status >> use.wake_ups;
        }
        // A thread's CPU clock by its id, as pthread_getcpuclockid() makes it.
        const int id = std::stoi(task.path().filename());
        const auto clock = static_cast<clockid_t>((~static_cast<unsigned>(id) << 3) | 6U);
        timespec cpu{};
        if (clock_gettime(clock, &cpu) != 0) break;
        use.cpu_ns = int64_t{cpu.tv_sec} * 1'000'000'000 + cpu.tv_nsec;
        return use;
    }
    std::exit(1);  // A thread that is not found has not been idle.
}

// Per call, over `calls` of them.
Row AllocationsRow(const char* what, uint64_t allocated, int calls) {
    Row row;
    row.what = what;
    row.unit = "allocations";
    row.value = static_cast<double>(allocated) / calls;
    row.goal = 0;
    return row;
}

}  // namespace

std::vector<Row> AllocationRows() {
    Fixture fixture;
    const int engine_type = fixture.BeginCapture(Engine::kHotword);
    std::vector<char> buffer(kBulkBytes);
    constexpr int kReads = 100;
    uint64_t by_reads = 0;
    for (int i = 0; i < kReads; ++i) {
        fixture.HearBulk();
        const uint64_t before = Allocations();
        (void)fixture.hal().ReadBuffer(engine_type, buffer.data(), kBulkBytes, 2);
        by_reads += Allocations() - before;
    }

    constexpr int kReports = 1000;
    soundtrigger::SoundTriggerDriverOperations stream(&fixture.hal(), kIoHandle, 2, false);
    long frames = 0;
    long time_ns = 0;
    (void)stream.GetPosition(frames, time_ns);  // What is set up once is by now.
    const uint64_t before = Allocations();
    for (int i = 0; i < kReports; ++i) (void)stream.GetPosition(frames, time_ns);
    const uint64_t by_reports = Allocations() - before;
    return {AllocationsRow("heap allocations per ReadBuffer, the first one included", by_reads,
                           kReads),
            AllocationsRow("heap allocations per position report", by_reports, kReports)};
}

std::vector<Row> Idle(const Options& options) {
    Fixture fixture;
    const int handle = fixture.Load(Engine::kHotword, Fixture::Model(Engine::kHotword, 0));
    fixture.Start(handle, kIoHandle);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const ThreadUse before = ControlThreadUse();
    std::this_thread::sleep_for(std::chrono::duration<double>(options.idle_seconds));
    const ThreadUse after = ControlThreadUse();
    Row wake_ups;
    wake_ups.what = "wake-ups of the control thread in " +
                    std::to_string(static_cast<int>(options.idle_seconds)) +
                    " s of started recognition";
    wake_ups.unit = "wake-ups";
    wake_ups.value = static_cast<double>(after.wake_ups - before.wake_ups);
    wake_ups.goal = 0;
    Row cpu = wake_ups;
    cpu.what = "CPU of the control thread in the same time";
    cpu.unit = "ns";
    cpu.value = static_cast<double>(after.cpu_ns - before.cpu_ns);
    return {wake_ups, cpu};
}

Row MemoryPerModel() {
    Fixture fixture;
    const std::vector<uint8_t> model = Fixture::Model(Engine::kHotword, 64 * kKiB);
    fixture.Unload(fixture.Load(Engine::kHotword, model));  // What is allocated once is by now.
    fixture.hal().OnSoundCardStateChanged(false);
    const auto prepared = fixture.Prepare(Engine::kHotword, model);
    const int64_t before = HeldBytes();
    const int handle = fixture.Load(prepared);
    const int64_t after = HeldBytes();
    fixture.Unload(handle);
    Row row;
    row.what = "memory of a loaded model beyond its own bytes";
    row.unit = "bytes";
    row.value = static_cast<double>(after - before) - static_cast<double>(model.size());
    row.note = "the client, its state object, its table entry, the uuids";
    return row;
}

Row LibrarySize(const std::string& file) {
    Row row;
    row.what = "the library, stripped";
    row.unit = "bytes";
    std::error_code error;
    row.value = static_cast<double>(std::filesystem::file_size(file, error));
    if (error) row.value = 0;
    row.note = error ? "not found: " + error.message() : "code, tables and dynamic symbols";
    return row;
}

}  // namespace bench
