// The clock node's text, by which the timestamp of a hotword is moved from the DSP's clock to the
// kernel's. Each turn is a detection: the DSP's timestamp, how the node fares, and its text.
#include <array>
#include <cerrno>
#include <limits>
#include <optional>
#include <sstream>

#include "audio/hal/utils/zyl/zyl_ticks.h"
#include "fuzz/scripted_nodes.h"

namespace fuzz {

namespace {

using utils::zyl::zyl_ticks_to_nanoseconds;

// Two numbers of 20 digits, what is between them, and an end of line.
constexpr size_t kLongestSoundText = 42;
constexpr uint8_t kFailingOpen = 1;
constexpr uint8_t kFailingRead = 2;

// How far the DSP's clock is ahead, as a text stream reads it.
std::optional<int64_t> OffsetIn(const std::string& text) {
    std::istringstream stream(text);
    uint64_t ticks = 0;
    uint64_t boottime_ns = 0;
    if (!(stream >> ticks >> boottime_ns)) return std::nullopt;
    if (boottime_ns > uint64_t{std::numeric_limits<int64_t>::max()}) return std::nullopt;
    const int64_t offset = zyl_ticks_to_nanoseconds(ticks) - static_cast<int64_t>(boottime_ns);
    return offset > 0 ? std::optional(offset) : std::nullopt;
}

}  // namespace

void Run(Input input) {
    ScriptedNodes nodes;
    CommandNode dsp(&nodes);
    uint64_t hotword_ticks = 0;
    dsp.answer = [&](Bytes* command) {
        *command = Join(As<zyl::CommandHeader>(*command), hotword_ticks);
        return 0;
    };
    nodes[zyl::kHotwordPcmDevice] = {};
    zyl::NotificationRecord hotword{};
    hotword.id = zyl::kHotwordDetected;
    nodes[zyl::kNotificationDevice].read = [&](auto to) { return Deliver(Join(hotword), to); };
    const auto adapter = MakeAdapter();
    (void)adapter->GetNotificationFileDescriptor();

    for (int64_t timestamp = -1; !input.empty();) {
        hotword_ticks = input.Take<uint64_t>();
        const auto fate = input.Take<uint8_t>();
        const std::string text = input.TakeText();
        nodes[zyl::kClockNode].open = [&] { return fate == kFailingOpen ? -ENOENT : 0; };
        nodes[zyl::kClockNode].read = [&](auto to) {
            return fate == kFailingRead ? -EIO : Deliver(Join(text), to);
        };
        int engine = 0;
        std::string payload;
        std::array<char, 2048> audio;
        Require(adapter->ReadDspNotification(&engine, payload) == 0, "a detection is taken");
        Require(adapter->ReadDspBuffer(1, audio.data(), 4, 2) == 4, "audio is read all the same");

        const int64_t before = std::exchange(timestamp, adapter->ReadDspTimestamp(1));
        // The node's numbers have no sign, and what is made of one is nobody's concern.
        if (text.find_first_of("+-") != std::string::npos) {
            Require(timestamp == before || timestamp >= 1, "a timestamp is positive");
            continue;
        }
        const bool is_there = fate != kFailingOpen && fate != kFailingRead;
        const auto offset = is_there ? OffsetIn(text) : std::nullopt;
        const int64_t found = offset ? zyl_ticks_to_nanoseconds(hotword_ticks) - *offset : -1;
        const int64_t expected = found >= 1 ? found : before;
        const bool is_refused = timestamp == before && text.size() > kLongestSoundText;
        Require(timestamp == expected || is_refused,
                "the timestamp by the whole text, or as it was");
    }
}

std::map<std::string, Bytes> Seeds() {
    constexpr uint64_t kTicks = 19'200'000'000;  // 1000 s.
    Bytes all;
    for (const std::string text :
         {"19200000000 999000000000\n", "1 2", "", "12 x", "0x10 5", "99999999999999999999 1",
          "18446744073709551615 9223372036854775807", "-1 5", "\t 19200000000 \v\n 7 trailing"}) {
        all = Join(all, kTicks, U8(0), Text(text));
    }
    const Bytes failing =
            Join(kTicks, kFailingOpen, Text("5 4"), kTicks, kFailingRead, Text("5 4"));
    const std::string blanks(44, ' ');  // More than two numbers have room beside.
    return {{"texts", all},
            {"failing", failing},
            {"blanks", Join(kTicks, U8(0), Text(blanks + "19200000000 999000000000"))}};
}

}  // namespace fuzz
