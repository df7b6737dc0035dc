// What the framework and the sound card monitor ask for.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "benchmarks/bare.h"
#include "benchmarks/fixture.h"
#include "benchmarks/rows.h"

namespace bench {

using virtual_dsp::Engine;

namespace {

constexpr char kSameCommands[] = "the same two commands";

struct ModelSize {
    size_t bytes;
    const char* name;
    int rounds;
};

void BareHotwordLoad(std::span<const uint8_t> model) {
    BareLoad(model, wire::CMD_AUDIO_INPUT_HOTWORD_WRITE_MODEL,
             wire::CMD_AUDIO_INPUT_HOTWORD_LOAD_MODEL);
}

// `with_read`: the bare loop, too, begins with the bytes in the framework's descriptor and reads
// them into memory of its own.
Row LoadModelOf(const Options& options, const ModelSize& size, bool with_read) {
    Fixture fixture;
    const std::vector<uint8_t> model = Fixture::Model(Engine::kHotword, size.bytes);
    const auto prepared = fixture.Prepare(Engine::kHotword, model);
    const Round library = [&] {
        Fixture::Rewind(prepared);
        const int64_t started = NowNs();
        const int handle = fixture.Load(prepared);
        const int64_t took = NowNs() - started;
        fixture.Unload(handle);
        return took;
    };
    const Round bare = [&] {
        Fixture::Rewind(prepared);
        const int64_t started = NowNs();
        std::unique_ptr<uint8_t, void (*)(void*)> own(nullptr, std::free);
        if (with_read) {
            own.reset(static_cast<uint8_t*>(std::malloc(model.size())));
            const ssize_t got = read(prepared.data.get(), own.get(), model.size());
            if (got != static_cast<ssize_t>(model.size())) std::exit(1);
        }
        BareHotwordLoad({with_read ? own.get() : model.data(), model.size()});
        const int64_t took = NowNs() - started;
        BareCommand(wire::CMD_AUDIO_INPUT_HOTWORD_UNLOAD_MODEL);
        return took;
    };
    return Compare(std::string("LoadModel, ") + size.name,
                   with_read ? "the same after reading the descriptor"
                             : "open, write and command per chunk, close",
                   options.Rounds(size.rounds), library, bare, 1.05);
}

// What a byte of a model 16 times as large costs, to one of the small model.
Row Growth(const Row& small, const Row& large) {
    Row row;
    row.what = "LoadModel, time of 16 MiB to 16 times that of 1 MiB";
    row.bare = large.bare;
    row.unit = "times";
    row.value = large.value / (16 * small.value);
    row.bare_value = large.bare_value / (16 * small.bare_value);
    row.ratio = row.value / row.bare_value;
    row.goal = 1.05;
    return row;
}

// Each on its own: between the two, the control thread looks at its new wait set, as it does on a
// phone long before a recognition is stopped again.
Round StartThenStop(const std::function<void()>& start, const std::function<void()>& stop) {
    return [start = Timed(start), stop = Timed(stop)] {
        const int64_t started_ns = start();
        Settle();
        const int64_t stopped_ns = stop();
        Settle();
        return started_ns + stopped_ns;
    };
}

Round BareStartThenStop() {
    return StartThenStop([] { BareCommand(wire::CMD_AUDIO_INPUT_HOTWORD_START); },
                         [] { BareCommand(wire::CMD_AUDIO_INPUT_HOTWORD_STOP); });
}

}  // namespace

std::vector<Row> LoadModel(const Options& options) {
    constexpr ModelSize kSmall{64 * kKiB, "64 KiB", 400};
    constexpr ModelSize kMedium{kMiB, "1 MiB", 60};
    constexpr ModelSize kLarge{16 * kMiB, "16 MiB", 20};
    std::vector<Row> rows;
    for (const bool with_read : {false, true}) {
        for (const ModelSize& size : {kSmall, kMedium, kLarge}) {
            rows.push_back(LoadModelOf(options, size, with_read));
            if (with_read) continue;
            rows.back().note = "the library reads the descriptor besides";
        }
        rows.push_back(Growth(rows[rows.size() - 2], rows.back()));
    }
    return rows;
}

std::vector<Row> StartStop(const Options& options) {
    Fixture fixture;
    const int handle = fixture.Load(Engine::kHotword, Fixture::Model(Engine::kHotword, 0));
    const Round library =
            StartThenStop([&] { fixture.Start(handle, kIoHandle); }, [&] { fixture.Stop(handle); });
    const char* const what = "start and stop recognition";
    Arrival nothing;
    BareListener listener(&nothing);
    const PinnedThreads pinned;
    Row commands =
            Compare(what, kSameCommands, options.Rounds(2000), library, BareStartThenStop(), 1.10);
    commands.note = "the library wakes its control thread besides";
    const Round waking = StartThenStop(
            [&] {
                BareCommand(wire::CMD_AUDIO_INPUT_HOTWORD_START);
                listener.Watch(true);
            },
            [&] {
                BareCommand(wire::CMD_AUDIO_INPUT_HOTWORD_STOP);
                listener.Watch(false);
            });
    return {commands, Compare(what, "the same two commands and a word to a thread in select",
                              options.Rounds(2000), library, waking, 1.10)};
}

Row Noise(const Options& options) {
    Fixture fixture;
    (void)fixture.Load(Engine::kHotword, Fixture::Model(Engine::kHotword, 0));
    Row row = Compare("noise: two commands, bare", kSameCommands, options.Rounds(2000),
                      BareStartThenStop(), BareStartThenStop(), std::nullopt);
    row.note = "would be 1 on a machine that does nothing else";
    return row;
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
    const PinnedThreads pinned;
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

}  // namespace bench
