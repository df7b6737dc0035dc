#include "audio/hal/aidl/soundtrigger/zyl/zyl_command.h"

#include <atomic>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {

namespace {

// Not one atomic step: two commands that are built at once may get the same number, which the DSP
// does not mind, and a bus-locked increment is saved.
uint32_t NextCommandNumber() {
    static std::atomic<uint32_t> counter{0};
    const uint32_t number = counter.load(std::memory_order_relaxed);
    counter.store(number + 1, std::memory_order_relaxed);
    return number;
}

}  // namespace

CommandHeader MakeHeader(CommandId id, uint16_t size) {
    CommandHeader header{};
    header.sequence = static_cast<uint8_t>(NextCommandNumber());
    header.size = size;
    header.id = static_cast<uint16_t>(id);
    return header;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
