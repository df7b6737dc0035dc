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

// Whether the header, the first bytes of `bytes`, describes them.
ModelError CheckHeader(const SoundModelHeader& header, std::span<const uint8_t> bytes) {
    if (header.magic != kSoundModelMagic) return {ModelFault::kMagic};
    if (header.version != kSoundModelVersion) return {ModelFault::kVersion, header.version};
    if (header.total_bytes != bytes.size()) {
        return {ModelFault::kTotalBytes, static_cast<int64_t>(bytes.size()), header.total_bytes};
    }
    if (header.crc32 != ModelCrc(bytes)) return {ModelFault::kChecksum};
    if (header.engine < 1 || header.engine > kEngines.size()) {
        return {ModelFault::kEngine, header.engine};
    }
    if (header.threshold_millionths > 1'000'000) return {ModelFault::kThreshold};
    if (header.template_frames < kMinTemplateFrames ||
        header.template_frames > kMaxTemplateFrames) {
        return {ModelFault::kTemplateLength, header.template_frames};
    }
    if (header.template_frames > (bytes.size() - sizeof(header)) / sizeof(int16_t)) {
        return {ModelFault::kTemplatePastEnd};
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

host::Result<SoundModel, ModelError> ParseSoundModel(std::span<const uint8_t> bytes) {
    using Refused = ::android::base::unexpected<ModelError>;
    SoundModelHeader header;
    if (bytes.size() < sizeof(header)) {
        return Refused({ModelFault::kTooShort, static_cast<int64_t>(bytes.size())});
    }
    std::memcpy(&header, bytes.data(), sizeof(header));
    const ModelError error = CheckHeader(header, bytes);
    if (error.fault != ModelFault::kNone) return Refused(error);
    SoundModel model;
    model.engine = static_cast<Engine>(header.engine);
    model.threshold = static_cast<float>(header.threshold_millionths) / 1e6F;
    model.pcm_template.resize(header.template_frames);
    std::memcpy(model.pcm_template.data(), bytes.data() + sizeof(header),
                model.pcm_template.size() * sizeof(int16_t));
    if (IsSilent(model.pcm_template)) return Refused({ModelFault::kSilentTemplate});
    return model;
}

}  // namespace virtual_dsp
