#pragma once

#include <aidl/android/media/soundtrigger/SoundModel.h>
#include <android-base/logging.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using ::aidl::android::media::soundtrigger::SoundModel;
using ::aidl::android::media::soundtrigger::SoundModelType;

/** A file in memory with these bytes, at its beginning. Ends the process if it cannot be had. */
inline ::ndk::ScopedFileDescriptor MemoryFile(std::span<const uint8_t> bytes = {}) {
    ::ndk::ScopedFileDescriptor file(memfd_create("test", MFD_CLOEXEC));
    CHECK_EQ(pwrite(file.get(), bytes.data(), bytes.size(), 0), std::ssize(bytes));
    return file;
}

/** All that stands in a file, from its beginning. */
inline std::string TextOf(const ::ndk::ScopedFileDescriptor& file) {
    std::string text(static_cast<size_t>(lseek(file.get(), 0, SEEK_END)), '\0');
    CHECK_EQ(pread(file.get(), text.data(), text.size(), 0), std::ssize(text));
    return text;
}

/** A model as the framework hands it over, in a descriptor of its own. */
inline SoundModel ModelOf(SoundModelType type, const std::string& vendor_uuid,
                          std::span<const uint8_t> bytes) {
    SoundModel model;
    model.type = type;
    model.uuid = "uuid of any";
    model.vendorUuid = vendor_uuid;
    model.data = MemoryFile(bytes);
    model.dataSize = static_cast<int32_t>(bytes.size());
    return model;
}
inline SoundModel ModelOf(SoundModelType type, const std::string& vendor_uuid,
                          std::string_view bytes = "model") {
    return ModelOf(type, vendor_uuid,
                   {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
