// Long random runs of the HAL beside its oracle.
#include <android-base/logging.h>
#include <getopt.h>
#include <signal.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <optional>
#include <random>
#include <string>

#include "host/virtual_dsp/board/enter_board.h"
#include "tests/soak/memory_target.h"
#include "tests/soak/soak_run.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

constexpr char kHelp[] = R"(usage: soak [OPTIONS]

Runs the HAL through random framework calls, environment events, detections, captures, faults,
crashes and restarts, and compares it with an oracle after each step.

  --seed N     the run; the same one does the same. Random when not given.
  --steps N    how many; 100000 when not given
  --board      on the virtual board instead of a DSP in memory
  --verbose    with the HAL's log, on standard error
  --help       this text

Exit status: 0 without a finding, 1 with one, 2 for wrong arguments, 77 where no virtual board can
be had, 130 when interrupted.
)";

// A run is made of runs this long, each with a HAL and a DSP of its own, so that a finding is never
// far from the beginning.
constexpr uint64_t kMemoryRunSteps = 2000;
constexpr uint64_t kBoardRunSteps = 500;

constexpr std::chrono::seconds kShrinkPatience{30};

volatile sig_atomic_t is_interrupted = 0;

struct Options {
    std::optional<uint64_t> seed;
    uint64_t steps = 100'000;
    bool on_board = false;
    bool is_verbose = false;
};

uint64_t Number(const char* option, const char* text) {
    uint64_t number = 0;
    const char* const end = text + strlen(text);
    const auto [rest, error] = std::from_chars(text, end, number);
    if (error == std::errc() && rest == end && rest != text) return number;
    std::cerr << "soak: " << option << " wants a number, not '" << text << "'\n";
    exit(2);
}

Options ParseOptions(int argc, char** argv) {
    constexpr option kOptions[] = {
            {"seed", required_argument, nullptr, 's'}, {"steps", required_argument, nullptr, 'n'},
            {"board", no_argument, nullptr, 'b'},      {"verbose", no_argument, nullptr, 'v'},
            {"help", no_argument, nullptr, 'h'},       {nullptr, 0, nullptr, 0}};
    Options options;
    int choice;
    while ((choice = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
        switch (choice) {
            case 's':
                options.seed = Number("--seed", optarg);
                break;
            case 'n':
                options.steps = Number("--steps", optarg);
                break;
            case 'b':
                options.on_board = true;
                break;
            case 'v':
                options.is_verbose = true;
                break;
            case 'h':
                std::cout << kHelp;
                exit(0);
            default:
                std::cerr << kHelp;
                exit(2);
        }
    }
    if (optind < argc) {
        std::cerr << kHelp;
        exit(2);
    }
    return options;
}

// The seed of the `number`th run; the first one's is the user's own, so that any can be replayed.
uint64_t SeedOf(uint64_t seed, uint64_t number) {
    if (number == 0) return seed;
    uint64_t mixed = seed + number * 0x9E3779B97F4A7C15;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
    return mixed ^ (mixed >> 31);
}

class Soak {
  public:
    explicit Soak(const Options& options)
        : options_(options), seed_(options.seed.value_or(std::random_device()())) {
        make_target_ = [this]() -> std::unique_ptr<SoakTarget> {
            if (!options_.on_board) return std::make_unique<MemoryTarget>();
            auto target = MakeBoardTarget();
            if (!target.ok()) {
                std::cerr << "soak: " << target.error() << '\n';
                exit(::virtual_dsp::kBoardUnavailable);
            }
            return std::move(*target);
        };
    }

    int Run() {
        const uint64_t run_steps = options_.on_board ? kBoardRunSteps : kMemoryRunSteps;
        bool has_finding = false;
        for (uint64_t run = 0; counts_.steps < options_.steps && !is_interrupted; ++run) {
            const uint64_t seed = SeedOf(seed_, run);
            const uint64_t steps = std::min(run_steps, options_.steps - counts_.steps);
            if ((has_finding = Fails(seed, StepGenerator(seed, options_.on_board).Make(steps)))) {
                break;
            }
            ShowProgress();
        }
        Summarize(has_finding);
        if (has_finding) return 1;
        return is_interrupted ? 130 : 0;
    }

  private:
    bool Fails(uint64_t seed, std::vector<Step> steps) {
        const auto finding = RunSteps(steps, make_target_, &counts_);
        if (!finding) return false;
        steps.resize(finding->step + 1);
        std::cout << Erase() << "FINDING with seed " << seed << " at step " << finding->step << " ("
                  << ToText(steps.back()) << "):\n  " << finding->what << "\nreplay: soak --seed "
                  << seed << " --steps " << steps.size() << (options_.on_board ? " --board" : "")
                  << std::endl;
        const auto still_fails = [this](const std::vector<Step>& fewer) {
            SoakCounts ignored;
            return !is_interrupted && RunSteps(fewer, make_target_, &ignored).has_value();
        };
        steps = Shrink(std::move(steps), still_fails, kShrinkPatience);
        std::cout << "shortened to " << steps.size() << " steps:\n";
        for (const Step& step : steps) std::cout << "  " << ToText(step) << '\n';
        SoakCounts ignored;
        if (const auto last = RunSteps(steps, make_target_, &ignored)) {
            std::cout << "which ends with:\n  " << last->what << std::endl;
        }
        return true;
    }

    double Seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - began_).count();
    }

    const char* Erase() const { return is_terminal_ ? "\r\033[K" : ""; }

    void ShowProgress() const {
        if (!is_terminal_) return;
        std::cout << Erase() << "  " << counts_.steps << " of " << options_.steps << " steps, "
                  << static_cast<uint64_t>(static_cast<double>(counts_.steps) / Seconds()) << "/s"
                  << std::flush;
    }

    void Summarize(bool has_finding) const {
        std::printf(
                "%ssoak %s: seed %llu, %llu steps in %.1f s (%.0f/s), %llu events, %llu recoveries "
                "of the DSP, %llu second events after a restart of the DSP (expected), "
                "%s%s\n",
                Erase(), options_.on_board ? "on the board" : "in memory",
                static_cast<unsigned long long>(seed_),
                static_cast<unsigned long long>(counts_.steps), Seconds(),
                static_cast<double>(counts_.steps) / Seconds(),
                static_cast<unsigned long long>(counts_.events),
                static_cast<unsigned long long>(counts_.recoveries),
                static_cast<unsigned long long>(counts_.events_after_restart),
                has_finding ? "1 finding" : "no findings", is_interrupted ? ", interrupted" : "");
    }

    const Options options_;
    const uint64_t seed_;
    const bool is_terminal_ = isatty(STDOUT_FILENO) == 1;
    const std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
    TargetFactory make_target_;
    SoakCounts counts_;
};

}  // namespace

int RunSoak(int argc, char** argv) {
    const Options options = ParseOptions(argc, argv);
    if (options.on_board) {
        if (const auto status = ::virtual_dsp::EnterBoard(argc, argv)) return *status;
    }
    struct sigaction action = {};
    action.sa_handler = [](int) { is_interrupted = 1; };
    for (const int signal : {SIGINT, SIGTERM}) (void)sigaction(signal, &action, nullptr);
    using ::android::base::SetMinimumLogSeverity;
    SetMinimumLogSeverity(options.is_verbose ? ::android::base::VERBOSE : ::android::base::FATAL);
    if (options.is_verbose) ::android::base::SetLogger(::android::base::StderrLogger);
    return Soak(options).Run();
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger

int main(int argc, char** argv) {
    return vendor::quarno::brindlecove::audio::hal::soundtrigger::RunSoak(argc, argv);
}
