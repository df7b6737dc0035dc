#include "host/virtual_dsp/dsp/sound_model.h"

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace virtual_dsp {
namespace {

// The checksum leaves itself out.
uint32_t ModelCrc(std::span<const uint8_t> model) {
    constexpr size_t kAt = offsetof(SoundModelHeader, crc32);
    return Crc32(model.subspan(kAt + sizeof(SoundModelHeader::crc32)), Crc32(model.first(kAt)));
}

bool IsSilent(const std::vector<int16_t>& pcm) {
    return std::ranges::adjacent_find(pcm, std::ranges::not_equal_to()) == pcm.end();
}

// Empty when the header, the first bytes of `bytes`, describes them.
std::string WhyInvalid(const SoundModelHeader& header, std::span<const uint8_t> bytes) {
    const auto number = [](auto value) { return std::to_string(value); };
    if (header.magic != kSoundModelMagic) return "not a sound model (wrong magic)";
    if (header.version != kSoundModelVersion) return "unknown version " + number(header.version);
    if (header.total_bytes != bytes.size()) {
        return number(bytes.size()) + " of " + number(header.total_bytes) + " bytes";
    }
    if (header.crc32 != ModelCrc(bytes)) return "wrong checksum";
    if (header.engine < 1 || header.engine > kEngines.size()) {
        return "unknown engine " + number(header.engine);
    }
    if (header.threshold_millionths > 1'000'000) return "threshold above 1";
    if (header.template_frames < kMinTemplateFrames ||
        header.template_frames > kMaxTemplateFrames) {
        return "a template of " + number(header.template_frames) + " frames";
    }
    if (header.template_frames > (bytes.size() - sizeof(header)) / sizeof(int16_t)) {
        return "the template runs past the model's end";
    }
    return {};
}

}  // namespace

uint32_t Crc32(std::span<const uint8_t> bytes, uint32_t seed) {
    return static_cast<uint32_t>(crc32_z(seed, bytes.data(), bytes.size()));
}

std::vector<uint8_t> BuildSoundModel(const SoundModel& model, size_t total_bytes) {
    const size_t template_bytes = model.pcm_template.size() * sizeof(int16_t);
    std::vector<uint8_t> bytes(std::max(total_bytes, sizeof(SoundModelHeader) + template_bytes));
    SoundModelHeader header{};
    header.magic = kSoundModelMagic;
    header.version = kSoundModelVersion;
    header.engine = static_cast<uint16_t>(model.engine);
    header.threshold_millionths =
            static_cast<uint32_t>(std::lround(double{model.threshold} * 1'000'000));
    header.template_frames = static_cast<uint32_t>(model.pcm_template.size());
    header.total_bytes = static_cast<uint32_t>(bytes.size());
    std::memcpy(bytes.data(), &header, sizeof(header));
    if (template_bytes != 0) {
        std::memcpy(bytes.data() + sizeof(header), model.pcm_template.data(), template_bytes);
    }
    for (size_t i = sizeof(header) + template_bytes; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>((i * 2654435761U) >> 24);
    }
    header.crc32 = ModelCrc(bytes);
    std::memcpy(bytes.data(), &header, sizeof(header));
    return bytes;
}

ParsedSoundModel ParseSoundModel(std::span<const uint8_t> bytes) {
    SoundModelHeader header;
    if (bytes.size() < sizeof(header)) {
        return {{}, std::to_string(bytes.size()) + " bytes are too few for a header"};
    }
    std::memcpy(&header, bytes.data(), sizeof(header));
    if (std::string reason = WhyInvalid(header, bytes); !reason.empty()) {
        return {{}, std::move(reason)};
    }
    SoundModel model;
    model.engine = static_cast<Engine>(header.engine);
    model.threshold = static_cast<float>(header.threshold_millionths) / 1e6F;
    model.pcm_template.resize(header.template_frames);
    std::memcpy(model.pcm_template.data(), bytes.data() + sizeof(header),
                model.pcm_template.size() * sizeof(int16_t));
    if (IsSilent(model.pcm_template)) return {{}, "the template is silent"};
    return {std::move(model), {}};
}

}  // namespace virtual_dsp
