#define LOG_TAG "Sthal::ZylSoundTriggerTuningManager"

#include "audio/hal/aidl/soundtrigger/zyl/zyl_sound_trigger_tuning_manager.h"

#include <android-base/logging.h>

#include <cstdio>
#include <new>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {

namespace {

using utils::tamberlo::TamberloConfigParser;

// Modes of the tuning file, and the type of block that is the sound trigger's.
constexpr int kDefaultMode = 0;
constexpr int kDockedMode = 86;
constexpr auto kBlockType = TamberloConfigParser::Type::kSoundTrigger;

// A larger one is a mistake: a folder, for example, says that it has LONG_MAX bytes.
constexpr long kMaxFileBytes = 16L * 1024 * 1024;

struct FileCloser {
    void operator()(FILE* file) const { fclose(file); }
};

// The file's size in bytes, with the file rewound; -1 when it has none.
long SizeOf(FILE* file) {
    if (fseek(file, 0, SEEK_END) != 0) return -1;
    const long size = ftell(file);
    rewind(file);
    return size;
}

}  // namespace

ZylSoundTriggerTuningManager::ZylSoundTriggerTuningManager(std::string_view file_path)
    : file_path_(file_path), parser_(std::make_unique<TamberloConfigParser>()) {
    const std::unique_ptr<FILE, FileCloser> file(fopen(file_path_.c_str(), "re"));
    if (file == nullptr) {
        LOG(ERROR) << "ZylSoundTriggerTuningManager: failed to open tuning file:" << file_path_;
        return;
    }
    const long size = SizeOf(file.get());
    if (size < 0 || size > kMaxFileBytes) {
        LOG(ERROR) << "ZylSoundTriggerTuningManager: no tuning file of a sane size: " << size
                   << " bytes in " << file_path_;
        return;
    }
    const auto bytes = static_cast<size_t>(size);
    const std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[bytes]());
    if (buffer == nullptr) {
        LOG(ERROR) << "ZylSoundTriggerTuningManager: no memory for " << size << " bytes of "
                   << file_path_;
        return;
    }
    if (fread(buffer.get(), 1, bytes, file.get()) == bytes) {
        int version = 0;
        (void)parser_->ParseTuningBuffer(buffer.get(), static_cast<int>(size), version);
        if (version != parser_->expected_version) {
            LOG(WARNING) << "ZylSoundTriggerTuningManager: incorrect version of tuning file";
        }
    }
    // Also after a short read: the file is not missing.
    is_loaded_ = true;
}

ZylSoundTriggerTuningManager::~ZylSoundTriggerTuningManager() = default;

std::vector<ZylSoundTriggerTuningManager::TuningBlock> ZylSoundTriggerTuningManager::GetTuningData(
        int tuning_type) const {
    if (!is_loaded_) {
        LOG(WARNING) << "GetTuningData: Tuning file doesn't exist";
        return {};
    }
    switch (static_cast<TuningType>(tuning_type)) {
        case TuningType::Default:
            return parser_->GetTuningDataVector(kDefaultMode, kBlockType);
        case TuningType::Docked:
            return parser_->GetTuningDataVector(kDockedMode, kBlockType);
        case TuningType::Unknown:
            break;
    }
    LOG(WARNING) << "GetTuningData: Tuning type is not support ";
    return {};
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
