// The mu-law expansion.
#include <sndfile.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "audio/hal/aidl/soundtrigger/zyl/zyl_mulaw.h"
#include "benchmarks/fixture.h"
#include "benchmarks/rows.h"

namespace bench {

namespace {

constexpr size_t kSamples = 1024;

std::vector<uint8_t> MulawSamples() {
    std::vector<uint8_t> codes(kSamples);
    for (size_t i = 0; i < codes.size(); ++i) codes[i] = static_cast<uint8_t>(i * 37);
    return codes;
}

// A thousand expansions are one round: one alone is too short for the clock.
constexpr int kBatch = 1000;

struct MemoryFile {
    const std::vector<uint8_t>* bytes;
    sf_count_t at = 0;
};

// libsndfile's decoder, reading headerless mu-law from memory.
class SndfileDecoder {
  public:
    explicit SndfileDecoder(const std::vector<uint8_t>& codes) : file_{&codes} {
        static SF_VIRTUAL_IO io{
                [](void* user) {
                    return static_cast<sf_count_t>(static_cast<MemoryFile*>(user)->bytes->size());
                },
                [](sf_count_t offset, int whence, void* user) {
                    auto* const file = static_cast<MemoryFile*>(user);
                    const auto size = static_cast<sf_count_t>(file->bytes->size());
                    if (whence == SEEK_SET) file->at = offset;
                    if (whence == SEEK_CUR) file->at += offset;
                    if (whence == SEEK_END) file->at = size + offset;
                    return file->at;
                },
                [](void* out, sf_count_t count, void* user) {
                    auto* const file = static_cast<MemoryFile*>(user);
                    const auto size = static_cast<sf_count_t>(file->bytes->size());
                    count = std::min(count, size - file->at);
                    std::memcpy(out, file->bytes->data() + file->at, static_cast<size_t>(count));
                    file->at += count;
                    return count;
                },
                [](const void*, sf_count_t, void*) { return sf_count_t{0}; },
                [](void* user) { return static_cast<MemoryFile*>(user)->at; }};
        SF_INFO info{};
        info.samplerate = 16000;
        info.channels = 1;
        info.format = SF_FORMAT_RAW | SF_FORMAT_ULAW;
        sound_ = sf_open_virtual(&io, SFM_READ, &info, &file_);
        if (sound_ == nullptr) std::exit(1);
    }
    ~SndfileDecoder() { (void)sf_close(sound_); }

    void Decode(int16_t* out) {
        (void)sf_seek(sound_, 0, SEEK_SET);
        (void)sf_readf_short(sound_, out, kSamples);
    }

  private:
    MemoryFile file_;
    SNDFILE* sound_ = nullptr;
};

}  // namespace

std::vector<Row> Mulaw(const Options& options) {
    const std::vector<uint8_t> codes = MulawSamples();
    std::vector<int16_t> linear(kSamples);
    const std::vector<int16_t> source(kSamples, 1);
    const Round library = Timed([&] {
        for (int i = 0; i < kBatch; ++i) {
            wire::ExpandMulaw(codes, reinterpret_cast<char*>(linear.data()));
            asm volatile("" : : "r"(linear.data()) : "memory");
        }
    });
    const Round copy = Timed([&] {
        for (int i = 0; i < kBatch; ++i) {
            std::memcpy(linear.data(), source.data(), kSamples * sizeof(int16_t));
            asm volatile("" : : "r"(linear.data()) : "memory");
        }
    });
    SndfileDecoder decoder(codes);
    const Round sndfile = Timed([&] {
        for (int i = 0; i < kBatch; ++i) decoder.Decode(linear.data());
    });
    Row to_copy = Compare("mu-law expansion of 1024 samples, 1000 times", "memcpy of the output",
                          options.Rounds(300), library, copy, std::nullopt);
    to_copy.note = "shown, not judged";
    Row to_sndfile = Compare("mu-law expansion of 1024 samples, 1000 times",
                             "libsndfile's decoder, from memory", options.Rounds(300), library,
                             sndfile, 1.0);
    return {to_copy, to_sndfile};
}

}  // namespace bench
