#include "tools/audio/wav.h"

#include <android-base/file.h>
#include <android-base/mapped_file.h>
#include <android-base/stringprintf.h>
#include <fcntl.h>
#include <samplerate.h>
#include <sndfile.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <span>

#include "tools/audio/file_bytes.h"

namespace sthal::audio {
namespace {

using ::android::base::borrowed_fd;
using ::android::base::StringPrintf;
using ::android::base::unique_fd;
using Notes = std::vector<std::string>;

constexpr int kLongestFileS = 30 * 60;

using SndFile = std::unique_ptr<SNDFILE, decltype(&sf_close)>;

// libsndfile gets a copy of the descriptor: it closes one that it cannot use, whatever it is told.
SndFile Open(borrowed_fd fd, int mode, SF_INFO* info) {
    const int copy = fcntl(fd.get(), F_DUPFD_CLOEXEC, 0);
    return {sf_open_fd(copy, mode, info, /*close_desc=*/SF_TRUE), sf_close};
}

bool IsWav(borrowed_fd fd) {
    char header[12];
    return android::base::ReadFullyAtOffset(fd, header, sizeof(header), 0) &&
           memcmp(header, "RIFF", 4) == 0 && memcmp(header + 8, "WAVE", 4) == 0;
}

// How many bytes of audio the header of a WAV file promises beyond those that are there. libsndfile
// takes what there is and says nothing.
int64_t MissingBytes(borrowed_fd fd, int64_t file_bytes) {
    // Programs that write to a pipe fill in something this large, as they cannot come back.
    constexpr uint32_t kUnknownSize = 0x7F000000;
    struct {
        char id[4];
        uint32_t size;
    } chunk{};
    if (!IsWav(fd)) return 0;
    for (int64_t at = 12; android::base::ReadFullyAtOffset(fd, &chunk, sizeof(chunk), at);
         at += int64_t{chunk.size} + chunk.size % 2) {
        at += sizeof(chunk);
        if (memcmp(chunk.id, "data", 4) != 0) continue;
        return chunk.size >= kUnknownSize ? 0 : std::max<int64_t>(0, at + chunk.size - file_bytes);
    }
    return 0;
}

host::Error CannotOpen(borrowed_fd fd, const std::string& name) {
    std::string reason = sf_strerror(nullptr);
    reason.erase(reason.find_last_not_of(".\n") + 1);
    if (IsWav(fd)) {
        return host::Error(name + " is a damaged WAV file (" + reason +
                           "); copy or record it again");
    }
    return host::Error(name + " is not an audio file that can be read (" + reason +
                       "); convert it to WAV first, e.g. with: ffmpeg -i FILE OUT.wav");
}

std::string EncodingName(int format) {
    SF_FORMAT_INFO info{};
    info.format = format & SF_FORMAT_SUBMASK;
    const int error = sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof(info));
    return error == 0 && info.name != nullptr ? info.name : "unknown encoding";
}

// Samples of 1.0 at full scale, so many channels of them.
host::Result<std::vector<float>> ReadSamples(SNDFILE* file, const SF_INFO& info, size_t channels,
                                             const std::string& name, Notes* notes) {
    constexpr sf_count_t kBlockFrames = 4096;
    const auto found = static_cast<size_t>(info.channels);
    const size_t kept = std::min<size_t>(found, 2);
    std::vector<float> samples;
    samples.reserve(static_cast<size_t>(info.frames) * channels);
    std::vector<float> block(static_cast<size_t>(kBlockFrames) * found);
    size_t bad = 0;
    for (sf_count_t got; (got = sf_readf_float(file, block.data(), kBlockFrames)) > 0;) {
        for (size_t i = 0; i < static_cast<size_t>(got); ++i) {
            const std::span<float> frame = std::span(block).subspan(i * found, kept);
            for (float& sample : frame) {
                // Floating-point files may hold what is no number; resampling would spread it.
                if (std::isfinite(sample)) continue;
                sample = 0;
                ++bad;
            }
            for (size_t c = 0; c < channels; ++c) samples.push_back(frame[std::min(c, kept - 1)]);
        }
    }
    const auto frames = static_cast<sf_count_t>(samples.size() / channels);
    if (frames < info.frames) {
        return host::Error(StringPrintf(
                "%s is damaged: only %lld of its %lld frames can be read; copy or record it again",
                name.c_str(), static_cast<long long>(frames), static_cast<long long>(info.frames)));
    }
    if (found > 2) notes->push_back(StringPrintf("%zu channels: only the first 2 kept", found));
    if ((info.format & SF_FORMAT_SUBMASK) != SF_FORMAT_PCM_16) {
        notes->push_back(EncodingName(info.format) + " to 16-bit PCM");
    }
    if (bad > 0) notes->push_back(StringPrintf("%zu samples that are no numbers silenced", bad));
    return samples;
}

host::Result<void> Resample(int from_hz, size_t channels, const std::string& name,
                            std::vector<float>* samples) {
    const double ratio = static_cast<double>(kSampleRateHz) / from_hz;
    if (src_is_valid_ratio(ratio) == 0) {
        return host::Error(
                StringPrintf("%s has a sample rate of %d Hz, which cannot be converted to %d Hz",
                             name.c_str(), from_hz, kSampleRateHz));
    }
    const size_t frames = samples->size() / channels;
    const auto wanted = static_cast<size_t>(std::llround(static_cast<double>(frames) * ratio));
    // The converter may end a frame early; what it leaves out stays silent.
    std::vector<float> converted(std::max<size_t>(wanted, 1) * channels);
    SRC_DATA data{};
    data.data_in = samples->data();
    data.data_out = converted.data();
    data.input_frames = static_cast<long>(frames);
    data.output_frames = static_cast<long>(converted.size() / channels);
    data.src_ratio = ratio;
    const int error = src_simple(&data, SRC_SINC_MEDIUM_QUALITY, static_cast<int>(channels));
    if (error != 0) {
        return host::Error(StringPrintf("%s cannot be resampled from %d Hz: %s", name.c_str(),
                                        from_hz, src_strerror(error)));
    }
    *samples = std::move(converted);
    return {};
}

std::vector<int16_t> ToPcm(const std::vector<float>& samples, Notes* notes) {
    std::vector<int16_t> pcm;
    pcm.reserve(samples.size());
    size_t clipped = 0;
    for (const float sample : samples) {
        const double scaled = double{sample} * 32768;
        // Full scale itself is one step too high for 16 bits, and no loss worth a word.
        if (std::abs(scaled) > 32768) ++clipped;
        pcm.push_back(ToSample(scaled));
    }
    if (clipped > 0) {
        notes->push_back(StringPrintf("%zu samples beyond full scale clipped", clipped));
    }
    return pcm;
}

// Whether a file that can be decoded is fit for use.
host::Result<void> Check(int64_t missing_bytes, const SF_INFO& info, const std::string& name) {
    if (missing_bytes > 0) {
        return host::Error(StringPrintf(
                "%s is cut short: its header promises %lld bytes of audio more than there are; "
                "copy or record it again",
                name.c_str(), static_cast<long long>(missing_bytes)));
    }
    if (info.frames <= 0 || info.samplerate <= 0) {
        return host::Error(StringPrintf("%s holds no audio; record it again", name.c_str()));
    }
    if (info.frames / info.samplerate >= kLongestFileS) {
        return host::Error(
                StringPrintf("%s is longer than %d minutes; cut a shorter piece out of it",
                             name.c_str(), kLongestFileS / 60));
    }
    return {};
}

}  // namespace

