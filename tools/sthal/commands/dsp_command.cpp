#include "tools/sthal/commands/dsp_command.h"

#include <poll.h>
#include <sys/mount.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <utility>

#include "host/virtual_dsp/board/board.h"
#include "host/virtual_dsp/dsp/sample_pattern.h"
#include "host/virtual_dsp/nodes/fault_text.h"
#include "tools/audio/wav.h"
#include "tools/sthal/commands/interrupt.h"

namespace sthal {

namespace {

using virtual_dsp::Board;

constexpr int kCannotServe = 1;
constexpr int kWrongRule = 2;

// An interrupt that comes just before a wait is noticed after this long.
constexpr int kLookAgainMs = 200;
constexpr std::chrono::seconds kAwaitLimit{10};

constexpr char kFooter[] =
        "With --control, each line of the standard input is a request, and is answered by one "
        "line\n"
        "that begins with 'ok' or 'error'; the end of the input ends the DSP:\n"
        "  play FILE            let the microphones hear a WAV file, to its end\n"
        "  pattern FRAME COUNT  the same for test audio of which every sample is known\n"
        "  fault RULE           add a rule, e.g. fault on command reply id=227 times=1 hang\n"
        "  await RULE COUNT     wait until a rule, counted from 0, has fired so often (10 s)\n"
        "  clear                drop all rules and let go what hangs by them\n"
        "  engine NUMBER        what an engine holds and does\n"
        "  journal              what happened since the last time: 'ok N', then N lines\n\n"
        "Exit status: 0 it was told to end, 1 the nodes cannot be served, 2 wrong arguments, 77 no "
        "virtual board can be had here.";

std::string Error(const std::string& reason) {
    return "error " + reason;
}

/** What the other process may ask for: one line in, one answer out. */
class Control {
  public:
    explicit Control(Board& board) : board_(board) {}

    std::string Answer(const std::string& line) {
        std::istringstream words(line);
        std::string request;
        words >> request;
        if (request == "play") return Play(words);
        if (request == "pattern") return Pattern(words);
        if (request == "fault") return AddFault(line.substr(line.find("fault") + 5));
        if (request == "await") return Await(words);
        if (request == "clear") {
            board_.faults().Clear();
            return "ok";
        }
        if (request == "engine") return Engine(words);
        if (request == "journal") return Journal();
        return Error("no request: " + line);
    }

  private:
    std::string Hear(std::vector<int16_t> samples) {
        return board_.microphone().Play(std::move(samples)).get() ? "ok" : Error("broken off");
    }

    std::string Play(std::istream& words) {
        std::string path;
        std::getline(words >> std::ws, path);
        const auto wav = audio::ReadWav(path, audio::Channels::kStereo);
        return wav ? Hear(wav->sound.samples) : Error(wav.error);
    }

    std::string Pattern(std::istream& words) {
        uint64_t frame = 0;
        size_t count = 0;
        if (!(words >> frame >> count)) return Error("pattern FRAME COUNT");
        return Hear(virtual_dsp::PatternFrames(frame, count));
    }

    std::string AddFault(const std::string& rule) {
        std::string error;
        const auto script = virtual_dsp::ParseFaults(rule, &error);
        if (!script) return Error(error);
        if (script->rules.size() != 1) return Error("fault RULE");
        return "ok " + std::to_string(board_.faults().Add(script->rules.front()));
    }

    std::string Await(std::istream& words) {
        size_t rule = 0;
        uint64_t count = 0;
        if (!(words >> rule >> count)) return Error("await RULE COUNT");
        return board_.faults().WaitUntilFired(rule, count, kAwaitLimit) ? "ok" : Error("not fired");
    }

    std::string Engine(std::istream& words) {
        int number = 0;
        if (!(words >> number) || number < 1 || number > 3) return Error("engine 1, 2 or 3");
        const auto view = board_.dsp().engine(static_cast<virtual_dsp::Engine>(number));
        std::ostringstream text;
        text << "ok loaded=" << view.model_loaded << " detecting=" << view.detecting
             << " bytes=" << view.model_bytes << " crc32=" << view.model_crc32;
        return text.str();
    }

    std::string Journal() {
        const auto entries = board_.dsp().journal().Snapshot();
        board_.dsp().journal().Clear();
        std::string text = "ok " + std::to_string(entries.size());
        for (const auto& entry : entries) text += "\n" + entry.source + ": " + entry.text;
        return text;
    }

    Board& board_;
};

/** Lines of the standard input, as they come; ends with it or with an interrupt. */
class Requests {
  public:
    std::optional<std::string> Next() {
        while (!Interrupted()) {
            const size_t end = pending_.find('\n');
            if (end != std::string::npos) {
                std::string line = pending_.substr(0, end);
                pending_.erase(0, end + 1);
                return line;
            }
            pollfd input{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
            if (poll(&input, 1, kLookAgainMs) <= 0) continue;
            char bytes[512];
            const ssize_t count = read(STDIN_FILENO, bytes, sizeof(bytes));
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) break;
            pending_.append(bytes, static_cast<size_t>(count));
        }
        return std::nullopt;
    }

  private:
    std::string pending_;
};

// A server that was killed leaves its mount behind, on which every call fails.
void TakeAwayDeadNodes(const std::string& directory) {
    struct statfs status {};
    while (statfs(directory.c_str(), &status) != 0 && errno == ENOTCONN) {
        if (umount2(directory.c_str(), MNT_DETACH) != 0) return;
    }
}

void WaitForInterrupt() {
    while (!Interrupted()) (void)poll(nullptr, 0, kLookAgainMs);
}

}  // namespace

DspCommand::DspCommand(CLI::App& app) : directory_(virtual_dsp::kBoardDirectory) {
    CLI::App* const dsp = app.add_subcommand(
            "dsp",
            "Serve the DSP's device nodes alone, for a HAL in another process on the board.");
    dsp->footer(kFooter);
    dsp->add_option("--directory", directory_, "where to mount the nodes")->capture_default_str();
    dsp->add_option("--speed", speed_, "let the microphones hear so many times faster; 0: at once")
            ->capture_default_str()
            ->check(CLI::Range(0.0, 16.0));
    dsp->add_option("--fault", faults_, "a fault rule as docs/virtual_board.md has them")
            ->allow_extra_args(false);
    dsp->add_flag("--control", control_, "take requests from the standard input (see below)");
    dsp->callback([this] { chosen_ = true; });
}

int DspCommand::Run() const {
    TakeAwayDeadNodes(directory_);
    virtual_dsp::BoardOptions options;
    options.directory = directory_;
    options.microphone.speed = speed_;
    std::string error;
    const std::unique_ptr<Board> board = Board::Create(options, &error);
    if (board == nullptr) {
        std::cerr << "sthal dsp: " << error << '\n';
        return kCannotServe;
    }
    Control control(*board);
    for (const std::string& rule : faults_) {
        const std::string answer = control.Answer("fault " + rule);
        if (answer.starts_with("ok")) continue;
        std::cerr << "sthal dsp: --fault " << rule << ": " << answer << '\n';
        return kWrongRule;
    }
    std::cout << "ready: process " << getpid() << " serves " << directory_ << std::endl;
    if (!control_) {
        WaitForInterrupt();
        return 0;
    }
    Requests requests;
    while (const auto line = requests.Next()) std::cout << control.Answer(*line) << std::endl;
    return 0;
}

}  // namespace sthal
