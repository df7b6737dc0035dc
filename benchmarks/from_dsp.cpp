// Detections and captured audio.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/bare.h"
#include "benchmarks/fixture.h"
#include "benchmarks/rows.h"

namespace bench {

using virtual_dsp::Engine;

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
    BareListener listener(&bare_arrival);
    const PinnedThreads pinned;
    const Round bare = [&] {
        BareCommand(wire::CMD_AUDIO_INPUT_HOTWORD_START);
        listener.Watch(true);
        Settle();
        const int64_t written = NowNs();
        fixture.TellDsp(wire::CMD_AUDIO_INPUT_HOTWORD_FORCE_RECOGNITION);
        const int64_t entered = bare_arrival.Wait();
        BareCommand(wire::CMD_AUDIO_INPUT_HOTWORD_STOP);
        listener.Watch(false);
        Settle();
        return entered - written;
    };
    return Compare("record written to callback entered", "select, read, call", options.Rounds(2000),
                   library, bare, 1.15);
}

namespace {

Row ReadBufferOf(const Options& options, Engine engine, int channels, const char* what) {
    Fixture fixture;
    const int engine_type = fixture.BeginCapture(engine);
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

}  // namespace

std::vector<Row> ReadBuffer(const Options& options) {
    return {ReadBufferOf(options, Engine::kHotword, 1, "ReadBuffer, hotword, 1 channel"),
            ReadBufferOf(options, Engine::kHotword, 2, "ReadBuffer, hotword, 2 channels"),
            ReadBufferOf(options, Engine::kAmbientMusic, 1, "ReadBuffer, ambient")};
}

Row ReadBufferBesideALoad(const Options& options) {
    Fixture fixture;
    const int engine_type = fixture.BeginCapture(Engine::kHotword);
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

}  // namespace bench
