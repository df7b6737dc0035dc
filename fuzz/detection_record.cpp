// The notification device: records of any bytes and any length, and reads that fail. Between them
// audio is read, which dates a hotword once per detection.
#include <array>
#include <cerrno>
#include <string_view>

#include "fuzz/scripted_nodes.h"

namespace fuzz {

namespace {

constexpr size_t kRecordBytes = 40;
constexpr uint8_t kLongestRead = 48;  // The device may have more than one record.
constexpr uint8_t kLastFailure = 54;
constexpr uint8_t kLastAudio = 58;
constexpr std::array kErrors = {EINTR, EAGAIN, EIO, ENODEV};

struct Taken {
    int result = 0;
    int engine = -77;
    std::string payload = "an earlier one's";

    bool operator==(const Taken&) const = default;
};

Taken Expect(const Bytes& record, int error) {
    Taken expected;
    if (error != 0) {
        expected.result = error == EINTR || error == EAGAIN ? 0 : -error;
        return expected;
    }
    if (record.size() < kRecordBytes) return expected;
    const int id = record[4] | record[5] << 8;
    expected.engine = id == 241 ? 1 : id == 259 ? 2 : id == 286 ? 3 : 0;
    std::string_view text(reinterpret_cast<const char*>(&record[8]), 32);
    text = text.substr(0, text.find('\0'));
    if (expected.engine >= 2 && !text.empty()) expected.payload = text;
    return expected;
}

Taken ReadNotification(soundtrigger::SoundTriggerAdapter* adapter) {
    Taken taken;
    taken.result = adapter->ReadDspNotification(&taken.engine, taken.payload);
    return taken;
}

}  // namespace

void Run(Input input) {
    ScriptedNodes nodes;
    CommandNode dsp(&nodes);
    nodes[zyl::kHotwordPcmDevice] = {};
    Bytes record;
    int error = 0;
    nodes[zyl::kNotificationDevice].read = [&](auto to) {
        return error == 0 ? Deliver(record, to) : -error;
    };
    const auto adapter = MakeAdapter();
    Require(ReadNotification(adapter.get()).result == -EINVAL, "nothing is read before it is open");
    Require(adapter->GetNotificationFileDescriptor() >= 0, "the device is opened");

    for (bool is_dated = false; !input.empty();) {
        const uint8_t what = input.Take<uint8_t>() % 64;
        if (what <= kLastFailure) {
            error = what <= kLongestRead ? 0 : kErrors[what % kErrors.size()];
            record = input.TakeBytes(error == 0 ? what : 0);
            const Taken taken = ReadNotification(adapter.get());
            Require(taken == Expect(record, error), "a whole record is taken, or nothing touched");
            is_dated &= taken.engine != 1;
        } else if (what <= kLastAudio) {
            std::array<char, 2048> audio;
            Require(adapter->ReadDspBuffer(1, audio.data(), 4, 2) == 4, "audio is read");
            Require(dsp.Take().size() == (is_dated ? 0 : 1), "one query for each hotword");
            is_dated = true;
        } else {
            adapter->ResetNotificationFileDescriptor();
            Require(adapter->GetNotificationFileDescriptor() >= 0, "the device is opened again");
        }
    }
}

std::map<std::string, Bytes> Seeds() {
    std::map<std::string, Bytes> seeds = {
            {"failures", Join(U8(49), U8(50), U8(51), U8(52), U8(63))}};
    for (const uint16_t id : {zyl::kHotwordDetected, zyl::kAmbientMusicDetected,
                              zyl::kAmbientMusicBreakDetected, uint16_t{242}}) {
        zyl::NotificationRecord empty{};
        empty.id = id;
        zyl::NotificationRecord full = empty;
        full.payload.fill('x');
        const uint8_t size = sizeof(empty);
        seeds[std::to_string(id)] = Join(size, empty, kLastAudio, kLastAudio, size, full, U8(5),
                                         Bytes(5), size, empty, kLastAudio);
    }
    return seeds;
}

}  // namespace fuzz
