// Reads of captured audio: engine, size and channels as a caller may ask, pieces and failures as
// the device has them.
#include <cerrno>

#include "fuzz/scripted_nodes.h"

namespace fuzz {

namespace {

constexpr uint8_t kMark = 0xA5;
constexpr uint16_t kFirstError = 0xFFF0;

// Both audio devices: deliver, read by read, as much as their script says, and nothing after it.
// The bytes differ from place to place.
class AudioDevice {
  public:
    explicit AudioDevice(ScriptedNodes* nodes) {
        for (const char* path : {zyl::kHotwordPcmDevice, zyl::kAmbientPcmDevice}) {
            (*nodes)[path].poll = [this](int) { return next_ < steps_.size() ? 0 : -ETIMEDOUT; };
            (*nodes)[path].read = [this](std::span<uint8_t> to) {
                const int result = Outcome(steps_[next_++], to.size());
                for (int i = 0; i < result; ++i) {
                    audio_.push_back(U8(static_cast<int>(count_++ * 2654435761U >> 24)));
                    to[static_cast<size_t>(i)] = audio_.back();
                }
                return result;
            };
        }
    }

    void Script(Input* input) {
        steps_.resize(input->Take<uint8_t>() % 8);
        for (uint16_t& step : steps_) step = input->Take<uint16_t>();
        next_ = 0;
        audio_.clear();
    }

    // What a read of `wanted` bytes in all comes to by the script.
    int Expect(size_t wanted) const {
        size_t got = 0;
        for (const uint16_t step : steps_) {
            const int result = Outcome(step, wanted - got);
            if (result < 0) return result;
            got += static_cast<size_t>(result);
            if (got == wanted) return static_cast<int>(wanted);
            if (result == 0) return -EIO;
        }
        return -ETIMEDOUT;
    }

    const Bytes& audio() const { return audio_; }

  private:
    static int Outcome(uint16_t step, size_t wanted) {
        if (step >= kFirstError) return step % 2 == 0 ? -ENODEV : -EINTR;
        return static_cast<int>(std::min<size_t>(step, wanted));
    }

    std::vector<uint16_t> steps_;
    size_t next_ = 0;
    Bytes audio_;
    uint32_t count_ = 0;
};

// Whether these bytes are what the hotword device gave: all of it, or one channel of two.
bool IsHotwordAudio(std::span<const uint8_t> bytes, const Bytes& audio, bool is_mono) {
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] != audio[is_mono ? i / 2 * 4 + i % 2 : i]) return false;
    }
    return true;
}

// Mu-law as ITU-T G.711 has it: 14 bits, here at the upper end of 16.
int ExpandMulaw(uint8_t code) {
    const int magnitude = ((2 * (~code & 0x0F) + 33) << (~code >> 4 & 0x07)) - 33;
    return (code & 0x80) != 0 ? magnitude * 4 : magnitude * -4;
}

bool IsAmbientAudio(std::span<const uint8_t> bytes, const Bytes& audio) {
    for (size_t i = 0; i < bytes.size() / 2; ++i) {
        const auto sample = static_cast<int16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
        if (sample != ExpandMulaw(audio[i])) return false;
    }
    return true;
}

}  // namespace

void Run(Input input) {
    ScriptedNodes nodes;
    CommandNode dsp(&nodes);
    AudioDevice device(&nodes);
    const auto adapter = MakeAdapter();
    while (!input.empty()) {
        const int engine = input.Take<int16_t>();
        const auto size = input.Take<uint32_t>();
        const int channels = input.Take<int16_t>();
        device.Script(&input);
        // As much room as a caller has to have, and no more: the sanitizer watches its end.
        Bytes buffer(std::max(2048U, std::min(size, 4096U)), kMark);
        const int result = adapter->ReadDspBuffer(engine, reinterpret_cast<char*>(buffer.data()),
                                                  size, channels);

        const bool is_hotword = engine == 1;
        const bool is_mono = is_hotword && channels == 1;
        const bool is_served = is_hotword ? size <= (is_mono ? 2048U : 4096U)
                                          : (engine == 2 || engine == 3) && size <= 2049;
        const unsigned int raw_bytes = is_hotword ? (is_mono ? size * 2 : size) : size / 2;
        int expected = is_served ? device.Expect(raw_bytes) : -EINVAL;
        if (expected > 0) expected = static_cast<int>(is_hotword ? size : raw_bytes * 2);
        Require(result == expected, "all that was asked for, or the device's failure");
        const std::span heard = std::span(buffer).first(static_cast<size_t>(std::max(result, 0)));
        Require(is_hotword ? IsHotwordAudio(heard, device.audio(), is_mono)
                           : IsAmbientAudio(heard, device.audio()),
                "the device's audio, in the caller's form");
        Require(result > 0 || buffer == Bytes(buffer.size(), kMark),
                "a failed read leaves the buffer alone");
    }
}

std::map<std::string, Bytes> Seeds() {
    std::map<std::string, Bytes> seeds;
    const Bytes whole = Join(U8(1), uint16_t{4096});
    const Bytes pieces = Join(U8(4), uint16_t{1000}, uint16_t{1000}, uint16_t{96}, uint16_t{4000});
    const Bytes torn = Join(U8(2), uint16_t{7}, kFirstError);
    for (const Bytes& steps : {whole, pieces, torn, Join(U8(0)), Join(U8(1), uint16_t{0})}) {
        Bytes all;
        for (const uint32_t size : {4097U, 4096U, 2050U, 2049U, 2048U, 7U, 0U, 0x80000400U}) {
            for (const int16_t engine : {1, 2, 4}) {
                for (const int16_t channels : {1, 2}) {
                    all = Join(all, engine, size, channels, steps);
                }
            }
        }
        seeds[std::to_string(seeds.size())] = all;
    }
    return seeds;
}

}  // namespace fuzz
