#include "tools/audio/wav.h"

#include <android-base/stringprintf.h>
#include <samplerate.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include "tools/audio/file_bytes.h"

namespace sthal::audio {
namespace {

using ::android::base::StringPrintf;

constexpr int kMaxSeconds = 30 * 60;

// A file in memory, as libsndfile wants to see it.
class MemoryFile {
  public:
    explicit MemoryFile(std::vector<uint8_t>* bytes) : bytes_(bytes) {}

    SNDFILE* Open(int mode, SF_INFO* info) {
        SF_VIRTUAL_IO io{
                .get_filelen = [](void* self) { return Of(self)->Size(); },
                .seek = [](sf_count_t offset, int whence,
                           void* self) { return Of(self)->Seek(offset, whence); },
                .read = [](void* to, sf_count_t count,
                           void* self) { return Of(self)->Read(to, count); },
                .write = [](const void* from, sf_count_t count,
                            void* self) { return Of(self)->Write(from, count); },
                .tell = [](void* self) { return Of(self)->at_; },
        };
        return sf_open_virtual(&io, mode, info, this);
    }

  private:
    static MemoryFile* Of(void* self) { return static_cast<MemoryFile*>(self); }

    sf_count_t Size() const { return static_cast<sf_count_t>(bytes_->size()); }

    sf_count_t Seek(sf_count_t offset, int whence) {
        const sf_count_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? at_ : Size();
        at_ = std::clamp<sf_count_t>(base + offset, 0, Size());
        return at_;
    }

    sf_count_t Read(void* to, sf_count_t count) {
        count = std::clamp<sf_count_t>(count, 0, Size() - at_);
        if (count > 0) memcpy(to, bytes_->data() + at_, static_cast<size_t>(count));
        at_ += count;
        return count;
    }

    sf_count_t Write(const void* from, sf_count_t count) {
        if (count <= 0) return 0;
        if (at_ + count > Size()) bytes_->resize(static_cast<size_t>(at_ + count));
        memcpy(bytes_->data() + at_, from, static_cast<size_t>(count));
        at_ += count;
        return count;
    }

