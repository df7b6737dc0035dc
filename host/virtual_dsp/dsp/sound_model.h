#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>
#include <vector>

#include "host/common/result.h"
#include "host/virtual_dsp/dsp/engine.h"

namespace virtual_dsp {

// What a sound model's bytes begin with. Little-endian. The template follows (16-bit mono PCM at
// wire::kSampleRateHz), then padding up to total_bytes, which lets a model be as large as one
// likes.
struct SoundModelHeader {
    std::array<char, 4> magic;      // kSoundModelMagic.
    uint16_t version;               // kSoundModelVersion.
    uint16_t engine;                // Engine.
    uint32_t threshold_millionths;  // 0..1000000 for a correlation of 0..1.
    uint32_t template_frames;       // kMinTemplateFrames..kMaxTemplateFrames.
    uint32_t total_bytes;           // Of the whole model, this header and the padding included.
    uint32_t crc32;                 // Of all other bytes of the model, in order.
};
static_assert(std::has_unique_object_representations_v<SoundModelHeader>, "no hidden padding");
static_assert(sizeof(SoundModelHeader) == 24);
static_assert(offsetof(SoundModelHeader, crc32) == 20);

inline constexpr std::array<char, 4> kSoundModelMagic = {'V', 'D', 'S', 'M'};
inline constexpr uint16_t kSoundModelVersion = 1;
inline constexpr uint32_t kMinTemplateFrames = 1600;   // 100 ms.
inline constexpr uint32_t kMaxTemplateFrames = 64000;  // 4 s.
inline constexpr uint32_t kMaxSoundModelBytes = 64 * 1024 * 1024;

// What a model tells an engine to listen for.
struct SoundModel {
    Engine engine = Engine::kHotword;
    float threshold = 0.7F;  // 0..1: how alike the audio must be, as a correlation.
    std::vector<int16_t> pcm_template;
};

// The bytes of `model`, padded up to `total_bytes` if they would be fewer; the padding differs from
// place to place, so that two exchanged chunks of it are noticed, too. Does not check the model:
// what ParseSoundModel() refuses can be built, too.
std::vector<uint8_t> BuildSoundModel(const SoundModel& model, size_t total_bytes = 0);

// Why bytes are no sound model.
enum class ModelFault {
    kNone,
    kTooShort,         // For a header. `value`: the bytes.
    kMagic,            //
    kVersion,          // `value`: the unknown one.
    kEngine,           // `value`: the unknown one.
    kThreshold,        // Above 1.
    kTemplateLength,   // `value`: the frames, too few or too many.
    kTemplatePastEnd,  // The template is longer than the model has room for.
    kTotalBytes,       // `value`: the bytes; `other`: what the header says.
    kChecksum,         //
    kSilentTemplate,   //
};

struct ModelError {
    ModelFault fault = ModelFault::kNone;
    int64_t value = 0;  // What they are, ModelFault says.
    int64_t other = 0;
};

// Accepts a complete model whose checksum is right, whose values are in range and whose template is
// not silent (a constant has no correlation with anything).
host::Result<SoundModel, ModelError> ParseSoundModel(std::span<const uint8_t> bytes);

// CRC-32 as zlib computes it.
uint32_t Crc32(std::span<const uint8_t> bytes, uint32_t seed = 0);

}  // namespace virtual_dsp
