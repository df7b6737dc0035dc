#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace virtual_dsp {

// The tuning file as the board's file system shows it; without contents there is no such file.
//
// Thread-safe. A file that is open keeps the contents that it was opened with.
class TuningImage {
  public:
    using Bytes = std::shared_ptr<const std::vector<uint8_t>>;

    void Set(std::vector<uint8_t> contents) {
        Replace(std::make_shared<const std::vector<uint8_t>>(std::move(contents)));
    }
    void Remove() { Replace(nullptr); }

    Bytes Get() const {
        std::lock_guard lock(lock_);
        return bytes_;
    }

  private:
    void Replace(Bytes bytes) {
        std::lock_guard lock(lock_);
        bytes_ = std::move(bytes);
    }

    mutable std::mutex lock_;
    Bytes bytes_;  // Under lock_; null when there is no file.
};

}  // namespace virtual_dsp