    std::vector<uint8_t>* const bytes_;
    sf_count_t at_ = 0;
};

struct SndFileClose {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SndFile = std::unique_ptr<SNDFILE, SndFileClose>;

// Samples of 1.0 at full scale, and how they came to be.
struct FloatAudio {
    int channels = 0;
    std::vector<float> samples;
    std::vector<std::string> conversions;
};

bool StartsWithWav(std::span<const uint8_t> file) {
    return file.size() >= 12 && memcmp(file.data(), "RIFF", 4) == 0 &&
           memcmp(file.data() + 8, "WAVE", 4) == 0;
}

// How many bytes of audio the header of a WAV file promises beyond those that are there. libsndfile
// takes what there is and says nothing.
std::optional<size_t> MissingBytes(std::span<const uint8_t> file) {
    // Programs that write to a pipe fill in something this large, as they cannot come back.
    constexpr uint32_t kUnknownSize = 0x7F000000;
    if (!StartsWithWav(file)) return std::nullopt;
    for (size_t at = 12; at + 8 <= file.size();) {
        uint32_t size = 0;
        memcpy(&size, file.data() + at + 4, sizeof(size));
        const size_t there = file.size() - at - 8;
        if (memcmp(file.data() + at, "data", 4) == 0) {
            if (size >= kUnknownSize || size <= there) return std::nullopt;
            return size - there;
        }
        if (size > there) return std::nullopt;
        at += 8 + size_t{size} + size % 2;
    }
    return std::nullopt;
}

std::string EncodingName(int format) {
    SF_FORMAT_INFO info{
            .format = format & SF_FORMAT_SUBMASK, .name = nullptr, .extension = nullptr};
    const int error = sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof(info));
    return error == 0 && info.name != nullptr ? info.name : "unknown encoding";
}

Result<FloatAudio> ReadSamples(SNDFILE* file, const SF_INFO& info, const std::string& name) {
    constexpr sf_count_t kBlockFrames = 4096;
    FloatAudio audio;
    audio.channels = std::min(info.channels, 2);
    const auto kept = static_cast<size_t>(audio.channels);
    const auto found = static_cast<size_t>(info.channels);
    audio.samples.reserve(static_cast<size_t>(info.frames) * kept);
    std::vector<float> block(static_cast<size_t>(kBlockFrames) * found);
    for (sf_count_t got; (got = sf_readf_float(file, block.data(), kBlockFrames)) > 0;) {
        for (size_t frame = 0; frame < static_cast<size_t>(got); ++frame) {
            const float* const from = &block[frame * found];
            audio.samples.insert(audio.samples.end(), from, from + kept);
        }
    }
    const auto frames = static_cast<sf_count_t>(audio.samples.size() / kept);
    if (frames < info.frames) {
        return Result<FloatAudio>::Error(StringPrintf(
                "%s is damaged: only %lld of its %lld frames can be read; copy or record it again",
                name.c_str(), static_cast<long long>(frames), static_cast<long long>(info.frames)));
    }
    if (info.channels > 2) {
        audio.conversions.push_back(
                StringPrintf("%d channels: only the first 2 kept", info.channels));
    }
    if ((info.format & SF_FORMAT_SUBMASK) != SF_FORMAT_PCM_16) {
        audio.conversions.push_back(EncodingName(info.format) + " to 16-bit PCM");
    }
    // Floating-point files may hold what is no number; resampling would spread it.
    const auto bad =
            std::ranges::count_if(audio.samples, [](float s) { return !std::isfinite(s); });
    if (bad > 0) {
        std::ranges::replace_if(
                audio.samples, [](float s) { return !std::isfinite(s); }, 0.0F);
        audio.conversions.push_back(StringPrintf("%lld samples that are no numbers silenced",
                                                 static_cast<long long>(bad)));
    }
    return Result<FloatAudio>::Of(std::move(audio));
}

void SelectChannels(Channels wanted, FloatAudio* audio) {
    std::vector<float> changed;
    if (wanted == Channels::kMono && audio->channels == 2) {
        for (size_t i = 0; i < audio->samples.size(); i += 2) changed.push_back(audio->samples[i]);
        audio->channels = 1;
        audio->conversions.emplace_back("2 channels to the first one");
    } else if (wanted == Channels::kStereo && audio->channels == 1) {
        for (const float sample : audio->samples) changed.insert(changed.end(), {sample, sample});
        audio->channels = 2;
        audio->conversions.emplace_back("1 channel doubled to 2");
    } else {
        return;
    }
    audio->samples = std::move(changed);
}

// Returns empty or the error.
std::string Resample(int from_hz, const std::string& name, FloatAudio* audio) {
    if (from_hz == kSampleRateHz) return {};
    const double ratio = static_cast<double>(kSampleRateHz) / from_hz;
    if (src_is_valid_ratio(ratio) == 0) {
        return StringPrintf("%s has a sample rate of %d Hz, which cannot be converted to %d Hz",
                            name.c_str(), from_hz, kSampleRateHz);
    }
    const auto channels = static_cast<size_t>(audio->channels);
    const size_t frames = audio->samples.size() / channels;
    const auto wanted = static_cast<size_t>(std::llround(static_cast<double>(frames) * ratio));
    // The converter may end a frame early; what it leaves out stays silent.
    std::vector<float> converted(std::max<size_t>(wanted, 1) * channels);
    SRC_DATA data{};
    data.data_in = audio->samples.data();
    data.data_out = converted.data();
    data.input_frames = static_cast<long>(frames);
    data.output_frames = static_cast<long>(converted.size() / channels);
    data.src_ratio = ratio;
    if (const int error = src_simple(&data, SRC_SINC_MEDIUM_QUALITY, audio->channels); error != 0) {
        return StringPrintf("%s cannot be resampled from %d Hz: %s", name.c_str(), from_hz,
                            src_strerror(error));
    }
    audio->samples = std::move(converted);
    audio->conversions.push_back(
            StringPrintf("sample rate %d Hz to %d Hz", from_hz, kSampleRateHz));
    return {};
}

DecodedAudio ToPcm(FloatAudio audio) {
    DecodedAudio decoded{.sound = {.channels = audio.channels, .samples = {}},
                         .conversions = std::move(audio.conversions)};
    decoded.sound.samples.reserve(audio.samples.size());
    size_t clipped = 0;
    for (const float sample : audio.samples) {
        const double scaled = double{sample} * 32768;
        // Full scale itself is one step too high for 16 bits, and no loss worth a word.
        if (std::abs(scaled) > 32768) ++clipped;
        decoded.sound.samples.push_back(ToSample(scaled));
    }
    if (clipped > 0) {
        decoded.conversions.push_back(
                StringPrintf("%zu samples beyond full scale clipped", clipped));
    }
    return decoded;
}

// Why a file that can be decoded is not fit for use; empty when it is.
std::string Refusal(std::span<const uint8_t> file, const SF_INFO& info, const std::string& name) {
    if (const auto missing = MissingBytes(file)) {
        return StringPrintf(
                "%s is cut short: its header promises %zu bytes of audio more than there are; "
                "copy or record it again",
                name.c_str(), *missing);
    }
    if (info.frames <= 0 || info.samplerate <= 0) {
        return StringPrintf("%s holds no audio; record it again", name.c_str());
    }
    if (info.frames / info.samplerate >= kMaxSeconds) {
        return StringPrintf("%s is longer than %d minutes; cut a shorter piece out of it",
                            name.c_str(), kMaxSeconds / 60);
    }
    return {};
}

}  // namespace

Result<DecodedAudio> DecodeWav(std::span<const uint8_t> file, const std::string& name,
                               Channels wanted) {
    using Decoded = Result<DecodedAudio>;
    if (file.empty()) return Decoded::Error(name + " is empty; record it again");
    std::vector<uint8_t> bytes(file.begin(), file.end());
    MemoryFile memory(&bytes);
    SF_INFO info{};
    const SndFile snd(memory.Open(SFM_READ, &info));
    if (!snd) {
        const char* const advice =
                StartsWithWav(file) ? "is a damaged WAV file (%s); copy or record it again"
                                    : "is not an audio file that can be read (%s); convert it "
                                      "to WAV first, e.g. with: ffmpeg -i FILE OUT.wav";
        std::string reason = sf_strerror(nullptr);
        while (!reason.empty() && (reason.back() == '.' || reason.back() == '\n'))
            reason.pop_back();
        std::string text = advice;
        text.replace(text.find("%s"), 2, reason);
        return Decoded::Error(name + " " + text);
    }
    if (std::string refusal = Refusal(file, info, name); !refusal.empty()) {
        return Decoded::Error(std::move(refusal));
    }
    Result<FloatAudio> audio = ReadSamples(snd.get(), info, name);
    if (!audio) return Decoded::Error(std::move(audio.error));
    if (std::string error = Resample(info.samplerate, name, &*audio.value); !error.empty()) {
        return Decoded::Error(std::move(error));
    }
    SelectChannels(wanted, &*audio.value);
    return Decoded::Of(ToPcm(std::move(*audio.value)));
}

Result<DecodedAudio> ReadWav(const std::string& path, Channels wanted) {
    Result<std::vector<uint8_t>> file = ReadFileBytes(path);
    if (!file) return Result<DecodedAudio>::Error(std::move(file.error));
    return DecodeWav(*file, path, wanted);
}

std::string WriteWav(const std::string& path, const Sound& sound) {
    SF_INFO info{};
    info.samplerate = kSampleRateHz;
    info.channels = sound.channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    std::vector<uint8_t> bytes;
    MemoryFile memory(&bytes);
    SndFile snd(memory.Open(SFM_WRITE, &info));
    const auto frames = static_cast<sf_count_t>(sound.frames());
    if (!snd || sf_writef_short(snd.get(), sound.samples.data(), frames) != frames) {
        return StringPrintf("cannot encode %s as WAV: %s", path.c_str(), sf_strerror(snd.get()));
    }
    snd.reset();  // Completes the header.
    return WriteFileBytes(path, bytes);
}

}  // namespace sthal::audio
