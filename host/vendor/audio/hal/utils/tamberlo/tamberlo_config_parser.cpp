#define LOG_TAG "TamberloConfigParser"

#include "audio/hal/utils/tamberlo/tamberlo_config_parser.h"

#include <span>
#include <utility>

#include "android-base/logging.h"
#include "audio/hal/utils/tamberlo/tamberlo_config_file.h"

namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo {

TamberloConfigParser::TamberloConfigParser() : file_(std::make_unique<TuningFile>()) {}

TamberloConfigParser::~TamberloConfigParser() = default;

bool TamberloConfigParser::ParseTuningBuffer(unsigned char* buffer, int size, int& version) {
    const size_t bytes = buffer == nullptr || size < 0 ? 0 : static_cast<size_t>(size);
    auto file = ReadTuningFile(std::span<const uint8_t>(buffer, bytes));
    if (!file.ok()) {
        const TuningFileError& error = file.error();
        version = static_cast<int>(error.version.value_or(0));
        LOG(ERROR) << "ParseTuningBuffer: tuning file of " << bytes << " bytes refused at offset "
                   << error.offset << ": " << error.what;
        *file_ = {};
        return false;
    }
    version = expected_version;
    *file_ = std::move(*file);
    return true;
}

std::vector<TuningBlock> TamberloConfigParser::GetTuningDataVector(int mode, Type type) const {
    // Some address for blocks without bytes, since a vector without bytes may have none.
    static constexpr uint8_t kNoBytes = 0;

    std::vector<TuningBlock> blocks;
    const auto found_mode = file_->modes.find(static_cast<uint32_t>(mode));
    if (found_mode == file_->modes.end()) return blocks;
    const auto found_type = found_mode->second.find(static_cast<uint32_t>(type));
    if (found_type == found_mode->second.end()) return blocks;
    for (const TuningFileBlock& block : found_type->second) {
        blocks.push_back({.id = block.id,
                          .size = static_cast<uint32_t>(block.data.size()),
                          .data = block.data.empty() ? &kNoBytes : block.data.data()});
    }
    return blocks;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo
