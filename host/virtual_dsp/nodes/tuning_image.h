#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <android-base/thread_annotations.h>

namespace virtual_dsp {

// The tuning file as the board's file system shows it; without contents there is no such file.
//
// Thread-safe. An open file keeps the contents that it had when it was opened.
class TuningImage {
  public:
    using Bytes = std::shared_ptr<const std::vector<uint8_t>>;

    void Set(std::vector<uint8_t> contents) EXCLUDES(lock_);
    void Remove() { Replace(nullptr); }
    Bytes Get() const EXCLUDES(lock_);

  private:
    void Replace(Bytes bytes) EXCLUDES(lock_);

    mutable std::mutex lock_;
    Bytes bytes_ GUARDED_BY(lock_);  // Null when there is no file.
};

inline void TuningImage::Set(std::vector<uint8_t> contents) {
    Replace(std::make_shared<const std::vector<uint8_t>>(std::move(contents)));
}

inline TuningImage::Bytes TuningImage::Get() const {
    std::lock_guard lock(lock_);
    return bytes_;
}

inline void TuningImage::Replace(Bytes bytes) {
    std::lock_guard lock(lock_);
    bytes_ = std::move(bytes);
}

}  // namespace virtual_dsp