host::Result<DecodedAudio> ReadWav(const std::string& path, Channels wanted) {
    const auto fd = OpenSeekable(path);
    if (!fd.ok()) return host::Error(fd.error());
    return ReadWav(*fd, path, wanted);
}

host::Result<DecodedAudio> ReadWav(borrowed_fd fd, const std::string& name, Channels wanted) {
    const off_t bytes = lseek(fd.get(), 0, SEEK_END);
    if (bytes == 0) return host::Error(name + " is empty; record it again");
    (void)lseek(fd.get(), 0, SEEK_SET);  // For libsndfile the file begins where it stands.
    SF_INFO info{};
    const SndFile file = Open(fd, SFM_READ, &info);
    if (!file) return CannotOpen(fd, name);
    const auto checked = Check(MissingBytes(fd, bytes), info, name);
    if (!checked.ok()) return host::Error(checked.error());

    DecodedAudio decoded;
    Notes& notes = decoded.conversions;
    const size_t channels = wanted == Channels::kMono ? 1 : 2;
    auto samples = ReadSamples(file.get(), info, channels, name, &notes);
    if (!samples.ok()) return host::Error(samples.error());
    if (info.samplerate != kSampleRateHz) {
        const auto resampled = Resample(info.samplerate, channels, name, &*samples);
        if (!resampled.ok()) return host::Error(resampled.error());
        notes.push_back(StringPrintf("sample rate %d Hz to %d Hz", info.samplerate, kSampleRateHz));
    }
    if (wanted == Channels::kMono && info.channels > 1) {
        notes.emplace_back("2 channels to the first one");
    } else if (wanted == Channels::kStereo && info.channels == 1) {
        notes.emplace_back("1 channel doubled to 2");
    }
    decoded.sound.channels = static_cast<int>(channels);
    decoded.sound.samples = ToPcm(*samples, &notes);
    return decoded;
}

host::Result<void> WriteWav(const std::string& path, const Sound& sound) {
    SF_INFO info{};
    info.samplerate = kSampleRateHz;
    info.channels = sound.channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    // In memory first: libsndfile comes back to the header at the end, which a pipe cannot.
    const unique_fd encoded(memfd_create("wav", MFD_CLOEXEC));
    SndFile file = Open(encoded, SFM_WRITE, &info);
    const auto frames = static_cast<sf_count_t>(sound.frames());
    if (!file || sf_writef_short(file.get(), sound.samples.data(), frames) != frames) {
        return host::Error(
                StringPrintf("cannot encode %s as WAV: %s", path.c_str(), sf_strerror(file.get())));
    }
    file.reset();  // Completes the header.
    const auto bytes = android::base::MappedFile::FromFd(
            encoded, 0, static_cast<size_t>(lseek(encoded.get(), 0, SEEK_END)), PROT_READ);
    if (!bytes) return host::Error("there is no memory to write " + path);
    return WriteFileBytes(path, {reinterpret_cast<const uint8_t*>(bytes->data()), bytes->size()});
}

}  // namespace sthal::audio
