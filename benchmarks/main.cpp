// ./dev bench: what the library adds to the system calls that its job needs.
#include <sys/utsname.h>

#include <CLI/CLI.hpp>

#include <fstream>
#include <iostream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "benchmarks/fixture.h"
#include "benchmarks/measure.h"
#include "benchmarks/rows.h"
#include "host/virtual_dsp/board/enter_board.h"

namespace bench {

namespace {

// What the figures were made on, and how busy it was.
std::string Machine() {
    utsname kernel{};
    (void)uname(&kernel);
    std::string load;
    std::getline(std::ifstream("/proc/loadavg"), load, ' ');
    return std::to_string(std::thread::hardware_concurrency()) + " processors, " + kernel.machine +
           ", kernel " + kernel.release + ", load " + load + " at the end";
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
    for (Row& row : ReadBuffer(options)) add(std::move(row));
    Show("LoadModel");
    for (Row& row : LoadModel(options)) add(std::move(row));
    Show("start and stop");
    for (Row& row : StartStop(options)) add(std::move(row));
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
    Show("noise");
    rows.push_back(Noise(options));
    append(MeasureTimes(options, /*logging=*/true));
    append(MeasureTimes(options, /*logging=*/false));
    Fixture::SetLogging(true);
    Show("reads beside a load");
    rows.push_back(ReadBufferBesideALoad(options));
    Show("log lines");
    rows.push_back(LogLines(options));
    Show("mu-law");
    append(Mulaw(options));
    Show("allocations");
    append(AllocationRows());
    rows.push_back(MemoryPerModel());
    if (!options.library_file.empty()) rows.push_back(LibrarySize(options.library_file));
    rows.push_back(StartUpCalls());
    Show("idling");
    append(Idle(options));

    std::cout << Machine() << "\n\n";
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
    if (argc == 2 && std::string_view(argv[1]) == bench::kStartUpOption) {
        bench::StartUp();  // On the board already: see StartUpCalls().
    }
    return bench::Run(argc, argv);
}
