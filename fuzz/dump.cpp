// A dump request: arguments, indentation, tags, and descriptors of every kind, closed ones and
// pipes without a reader among them.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "audio/hal/utils/dumpsys/dumpsys.h"
#include "fuzz/scripted_nodes.h"
#include "tests/support/model.h"

namespace fuzz {

namespace {

using ::ndk::ScopedFileDescriptor;
using soundtrigger::MemoryFile;
using soundtrigger::ModelOf;
using soundtrigger::SoundModelType;
using soundtrigger::TextOf;
using utils::dumpsys::Dumpsys;
using utils::dumpsys::DumpsysInfo;

constexpr uint8_t kFirstUnwritable = 192;
constexpr size_t kHalLines = 4;

ScopedFileDescriptor Unwritable(uint8_t kind) {
    if (kind % 5 == 0) return ScopedFileDescriptor(-1);
    if (kind % 5 == 1) return ScopedFileDescriptor(1'000'000'000);  // No process has so many.
    if (kind % 5 == 2) return ScopedFileDescriptor(open("/dev/full", O_WRONLY | O_CLOEXEC));
    if (kind % 5 == 3) return ScopedFileDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
    int ends[2];
    Require(pipe2(ends, O_CLOEXEC) == 0, "(there is a pipe)");
    close(ends[0]);
    return ScopedFileDescriptor(ends[1]);
}

// A line as it is where nothing is indented, which is by so many columns.
struct Line {
    std::string tag;
    size_t columns;
    std::string text;
};

// A dump of everything, in its lines.
std::vector<Line> LinesOf(soundtrigger::SoundTriggerHal* hal) {
    const auto file = MemoryFile();
    hal->Dump(DumpsysInfo(file.get()));
    const std::string text = TextOf(file);
    std::vector<Line> lines;
    for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
        const size_t first = text.find_first_not_of(' ', at);
        lines.push_back({lines.size() < kHalLines ? "StHal::SoundTriggerHal" : "StHal::Client",
                         first - at, text.substr(first, text.find('\n', at) + 1 - first)});
    }
    return lines;
}

// What a request shows of these lines.
std::string Select(const std::vector<Line>& lines, const DumpsysInfo& request) {
    std::string shown;
    for (const Line& line : lines) {
        bool is_selected = request.args.empty() || line.tag.empty();
        for (const auto arg : request.args)
            is_selected |= line.tag.compare(0, arg.size(), arg) == 0;
        if (!is_selected) continue;
        const auto indentation = static_cast<size_t>(std::max(request.indentation, 0));
        shown += std::string(std::min<size_t>(indentation + line.columns, 44), ' ') + line.text;
    }
    return shown;
}

}  // namespace

void Run(Input input) {
    ScriptedNodes nodes;
    soundtrigger::SoundTriggerHal hal(MakeAdapter());
    for (int left = input.Take<uint8_t>() % 4; left > 0; --left) {
        int handle = 0;
        Require(hal.LoadSoundModel(ModelOf(SoundModelType::GENERIC, std::to_string(left)), nullptr,
                                   &handle) == 0,
                "a model is loaded");
    }
    const std::vector<Line> lines = LinesOf(&hal);
    while (!input.empty()) {
        const auto kind = input.Take<uint8_t>();
        const auto file = kind < kFirstUnwritable ? MemoryFile() : Unwritable(kind);
        DumpsysInfo request(file.get());
        request.indentation = input.Take<int32_t>();
        const std::string tag = input.TakeText();
        const std::string text = input.TakeText();
        std::vector<std::string> args(input.Take<uint8_t>() % 4);
        for (std::string& arg : args) arg = input.TakeText();
        request.args.assign(args.begin(), args.end());

        // A copy writes to what the request was made for. A SIGPIPE would end the process here.
        Dumpsys(DumpsysInfo(request), tag) << text;
        hal.Dump(request);

        sigset_t pending;
        sigpending(&pending);
        Require(sigismember(&pending, SIGPIPE) == 0, "no signal is left behind");
        if (kind >= kFirstUnwritable) continue;
        Require(TextOf(file) == Select({{tag, 0, text + "\n"}}, request) + Select(lines, request),
                "the lines whose tag begins like an argument, each with the indentation");
    }
}

std::map<std::string, Bytes> Seeds() {
    std::map<std::string, Bytes> seeds;
    for (const int32_t indentation : {0, 40, 50, -1, INT32_MAX, INT32_MIN}) {
        seeds["indentation" + std::to_string(indentation)] =
                Join(U8(3), U8(0), indentation, Text("StHal::Tag"), Text("a line"), U8(0));
    }
    for (const char* arg : {"", "StHal::", "StHal::Client", "StHal::SoundTriggerHal", "none"}) {
        seeds["argument " + std::string(arg)] =
                Join(U8(1), U8(0), int32_t{2}, Text("StHal::Client"), Text("a line"), U8(2),
                     Text(arg), Text("StHal::SoundTriggerDriver"));
    }
    for (int kind = kFirstUnwritable; kind < kFirstUnwritable + 5; ++kind) {
        seeds["unwritable " + std::to_string(kind)] =
                Join(U8(1), U8(kind), int32_t{2}, Text(""), Text("a line"), U8(0));
    }
    return seeds;
}

}  // namespace fuzz
