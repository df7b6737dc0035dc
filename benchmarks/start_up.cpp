// The system calls of a start: counted by strace, on a run of this program that does nothing else.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "benchmarks/fixture.h"
#include "benchmarks/rows.h"
#include "host/virtual_dsp/board/board.h"
#include "host/virtual_dsp/board/example_tuning.h"

namespace bench {

namespace {

// Nothing else here calls it, so it shows in the trace where what is counted begins and ends.
constexpr char kMarker[] = "getppid";

using Counts = std::map<std::string, int>;

// Calls by name: those of the thread that sets the marks, while they are set, and all of a thread
// that is first heard of after the first mark.
Counts Count(std::istream& trace) {
    Counts counts;
    std::set<std::string> older_threads;
    std::string marking;
    bool is_marked = false;
    for (std::string line; std::getline(trace, line);) {
        const size_t space = line.find(' ');
        const size_t name_at = line.find_first_not_of(' ', space);
        if (space == std::string::npos || name_at == std::string::npos) continue;
        const std::string thread = line.substr(0, space);
        const size_t name_end = line.find('(', name_at);
        // The second half of a call that was interrupted by a line of another thread, or an exit.
        if (name_end == std::string::npos || line[name_at] == '<' || line[name_at] == '+') continue;
        const std::string name = line.substr(name_at, name_end - name_at);
        if (name == kMarker) {
            marking = thread;
            is_marked = !is_marked;
        } else if (marking.empty()) {
            older_threads.insert(thread);
        } else if (thread == marking ? is_marked : !older_threads.contains(thread)) {
            ++counts[name];
        }
    }
    return counts;
}

bool Trace(const std::string& trace_file) {
    // By its name here: to strace, /proc/self/exe would be strace.
    std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    std::vector<std::string> command{"strace", "-f", "-qq", "-o", trace_file, self, kStartUpOption};
    std::vector<char*> arguments;
    for (std::string& word : command) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawnp(&pid, "strace", nullptr, nullptr, arguments.data(), environ) != 0)
        return false;
    int status = 0;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

void StartUp() {
    Fixture::SetLogging(false);
    const auto created = virtual_dsp::Board::Create({});
    if (!created.ok()) std::exit(1);
    virtual_dsp::Board* const board = created->get();
    board->SetTuningFile(virtual_dsp::ExampleTuningFile());
    (void)getppid();
    const auto hal = soundtrigger::SoundTriggerHalBuilder::BuildSoundTriggerHal();
    (void)hal->Initialize();
    (void)getppid();
    const auto settle = [] { std::this_thread::sleep_for(std::chrono::milliseconds(200)); };
    settle();
    (void)getppid();
    hal->OnSoundCardStateChanged(true);
    (void)getppid();
    settle();
    _exit(0);  // What comes of the end is not of the start.
}

Row StartUpCalls() {
    Row row;
    row.what = "system calls of a start: built, initialised, reported online";
    row.unit = "calls";
    char trace_file[] = "/tmp/start_up_XXXXXX";
    const int fd = mkstemp(trace_file);
    if (fd >= 0) (void)close(fd);
    const bool is_traced = fd >= 0 && Trace(trace_file);
    std::ifstream trace(trace_file);
    const Counts counts = Count(trace);
    (void)unlink(trace_file);
    if (!is_traced || counts.empty()) {
        row.note = "not counted: strace is missing or may not trace";
        return row;
    }
    std::vector<std::pair<int, std::string>> by_count;
    for (const auto& [name, count] : counts) {
        row.value += count;
        by_count.emplace_back(count, name);
    }
    std::sort(by_count.rbegin(), by_count.rend());
    for (const auto& [count, name] : by_count) {
        row.note += (row.note.empty() ? "" : ", ") + name + ' ' + std::to_string(count);
    }
    return row;
}

}  // namespace bench
