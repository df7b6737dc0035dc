// ./dev bench: what the library adds to the system calls that its job needs.
#include <malloc.h>
#include <sndfile.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_driver_operations.h"
#include "audio/hal/aidl/soundtrigger/zyl/zyl_mulaw.h"
#include "benchmarks/bare.h"
#include "benchmarks/fixture.h"
#include "benchmarks/measure.h"
#include "host/virtual_dsp/board/enter_board.h"

namespace bench {

namespace {

using virtual_dsp::Engine;

constexpr int kIoHandle = 13;
constexpr size_t kKiB = 1024;
constexpr size_t kMiB = 1024 * kKiB;
constexpr size_t kBulkBytes = 4096;  // 1024 frames of two 16-bit channels.

struct Options {
    double scale = 1;  // Of the numbers of rounds.
    double idle_seconds = 30;
    std::string json_file;
    std::string library_file;

    int Rounds(int full) const { return std::max(10, static_cast<int>(full * scale)); }
};

// Long enough for a thread that was told to wait to be waiting.
void Settle() {
    std::this_thread::sleep_for(std::chrono::microseconds(400));
}

// --- detection ---

Row Detection(const Options& options) {
    Fixture fixture;
    const int handle = fixture.Load(Engine::kHotword, Fixture::Model(Engine::kHotword, 0));
    Arrival bare_arrival;
    const Round library = [&] {
        fixture.Start(handle, kIoHandle);
        Settle();
        const int64_t written = NowNs();
        fixture.TellDsp(wire::CMD_AUDIO_INPUT_HOTWORD_FORCE_RECOGNITION);
        const int64_t entered = fixture.callback().Wait();
        fixture.Stop(handle);
        Settle();
        return entered - written;
    };
    const Round bare = [&] {
        fixture.TellDsp(wire::CMD_AUDIO_INPUT_HOTWORD_START);
        const BareListener listener(&bare_arrival);
        Settle();
        const int64_t written = NowNs();
        fixture.TellDsp(wire::CMD_AUDIO_INPUT_HOTWORD_FORCE_RECOGNITION);
        const int64_t entered = bare_arrival.Wait();
        fixture.TellDsp(wire::CMD_AUDIO_INPUT_HOTWORD_STOP);
        return entered - written;
    };
    return Compare("record written to callback entered", "select, read, call", options.Rounds(2000),
                   library, bare, 1.15);
}

// --- captured audio ---

// Binds a capture to the engine, whose audio every HearBulk() then makes longer by one bulk.
int BeginCapture(Fixture& fixture, Engine engine, int io_handle = kIoHandle) {
    const int handle = fixture.Load(engine, Fixture::Model(engine, 0));
    fixture.Start(handle, io_handle);
    Settle();
    fixture.HearBulk();
    fixture.TellDsp(engine == Engine::kHotword
                            ? wire::CMD_AUDIO_INPUT_HOTWORD_FORCE_RECOGNITION
                            : wire::CMD_AUDIO_INPUT_AMBIENT_MUSIC_FORCE_RECOGNITION);
    (void)fixture.callback().Wait();
    return fixture.hal().StartBufferingByIoHandle(io_handle, false);
}

Row ReadBuffer(const Options& options, Engine engine, int channels, const char* what) {
    Fixture fixture;
    const int engine_type = BeginCapture(fixture, engine);
    const bool is_hotword = engine == Engine::kHotword;
    const size_t raw_bytes = is_hotword ? kBulkBytes : kBulkBytes / 4;
    const size_t bytes = is_hotword && channels == 2 ? kBulkBytes : kBulkBytes / 2;
    const char* const node = is_hotword ? wire::kHotwordPcmDevice : wire::kAmbientPcmDevice;
    std::vector<char> raw(raw_bytes);
    std::vector<char> buffer(kBulkBytes);
    const Round library = [&] {
        fixture.HearBulk();
        const int64_t started = NowNs();
        const int got = fixture.hal().ReadBuffer(engine_type, buffer.data(),
                                                 static_cast<uint32_t>(bytes), channels);
        const int64_t took = NowNs() - started;
        if (got != static_cast<int>(bytes)) std::exit(1);
        return took;
    };
    const Round bare = [&] {
        fixture.HearBulk();
        const int64_t started = NowNs();
        BareRead(node, raw);
        std::memcpy(buffer.data(), raw.data(), std::min(bytes, raw_bytes));
        return NowNs() - started;
    };
    return Compare(what, "open, poll, read, close, copy", options.Rounds(5000), library, bare,
                   1.05);
}

Row ReadBufferBesideALoad(const Options& options) {
    Fixture fixture;
    const int engine_type = BeginCapture(fixture, Engine::kHotword);
    const std::vector<uint8_t> model = Fixture::Model(Engine::kAmbientMusic, 16 * kMiB);
    std::vector<char> buffer(kBulkBytes);
    const auto read_once = [&] {
        fixture.HearBulk();
        const int64_t started = NowNs();
        (void)fixture.hal().ReadBuffer(engine_type, buffer.data(), kBulkBytes, 2);
        return NowNs() - started;
    };
    Samples beside;
    Samples alone;
    const int blocks = options.Rounds(40);
    for (int block = 0; block < blocks; ++block) {
        for (int i = 0; i < 100; ++i) alone.Add(read_once());
        std::atomic<bool> loaded{false};
        std::thread loader([&] {
            const int handle = fixture.Load(Engine::kAmbientMusic, model);
            loaded = true;
            fixture.Unload(handle);
        });
        while (!loaded) beside.Add(read_once());
        loader.join();
    }
    Row row;
    row.what = "ReadBuffer, 99th percentile, while a 16 MiB model loads";
    row.bare = "without the load";
    row.unit = "us";
    row.value = beside.Median() / 1e3;
    row.p99 = beside.P99() / 1e3;
    row.bare_value = alone.Median() / 1e3;
    row.bare_p99 = alone.P99() / 1e3;
    row.ratio = row.p99 / row.bare_p99;
    row.goal = 1.5;
    row.note = "ratio of the 99th percentiles, " + std::to_string(beside.count()) + " reads";
    return row;
}

// --- requests ---

Row LoadModel(const Options& options, size_t bytes, const char* what) {
    Fixture fixture;
    const std::vector<uint8_t> model = Fixture::Model(Engine::kHotword, bytes);
    const Round library = [&] {
        const auto prepared = fixture.Prepare(Engine::kHotword, model);
        const int64_t started = NowNs();
        const int handle = fixture.Load(prepared);
        const int64_t took = NowNs() - started;
        fixture.Unload(handle);
        return took;
    };
    const Round bare = [&] {
        const int64_t started = NowNs();
        BareLoad(model, wire::CMD_AUDIO_INPUT_HOTWORD_WRITE_MODEL,
                 wire::CMD_AUDIO_INPUT_HOTWORD_LOAD_MODEL);
        const int64_t took = NowNs() - started;
        BareCommand(wire::CMD_AUDIO_INPUT_HOTWORD_UNLOAD_MODEL);
        return took;
    };
    const int rounds = options.Rounds(bytes < kMiB ? 400 : bytes < 16 * kMiB ? 60 : 15);
    Row row =
            Compare(what, "open, write and command per chunk, close", rounds, library, bare, 1.05);
    row.note =
            "the library also reads the model's bytes from its descriptor, and the harness makes "
            "that descriptor";
    return row;
}

// The same with the one read that the job needs besides: the model from its descriptor into memory
// of its own.
Row LoadModelWithRead(const Options& options) {
    Fixture fixture;
    const std::vector<uint8_t> model = Fixture::Model(Engine::kHotword, 16 * kMiB);
    const Round library = [&] {
        const auto prepared = fixture.Prepare(Engine::kHotword, model);
        const int64_t started = NowNs();
        const int handle = fixture.Load(prepared);
        const int64_t took = NowNs() - started;
        fixture.Unload(handle);
        return took;
    };
    const Round bare = [&] {
        const auto prepared = fixture.Prepare(Engine::kHotword, model);
        const int64_t started = NowNs();
        const std::unique_ptr<uint8_t, void (*)(void*)> bytes(
                static_cast<uint8_t*>(std::calloc(model.size(), 1)), std::free);
        if (read(prepared.data.get(), bytes.get(), model.size()) < 0) std::exit(1);
        BareLoad({bytes.get(), model.size()}, wire::CMD_AUDIO_INPUT_HOTWORD_WRITE_MODEL,
                 wire::CMD_AUDIO_INPUT_HOTWORD_LOAD_MODEL);
        const int64_t took = NowNs() - started;
        BareCommand(wire::CMD_AUDIO_INPUT_HOTWORD_UNLOAD_MODEL);
        return took;
    };
    return Compare("LoadModel, 16 MiB", "the same after reading the descriptor", options.Rounds(15),
                   library, bare, 1.05);
}

Row StartStop(const Options& options) {
    Fixture fixture;
    const int handle = fixture.Load(Engine::kHotword, Fixture::Model(Engine::kHotword, 0));
    // Each on its own: between the two, the control thread looks at its new wait set, as it does on
    // a phone long before a recognition is stopped again.
    const auto both = [](const std::function<void()>& start, const std::function<void()>& stop) {
        return [start = Timed(start), stop = Timed(stop)] {
            const int64_t started_ns = start();
            Settle();
            const int64_t stopped_ns = stop();
            Settle();
            return started_ns + stopped_ns;
        };
    };
    return Compare("start and stop recognition", "the same two commands", options.Rounds(2000),
                   both([&] { fixture.Start(handle, kIoHandle); }, [&] { fixture.Stop(handle); }),
                   both([] { BareCommand(wire::CMD_AUDIO_INPUT_HOTWORD_START); },
                        [] { BareCommand(wire::CMD_AUDIO_INPUT_HOTWORD_STOP); }),
                   1.10);
}

Row OnlineReport(const Options& options) {
    Fixture fixture;
    const std::vector<uint8_t> hotword = Fixture::Model(Engine::kHotword, 64 * kKiB);
    const std::vector<uint8_t> ambient = Fixture::Model(Engine::kAmbientMusic, 64 * kKiB);
    for (const int handle :
         {fixture.Load(Engine::kHotword, hotword), fixture.Load(Engine::kHotword, hotword),
          fixture.Load(Engine::kAmbientMusic, ambient)}) {
        fixture.Start(handle, kIoHandle + handle);
    }
    const Round library = [&] {
        fixture.hal().OnSoundCardStateChanged(false);
        Settle();
        const int64_t started = NowNs();
        fixture.hal().OnSoundCardStateChanged(true);
        const int64_t took = NowNs() - started;
        Settle();
        return took;
    };
    const Round bare = [&] {
        const int64_t started = NowNs();
        for (int i = 0; i < 2; ++i) {
            BareLoad(hotword, wire::CMD_AUDIO_INPUT_HOTWORD_WRITE_MODEL,
                     wire::CMD_AUDIO_INPUT_HOTWORD_LOAD_MODEL);
            BareCommand(wire::CMD_AUDIO_INPUT_HOTWORD_START);
        }
        BareLoad(ambient, wire::CMD_AUDIO_INPUT_AMBIENT_MUSIC_WRITE_MODEL,
                 wire::CMD_AUDIO_INPUT_AMBIENT_MUSIC_LOAD_MODEL);
        BareCommand(wire::CMD_AUDIO_INPUT_AMBIENT_MUSIC_START);
        BareCommand(wire::CMD_AUDIO_INPUT_MIC_SWAP_DISABLE);
        BareValueCommand(wire::CMD_AUDIO_INPUT_SET_REFERENCE_SOURCE, 0);
        BareApProcessCommand(false);
        for (const uint16_t id : {275, 277, 279, 299, 297, 345, 346, 347}) BareValueCommand(id, 0);
        return NowNs() - started;
    };
    return Compare("online report, three models of 64 KiB started", "the same writes and commands",
                   options.Rounds(300), library, bare, 1.10);
}

// --- mu-law ---

constexpr size_t kSamples = 1024;

std::vector<uint8_t> MulawSamples() {
    std::vector<uint8_t> codes(kSamples);
    for (size_t i = 0; i < codes.size(); ++i) codes[i] = static_cast<uint8_t>(i * 37);
    return codes;
}

// A thousand expansions are one round: one alone is too short for the clock.
constexpr int kBatch = 1000;

struct MemoryFile {
    const std::vector<uint8_t>* bytes;
    sf_count_t at = 0;
};

// libsndfile's decoder, reading headerless mu-law from memory.
class SndfileDecoder {
  public:
    explicit SndfileDecoder(const std::vector<uint8_t>& codes) : file_{&codes} {
        static SF_VIRTUAL_IO io{
                [](void* user) {
                    return static_cast<sf_count_t>(static_cast<MemoryFile*>(user)->bytes->size());
                },
                [](sf_count_t offset, int whence, void* user) {
                    auto* const file = static_cast<MemoryFile*>(user);
                    const auto size = static_cast<sf_count_t>(file->bytes->size());
                    if (whence == SEEK_SET) file->at = offset;
                    if (whence == SEEK_CUR) file->at += offset;
                    if (whence == SEEK_END) file->at = size + offset;
                    return file->at;
                },
                [](void* out, sf_count_t count, void* user) {
                    auto* const file = static_cast<MemoryFile*>(user);
                    const auto size = static_cast<sf_count_t>(file->bytes->size());
                    count = std::min(count, size - file->at);
                    std::memcpy(out, file->bytes->data() + file->at, static_cast<size_t>(count));
                    file->at += count;
                    return count;
                },
                [](const void*, sf_count_t, void*) { return sf_count_t{0}; },
                [](void* user) { return static_cast<MemoryFile*>(user)->at; }};
        SF_INFO info{};
        info.samplerate = 16000;
        info.channels = 1;
        info.format = SF_FORMAT_RAW | SF_FORMAT_ULAW;
        sound_ = sf_open_virtual(&io, SFM_READ, &info, &file_);
        if (sound_ == nullptr) std::exit(1);
    }
    ~SndfileDecoder() { (void)sf_close(sound_); }

