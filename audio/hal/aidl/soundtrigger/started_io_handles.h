#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** The framework's model handles run from 1 to this number; 0 is the HAL's own client. */
inline constexpr int32_t kMaxSoundModels = 3;

/**
 * The io handles of the started clients, by model handle. A look-up waits for nobody and touches no
 * client, which another thread may be destroying. One thread at a time may write.
 */
class StartedIoHandles {
  public:
    /** By model handle; empty where no client is started. */
    using Table = std::array<std::optional<int32_t>, kMaxSoundModels + 1>;

    StartedIoHandles() { Publish({}); }

    void Publish(const Table& table) {
        for (size_t handle = 0; handle < table.size(); ++handle) {
            io_handles_[handle] = table[handle] ? *table[handle] : kNotStarted;
        }
    }

    /** The lowest model handle with this io handle. Safe from any thread. */
    std::optional<int32_t> FindModel(int32_t io_handle) const {
        for (size_t handle = 0; handle < io_handles_.size(); ++handle) {
            if (io_handles_[handle] == io_handle) return static_cast<int32_t>(handle);
        }
        return std::nullopt;
    }

  private:
    static constexpr int64_t kNotStarted = INT64_MIN;  // No io handle: those are 32 bits wide.

    std::array<std::atomic<int64_t>, kMaxSoundModels + 1> io_handles_;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
