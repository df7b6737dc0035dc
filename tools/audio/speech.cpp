#include "tools/audio/speech.h"

#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <system_error>
#include <vector>

#include "tools/audio/wav.h"

namespace sthal::audio {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;
using Clock = std::chrono::steady_clock;

constexpr size_t kMaxTextBytes = 4000;
constexpr size_t kMaxOutputBytes = size_t{64} << 20;

// A child process and what it writes. Killed, if it still runs, and reaped when this ends.
class Child {
  public:
    Child() = default;
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() { (void)Reap(/*kill_first=*/true); }

    // 0 or an errno. No shell: the arguments reach the program as they are.
    int Start(std::vector<std::string> arguments) {
        unique_fd out_end, error_end;
        if (!android::base::Pipe(&out_, &out_end) || !android::base::Pipe(&error_, &error_end)) {
            return errno;
        }
        std::vector<char*> argv;
        argv.reserve(arguments.size() + 1);
        for (std::string& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        if (const int error = posix_spawn_file_actions_init(&actions); error != 0) return error;
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, out_end, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, error_end, STDERR_FILENO);
        const int error = posix_spawnp(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (error != 0) pid_ = -1;
        return error;
    }

    // Takes all output until both pipes end. 0, -ETIMEDOUT, -EFBIG or another negative errno.
    int Collect(Clock::time_point deadline, std::vector<uint8_t>* out,
                std::vector<uint8_t>* errors) {
        std::array<pollfd, 2> pipes{pollfd{out_.get(), POLLIN, 0}, pollfd{error_.get(), POLLIN, 0}};
        const std::array<std::vector<uint8_t>*, 2> sinks{out, errors};
        while (pipes[0].fd >= 0 || pipes[1].fd >= 0) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0) return -ETIMEDOUT;
            const int ready = poll(pipes.data(), pipes.size(), static_cast<int>(left.count()));
            if (ready < 0 && errno != EINTR) return -errno;
            for (size_t i = 0; ready > 0 && i < pipes.size(); ++i) {
                if (pipes[i].revents == 0) continue;
                const int got = Take(pipes[i].fd, sinks[i]);
                if (got < 0) return got;
                if (got == 0) pipes[i].fd = -1;  // poll() passes over it.
            }
        }
        return 0;
    }

    // The wait status; -1 when there is none.
    int Reap(bool kill_first = false) {
        if (pid_ < 0) return -1;
        if (kill_first) kill(pid_, SIGKILL);
        int status = -1;
        if (TEMP_FAILURE_RETRY(waitpid(pid_, &status, 0)) != pid_) status = -1;
        pid_ = -1;
        return status;
    }

  private:
    // Bytes taken, 0 at the end, or a negative errno.
    static int Take(int fd, std::vector<uint8_t>* sink) {
        std::array<uint8_t, 65536> piece;
        const ssize_t got = TEMP_FAILURE_RETRY(read(fd, piece.data(), piece.size()));
        if (got < 0) return -errno;
        if (sink->size() + static_cast<size_t>(got) > kMaxOutputBytes) return -EFBIG;
        sink->insert(sink->end(), piece.begin(), piece.begin() + got);
        return static_cast<int>(got);
    }

    pid_t pid_ = -1;
    unique_fd out_;
    unique_fd error_;
};

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
Result<std::vector<uint8_t>> SpokenWav(const std::string& text, const SpeechOptions& options) {
    using Wav = Result<std::vector<uint8_t>>;
    Child child;
    // "--" because a text may begin with a dash.
    const int start_error =
            child.Start({options.program, "-v", options.voice, "-s",
                         std::to_string(options.words_per_minute), "-z", "--stdout", "--", text});
    if (start_error == ENOENT) {
        return Wav::Error(StringPrintf(
                "the program %s, which speaks texts, is not installed; install the Debian package "
                "espeak-ng (apt-get install espeak-ng) or give a WAV file instead",
                options.program.c_str()));
    }
    if (start_error != 0) {
        return Wav::Error(StringPrintf("cannot start %s: %s", options.program.c_str(),
                                       std::generic_category().message(start_error).c_str()));
    }
    std::vector<uint8_t> wav;
    std::vector<uint8_t> messages;
    const int error = child.Collect(Clock::now() + options.timeout, &wav, &messages);
    if (error < 0) {
        return Wav::Error(StringPrintf("%s did not speak \"%s\": %s", options.program.c_str(),
                                       text.c_str(),
                                       std::generic_category().message(-error).c_str()));
    }
    const int status = child.Reap();
    if ((status == 0 || status == -1) && !wav.empty()) return Wav::Of(std::move(wav));
    const std::string reason(messages.begin(),
                             messages.begin() + std::min<ptrdiff_t>(std::ssize(messages), 400));
    return Wav::Error(StringPrintf("%s did not speak \"%s\" with the voice %s: %s",
                                   options.program.c_str(), text.c_str(), options.voice.c_str(),
                                   android::base::Trim(reason).c_str()));
}

}  // namespace

Result<Sound> Speak(const std::string& text, const SpeechOptions& options) {
    if (text.empty() || text.size() > kMaxTextBytes || text.find('\0') != std::string::npos) {
        return Result<Sound>::Error(StringPrintf(
                "cannot speak a text of %zu bytes; give it 1 to %zu bytes of plain text",
                text.size(), kMaxTextBytes));
    }
    Result<std::vector<uint8_t>> wav = SpokenWav(text, options);
    if (!wav) return Result<Sound>::Error(std::move(wav.error));
    Result<DecodedAudio> decoded = DecodeWav(*wav, options.program + "'s output", Channels::kMono);
    if (!decoded) return Result<Sound>::Error(std::move(decoded.error));
    Sound sound = Trimmed(decoded->sound);
    if (sound.samples.empty()) {
        return Result<Sound>::Error(
                StringPrintf("there is nothing to say in \"%s\"; use words", text.c_str()));
    }
    return Result<Sound>::Of(std::move(sound));
}

}  // namespace sthal::audio