    void Decode(int16_t* out) {
        (void)sf_seek(sound_, 0, SEEK_SET);
        (void)sf_readf_short(sound_, out, kSamples);
    }

  private:
    MemoryFile file_;
    SNDFILE* sound_ = nullptr;
};

std::vector<Row> Mulaw(const Options& options) {
    const std::vector<uint8_t> codes = MulawSamples();
    std::vector<int16_t> linear(kSamples);
    const std::vector<int16_t> source(kSamples, 1);
    const Round library = Timed([&] {
        for (int i = 0; i < kBatch; ++i) {
            wire::ExpandMulaw(codes, reinterpret_cast<char*>(linear.data()));
            asm volatile("" : : "r"(linear.data()) : "memory");
        }
    });
    const Round copy = Timed([&] {
        for (int i = 0; i < kBatch; ++i) {
            std::memcpy(linear.data(), source.data(), kSamples * sizeof(int16_t));
            asm volatile("" : : "r"(linear.data()) : "memory");
        }
    });
    SndfileDecoder decoder(codes);
    const Round sndfile = Timed([&] {
        for (int i = 0; i < kBatch; ++i) decoder.Decode(linear.data());
    });
    Row to_copy = Compare("mu-law expansion of 1024 samples, 1000 times", "memcpy of the output",
                          options.Rounds(300), library, copy, std::nullopt);
    to_copy.note = "shown, not judged";
    Row to_sndfile = Compare("mu-law expansion of 1024 samples, 1000 times",
                             "libsndfile's decoder, from memory", options.Rounds(300), library,
                             sndfile, 1.0);
    return {to_copy, to_sndfile};
}

// --- what is not time ---

Row AllocationsPerRead() {
    Fixture fixture;
    const int engine_type = BeginCapture(fixture, Engine::kHotword);
    std::vector<char> buffer(kBulkBytes);
    constexpr int kReads = 100;
    uint64_t allocated = 0;
    for (int i = 0; i <= kReads; ++i) {
        fixture.HearBulk();
        const uint64_t before = Allocations();
        (void)fixture.hal().ReadBuffer(engine_type, buffer.data(), kBulkBytes, 2);
        allocated += Allocations() - before;
    }
    Row row;
    row.what = "heap allocations per ReadBuffer, the first one included";
    row.unit = "allocations";
    row.value = static_cast<double>(allocated) / (kReads + 1);
    row.goal = 0;
    return row;
}

Row AllocationsPerPosition() {
    Fixture fixture;
    (void)BeginCapture(fixture, Engine::kHotword);
    soundtrigger::SoundTriggerDriverOperations stream(&fixture.hal(), kIoHandle, 2, false);
    long frames = 0;
    long time_ns = 0;
    (void)stream.GetPosition(frames, time_ns);  // What is set up once is by now.
    const uint64_t before = Allocations();
    for (int i = 0; i < 1000; ++i) (void)stream.GetPosition(frames, time_ns);
    Row row;
    row.what = "heap allocations per position report";
    row.unit = "allocations";
    row.value = static_cast<double>(Allocations() - before) / 1000;
    row.goal = 0;
    return row;
}

struct ThreadUse {
    uint64_t wake_ups = 0;
    uint64_t cpu_ticks = 0;
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
        std::ifstream stat(task.path() / "stat");
        std::string field;
        for (int i = 1; i <= 13; ++i) stat >> field;
        uint64_t user = 0;
        uint64_t system = 0;
        stat >> user >> system;
        use.cpu_ticks = user + system;
        return use;
    }
    return {};
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
    cpu.unit = "ticks of 10 ms";
    cpu.value = static_cast<double>(after.cpu_ticks - before.cpu_ticks);
    return {wake_ups, cpu};
}

Row MemoryPerModel() {
    Fixture fixture;
    const std::vector<uint8_t> model = Fixture::Model(Engine::kHotword, 64 * kKiB);
    fixture.Unload(fixture.Load(Engine::kHotword, model));  // What is allocated once is by now.
    fixture.hal().OnSoundCardStateChanged(false);           // The board keeps no copy then.
    const size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
    const int handle = fixture.Load(Engine::kHotword, model);
    const size_t after = mallinfo2().uordblks + mallinfo2().hblkhd;
    fixture.Unload(handle);
    Row row;
    row.what = "memory of a loaded model beyond its own bytes";
    row.unit = "bytes";
    row.value = static_cast<double>(after) - static_cast<double>(before + model.size());
    row.note = "the client, its state object, its table entry, the uuids";
    return row;
}

Row LibrarySize(const std::string& file) {
    Row row;
    row.what = "the library, stripped";
    row.unit = "bytes";
    std::error_code error;
    row.value = static_cast<double>(std::filesystem::file_size(file, error));
    row.note = error ? "not found: " + error.message() : "code, tables and dynamic symbols";
    return row;
}

void Show(const char* what) {
    std::cerr << "measuring " << what << "...\n";
}

std::vector<Row> MeasureTimes(const Options& options, bool logging) {
    Fixture::SetLogging(logging);
    std::vector<Row> rows;
    const auto add = [&](Row row) {
        row.logging = logging ? "default" : "off";
        rows.push_back(std::move(row));
    };
    Show("detection");
    add(Detection(options));
    Show("ReadBuffer");
    add(ReadBuffer(options, Engine::kHotword, 1, "ReadBuffer, hotword, 1 channel"));
    add(ReadBuffer(options, Engine::kHotword, 2, "ReadBuffer, hotword, 2 channels"));
    add(ReadBuffer(options, Engine::kAmbientMusic, 1, "ReadBuffer, ambient"));
    Show("LoadModel");
    add(LoadModel(options, 64 * kKiB, "LoadModel, 64 KiB"));
    add(LoadModel(options, kMiB, "LoadModel, 1 MiB"));
    add(LoadModel(options, 16 * kMiB, "LoadModel, 16 MiB"));
    add(LoadModelWithRead(options));
    Show("start and stop");
    add(StartStop(options));
    Show("online report");
    add(OnlineReport(options));
    return rows;
}

int Run(int argc, char** argv) {
    CLI::App app{"Measures what the library adds to the system calls that its job needs.", "bench"};
    Options options;
    bool quick = false;
    app.add_option("--json", options.json_file, "write the figures to this file, too");
    app.add_option("--library", options.library_file, "the stripped library, for its size");
    app.add_flag("--quick", quick, "a tenth of the rounds, and 3 s of idling");
    CLI11_PARSE(app, argc, argv);
    if (quick) {
        options.scale = 0.1;
        options.idle_seconds = 3;
    }
    if (const auto status = virtual_dsp::EnterBoard(argc, argv)) return *status;

    std::vector<Row> rows;
    const auto append = [&](std::vector<Row> more) {
        rows.insert(rows.end(), more.begin(), more.end());
    };
    append(MeasureTimes(options, /*logging=*/true));
    append(MeasureTimes(options, /*logging=*/false));
    Fixture::SetLogging(true);
    Show("reads beside a load");
    rows.push_back(ReadBufferBesideALoad(options));
    Show("mu-law");
    append(Mulaw(options));
    Show("allocations");
    rows.push_back(AllocationsPerRead());
    rows.push_back(AllocationsPerPosition());
    rows.push_back(MemoryPerModel());
    if (!options.library_file.empty()) rows.push_back(LibrarySize(options.library_file));
    Show("idling");
    append(Idle(options));

    PrintTable(rows, std::cout);
    if (!options.json_file.empty()) {
        std::ofstream json(options.json_file);
        PrintJson(rows, json);
        if (!json) {
            std::cerr << "bench: cannot write " << options.json_file << '\n';
            return 1;
        }
    }
    return 0;
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    return bench::Run(argc, argv);
}
