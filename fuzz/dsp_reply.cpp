// What the DSP answers to a command, and how the device behaves meanwhile: replies that are torn,
// too long, another command's or never there, short writes, errors.
#include <array>
#include <cerrno>
#include <deque>

#include "audio/hal/utils/zyl/zyl_ticks.h"
#include "fuzz/scripted_nodes.h"

namespace fuzz {

namespace {

using utils::zyl::ZylCommandExecutor;

constexpr std::array kErrors = {EINTR, EAGAIN, EIO, ENODEV, ENOSPC};
constexpr uint8_t kShortWrite = 240;
constexpr uint8_t kFailingWrite = 248;

enum What : uint8_t { kReply, kOtherSequence, kOtherId, kOtherSize, kTorn, kRaw, kError, kSilence };

// A command node that is scripted in advance; when the script is over, no more answers come.
class Device {
  public:
    explicit Device(ScriptedNodes* nodes) {
        Node& node = (*nodes)[zyl::kCommandDevice];
        node.write = [this](std::span<const uint8_t> command) {
            written_.assign(command.begin(), command.end());
            const int size = static_cast<int>(command.size());
            if (write_ >= kFailingWrite) return -kErrors[write_ % kErrors.size()];
            return write_ >= kShortWrite ? size - 1 : size;
        };
        node.poll = [this](int timeout_ms) {
            Require(timeout_ms >= 0 && timeout_ms <= ZylCommandExecutor::kReplyTimeout.count(),
                    "no wait is longer than the one for a reply");
            const bool is_ready = !steps_.empty() && steps_.front().what != kSilence;
            if (!is_ready && !steps_.empty()) steps_.pop_front();
            return is_ready ? 0 : -ETIMEDOUT;
        };
        node.read = [this](std::span<uint8_t> to) {
            const Step step = std::move(steps_.front());
            steps_.pop_front();
            delivered_.clear();
            if (step.what == kError) return -kErrors[step.number % kErrors.size()];
            delivered_ = step.what == kRaw ? step.bytes : Reply(step);
            delivered_.resize(std::min(delivered_.size(), to.size()));
            return Deliver(delivered_, to);
        };
    }

    void Script(Input* input) {
        written_.clear();
        delivered_.clear();
        steps_.clear();
        write_ = input->Take<uint8_t>();
        for (int left = input->Take<uint8_t>() % 8; left > 0; --left) {
            Step& step = steps_.emplace_back();
            step.what = static_cast<What>(input->Take<uint8_t>() % (kSilence + 1));
            step.number = input->Take<uint8_t>();
            step.bytes = input->TakeBytes(step.number % 100);
        }
    }

    const Bytes& written() const { return written_; }
    // By the last read.
    const Bytes& delivered() const { return delivered_; }
    bool HasAnswered() const {
        const auto command = As<zyl::CommandHeader>(written_);
        const auto reply = As<zyl::CommandHeader>(delivered_);
        return !delivered_.empty() && delivered_.size() == written_.size() &&
               reply.id == command.id && reply.sequence == command.sequence &&
               reply.size == written_.size();
    }

  private:
    struct Step {
        What what;
        uint8_t number;
        Bytes bytes;
    };

    Bytes Reply(const Step& step) const {
        auto header = As<zyl::CommandHeader>(written_);
        if (step.what == kOtherSequence) ++header.sequence;
        if (step.what == kOtherId) ++header.id;
        if (step.what == kOtherSize) header.size = step.number;
        Bytes reply = Join(header, step.bytes);
        reply.resize(step.what == kTorn ? step.number : std::max(reply.size(), written_.size()));
        return reply;
    }

    uint8_t write_ = 0;
    std::deque<Step> steps_;
    Bytes written_;
    Bytes delivered_;
};

// A command of whatever length, with a header that may be wrong.
void ExecuteAny(Bytes command, Device* device, ZylCommandExecutor* executor) {
    const Bytes before = command;
    const int result = executor->Execute(reinterpret_cast<char*>(command.data()),
                                         static_cast<int>(command.size()));
    const bool is_sendable = before.size() >= 8 && before.size() <= 256 &&
                             As<zyl::CommandHeader>(before).size == before.size();
    Require(device->written() == (is_sendable ? before : Bytes()), "only whole commands are sent");
    Require(result <= 0, "a result is 0 or a negative errno");
    Require((result == 0) == device->HasAnswered(), "success is the device's answer, and no more");
    Require(command == (result == 0 ? device->delivered() : before),
            "a command is overwritten with its answer, or not at all");
}

void QueryArchitecture(Device* device, soundtrigger::SoundTriggerAdapter* adapter) {
    const auto library = adapter->GetLibraryArchitecture();
    Require(library.has_value() == device->HasAnswered(), "an architecture is the device's answer");
    if (!library) return;
    const auto reply = As<zyl::LibraryArchitecturePayload>(device->delivered());
    std::string text(reply.architecture.begin(), reply.architecture.end());
    text.resize(std::min(text.size(), text.find('\0')));
    Require(library->library_version == reply.library_version && library->architecture == text,
            "the version and the text of the answer");
}

// The clock node says that 12000 ticks, 625000 ns, were 5 ns of boot time.
void QueryTimestamp(Device* device) {
    constexpr int64_t kOffset = 625'000 - 5;
    const auto adapter = MakeAdapter();
    std::array<char, 2048> audio;
    Require(adapter->ReadDspBuffer(1, audio.data(), 4, 2) == 4, "audio is read all the same");
    int64_t expected = -1;
    if (device->HasAnswered()) {
        const uint64_t ticks = As<zyl::HotwordTimestampPayload>(device->delivered()).ticks;
        const int64_t timestamp = utils::zyl::zyl_ticks_to_nanoseconds(ticks) - kOffset;
        if (timestamp >= 1) expected = timestamp;
    }
    Require(adapter->ReadDspTimestamp(1) == expected, "the timestamp of the answer, or none");
}

}  // namespace

void Run(Input input) {
    ScriptedNodes nodes;
    Device device(&nodes);
    nodes[zyl::kHotwordPcmDevice] = {};
    nodes[zyl::kClockNode].read = [](auto to) { return Deliver(Join(std::string("12000 5")), to); };
    const auto adapter = MakeAdapter();
    ZylCommandExecutor executor(CommandFile());
    Require(executor.Open() == 0, "the device is opened");
    while (!input.empty()) {
        const uint8_t query = input.Take<uint8_t>() % 3;
        device.Script(&input);
        if (query == 0) QueryArchitecture(&device, adapter.get());
        if (query == 1) QueryTimestamp(&device);
        if (query == 2)
            ExecuteAny(input.TakeBytes(input.Take<uint16_t>() % 300), &device, &executor);
    }
}

std::map<std::string, Bytes> Seeds() {
    zyl::CommandHeader header{};
    header.size = sizeof(zyl::ValuePayload);
    header.id = zyl::CMD_AUDIO_INPUT_SET_CHRE_GAIN;
    const Bytes command = Join(uint16_t{12}, header, uint32_t{5});
    Bytes version_and_text = Join(uint32_t{7}, std::string("arm"));
    version_and_text.resize(68);
    Bytes ticks = Join(uint64_t{19'200'000});
    std::map<std::string, Bytes> seeds;
    for (uint8_t what = kReply; what <= kSilence; ++what) {
        // A step of this kind, then a right reply.
        const Bytes script =
                Join(U8(0), U8(2), what, U8(8), ticks, kReply, U8(68), version_and_text);
        seeds[std::to_string(what)] = Join(U8(0), script, U8(1), script, U8(2), script, command);
    }
    return seeds;
}

}  // namespace fuzz
