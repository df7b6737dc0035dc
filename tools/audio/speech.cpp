#include "tools/audio/speech.h"

#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tools/audio/wav.h"

namespace sthal::audio {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;
using Clock = std::chrono::steady_clock;

constexpr size_t kMaxTextBytes = 4000;
constexpr rlim_t kMaxOutputBytes = rlim_t{64} << 20;

// 0 or an errno. No shell: the arguments reach the program as they are.
int Start(std::vector<std::string> arguments, int output, unique_fd* messages, pid_t* pid) {
    unique_fd messages_end;
    if (!android::base::Pipe(messages, &messages_end)) return errno;
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    if (const int error = posix_spawn_file_actions_init(&actions); error != 0) return error;
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, messages_end.get(), STDERR_FILENO);
    const int error = posix_spawnp(pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    const rlimit limit{kMaxOutputBytes, kMaxOutputBytes};
    if (error == 0) (void)prlimit(*pid, RLIMIT_FSIZE, &limit, nullptr);
    return error;
}

// Reads a program's messages until it ends. 0 or an errno, such as ETIMEDOUT.
int Collect(int fd, Clock::time_point deadline, std::string* messages) {
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) return ETIMEDOUT;
        pollfd pipe{.fd = fd, .events = POLLIN, .revents = 0};
        if (TEMP_FAILURE_RETRY(poll(&pipe, 1, static_cast<int>(left.count()))) <= 0) continue;
        std::array<char, 4096> piece;
        const ssize_t got = TEMP_FAILURE_RETRY(read(fd, piece.data(), piece.size()));
        if (got <= 0) return got < 0 ? errno : 0;
        messages->append(piece.data(), static_cast<size_t>(got));
    }
}

// Without the silence around it, so that its first and last frames are those of the speech.
Sound Trimmed(const Sound& sound) {
    constexpr int kSilence = 32;  // -60 dB of full scale.
    const auto loud = [](int16_t sample) { return std::abs(int{sample}) >= kSilence; };
    const auto begin = std::ranges::find_if(sound.samples, loud);
    const auto end = std::find_if(sound.samples.rbegin(), sound.samples.rend(), loud).base();
    Sound trimmed;
    if (begin < end) trimmed.samples.assign(begin, end);
    return trimmed;
}

// The WAV file that the program writes to its standard output.
host::Result<unique_fd> SpokenWav(const std::string& text, const SpeechOptions& options) {
    unique_fd wav(memfd_create("speech", MFD_CLOEXEC));
    unique_fd pipe;
    pid_t pid = -1;
    // "--" because a text may begin with a dash.
    const int start_error =
            Start({options.program, "-v", options.voice, "-s", "160", "-z", "--stdout", "--", text},
                  wav.get(), &pipe, &pid);
    if (start_error == ENOENT) {
        return host::Error(StringPrintf(
                "the program %s, which speaks texts, is not installed; install the Debian package "
                "espeak-ng (apt-get install espeak-ng) or give a WAV file instead",
                options.program.c_str()));
    }
    if (start_error != 0) {
        return host::Error(StringPrintf("cannot start %s: %s", options.program.c_str(),
                                        strerror(start_error)));
    }
    std::string messages;
    const int error = Collect(pipe.get(), Clock::now() + options.timeout, &messages);
    if (error != 0) kill(pid, SIGKILL);
    int status = -1;
    if (TEMP_FAILURE_RETRY(waitpid(pid, &status, 0)) != pid) status = -1;
    if (error != 0) {
        return host::Error(StringPrintf("%s did not speak \"%s\": %s", options.program.c_str(),
                                        text.c_str(), strerror(error)));
    }
    if ((status == 0 || status == -1) && lseek(wav.get(), 0, SEEK_END) > 0) return wav;
    return host::Error(StringPrintf("%s did not speak \"%s\" with the voice %s: %s",
                                    options.program.c_str(), text.c_str(), options.voice.c_str(),
                                    android::base::Trim(messages.substr(0, 400)).c_str()));
}

}  // namespace

host::Result<Sound> Speak(const std::string& text, const SpeechOptions& options) {
    if (text.empty() || text.size() > kMaxTextBytes || text.find('\0') != std::string::npos) {
        return host::Error(StringPrintf(
                "cannot speak a text of %zu bytes; give it 1 to %zu bytes of plain text",
                text.size(), kMaxTextBytes));
    }
    const auto wav = SpokenWav(text, options);
    if (!wav.ok()) return host::Error(wav.error());
    const auto decoded = ReadWav(*wav, options.program + "'s output", Channels::kMono);
    if (!decoded.ok()) return host::Error(decoded.error());
    Sound sound = Trimmed(decoded->sound);
    if (sound.samples.empty()) {
        return host::Error(
                StringPrintf("there is nothing to say in \"%s\"; use words", text.c_str()));
    }
    return sound;
}

}  // namespace sthal::audio
