#include "host/virtual_dsp/nodes/nodes.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace virtual_dsp {
namespace {

constexpr short kReadable = POLLIN | POLLRDNORM;
constexpr short kWritable = POLLOUT | POLLWRNORM;
constexpr short kGone = POLLERR | POLLHUP;

// As sysfs shows the size of every attribute, whatever it holds.
constexpr off_t kAttributeSize = 4096;

int CopyFrom(std::span<const uint8_t> contents, std::span<uint8_t> out, off_t offset) {
    const size_t begin = std::min(static_cast<size_t>(std::max<off_t>(offset, 0)), contents.size());
    const size_t count = std::min(out.size(), contents.size() - begin);
    std::copy_n(contents.begin() + static_cast<ptrdiff_t>(begin), count, out.begin());
    return static_cast<int>(count);
}

std::span<const uint8_t> BytesOf(const std::string& text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

std::string_view TextOf(std::span<const uint8_t> data) {
    return {reinterpret_cast<const char*>(data.data()), data.size()};
}

// The command node: each write is a command, the read after it fetches the DSP's reply or the errno
// with which the DSP refused it. Both belong to the open that wrote the command: a reply that
// comes late, to a file that was closed, reaches nobody.
class CommandFile final : public OpenFile {
  public:
    CommandFile(Dsp& dsp, FaultPlan& faults) : dsp_(dsp), faults_(faults) {}

    int Write(std::span<const uint8_t> data) override;
    int Read(std::span<uint8_t> out, off_t offset) override;
    short Events() const override;
    std::optional<uint16_t> CommandId() const override { return command_id_; }
    std::optional<TimePoint> NextChange() const override;
    void OnDspDown() override;

  private:
    // Longer than any command; the node's buffer in the driver.
    static constexpr size_t kMaxCommandBytes = 256;

    struct Answer {
        int error = 0;  // 0 or a negative errno.
        std::vector<uint8_t> reply = {};
        TimePoint due = {};
        bool hangs = false;
        uint64_t fault_generation = 0;
    };

    void Apply(const Fault& fault, Answer& answer) const;
    bool IsHeldBack(const Answer& answer) const;

    Dsp& dsp_;
    FaultPlan& faults_;
    std::optional<uint16_t> command_id_;
    std::optional<Answer> answer_;  // From the write until the read.
};

int CommandFile::Write(std::span<const uint8_t> data) {
    wire::CommandHeader header;
    if (data.size() < sizeof(header) || data.size() > kMaxCommandBytes) return -EINVAL;
    if (!dsp_.IsUp()) return -ENODEV;
    std::memcpy(&header, data.data(), sizeof(header));

    // Whatever was not fetched of an earlier command is lost, so that its reply cannot pass for
    // this one's.
    answer_.reset();
    command_id_ = header.id;
    Answer answer;
    const auto fault = faults_.Next(NodeId::kCommand, FaultOperation::kReply, header.id);
    if (fault && fault->effect.kind == FaultEffect::Kind::kErrno) {
        answer.error = -fault->effect.value;
    } else {
        answer.error = dsp_.Execute(data, &answer.reply);
        if (answer.error == -ENODEV) return -ENODEV;
        if (fault) Apply(*fault, answer);
    }
    answer_ = std::move(answer);
    return static_cast<int>(data.size());
}

void CommandFile::Apply(const Fault& fault, Answer& answer) const {
    answer.fault_generation = fault.generation;
    switch (fault.effect.kind) {
        case FaultEffect::Kind::kShort:
            answer.reply.resize(ShortenedSize(fault.effect, answer.reply.size()));
            break;
        case FaultEffect::Kind::kTorn:
            Tear(fault.effect, answer.reply);
            break;
        case FaultEffect::Kind::kDelay:
            answer.due = std::chrono::steady_clock::now() +
                         std::chrono::milliseconds(fault.effect.value);
            break;
        case FaultEffect::Kind::kHang:
            answer.hangs = true;
            break;
        case FaultEffect::Kind::kErrno:  // Done instead of the command.
        case FaultEffect::Kind::kReady:  // Of polls.
            break;
    }
}

bool CommandFile::IsHeldBack(const Answer& answer) const {
    if (!answer.hangs && std::chrono::steady_clock::now() >= answer.due) return false;
    return answer.fault_generation == faults_.generation();
}

int CommandFile::Read(std::span<uint8_t> out, off_t /*offset*/) {
    if (!dsp_.IsUp()) {
        answer_.reset();
        return -ENODEV;
    }
    // Not a wait: nothing is on its way.
    if (!answer_) return -ENODATA;
    if (IsHeldBack(*answer_)) return -EAGAIN;
    const Answer answer = std::move(*answer_);
    answer_.reset();
    // A buffer that is too short gets what fits; the rest is gone with the message.
    return answer.error != 0 ? answer.error : CopyFrom(answer.reply, out, 0);
}

short CommandFile::Events() const {
    if (!dsp_.IsUp()) return kGone;
    return answer_ && !IsHeldBack(*answer_) ? kWritable | kReadable : kWritable;
}

std::optional<OpenFile::TimePoint> CommandFile::NextChange() const {
    if (!answer_ || answer_->hangs || !IsHeldBack(*answer_)) return std::nullopt;
    return answer_->due;
}

void CommandFile::OnDspDown() {
    // The reply went down with the DSP, even if that has been restarted meanwhile.
    if (answer_) answer_ = Answer{.error = -ENODEV};
}

// The model-data node: each write is one chunk of a model.
class ModelDataFile final : public OpenFile {
  public:
    explicit ModelDataFile(Dsp& dsp) : dsp_(dsp) {}

    int Write(std::span<const uint8_t> data) override { return dsp_.WriteModelChunk(data); }
    short Events() const override { return dsp_.IsUp() ? kWritable : kGone; }

  private:
    Dsp& dsp_;
};

// An audio node.
class PcmFile final : public OpenFile {
  public:
    PcmFile(Dsp& dsp, PcmPort port, size_t frame_bytes)
        : dsp_(dsp),
          port_(port),
          frame_bytes_(frame_bytes),
          ended_before_(dsp.PcmCapturesEnded(port)) {}

    int Read(std::span<uint8_t> out, off_t /*offset*/) override {
        // The DSP delivers whole frames: a shorter reader would wait for ever.
        if (out.size() < frame_bytes_) return -EINVAL;
        const int count = dsp_.ReadPcm(port_, out);
        if (count != 0) return count;
        // What the reader was after does not come any more.
        return dsp_.PcmCapturesEnded(port_) != ended_before_ ? -ENODATA : -EAGAIN;
    }

    short Events() const override {
        if (!dsp_.IsUp()) return kGone;
        return dsp_.PcmBytesReady(port_) > 0 ? kReadable : 0;
    }

  private:
    Dsp& dsp_;
    const PcmPort port_;
    const size_t frame_bytes_;
    const uint64_t ended_before_;
};

// The notification node: one detection record a read. A record goes to the first reader, and all of
// it: a buffer that is too short gets what fits, and the rest is dropped.
class NotificationFile final : public OpenFile {
  public:
    explicit NotificationFile(Dsp& dsp) : dsp_(dsp) {}

    int Read(std::span<uint8_t> out, off_t /*offset*/) override {
        const auto record = dsp_.TakeNotification();
        if (!record) return dsp_.IsUp() ? -EAGAIN : -ENODEV;
        std::array<uint8_t, sizeof(*record)> bytes;
        std::memcpy(bytes.data(), &*record, sizeof(*record));
        return CopyFrom(bytes, out, 0);
    }

    short Events() const override {
        if (!dsp_.IsUp()) return kGone;
        return dsp_.HasNotification() ? kReadable : 0;
    }

  private:
    Dsp& dsp_;
};

// The clock node: each open reads the clock once, so that a reader of a few bytes at a time gets
// two numbers that belong together.
class ClockFile final : public OpenFile {
  public:
    explicit ClockFile(const Dsp& dsp) : is_up_(dsp.IsUp()), text_(is_up_ ? dsp.ReadClock() : "") {}

    int Read(std::span<uint8_t> out, off_t offset) override {
        return is_up_ ? CopyFrom(BytesOf(text_), out, offset) : -ENODEV;
    }

  private:
    const bool is_up_;
    const std::string text_;
};

// Both power nodes: a write takes or releases a name, a read lists those that were held when the
// file was opened.
class WakeLockFile final : public OpenFile {
  public:
    WakeLockFile(WakeLocks& locks, int (WakeLocks::*action)(std::string_view))
        : locks_(locks), action_(action) {
        for (const std::string& name : locks.Held()) list_ += (list_.empty() ? "" : " ") + name;
        list_ += "\n";
    }

    int Read(std::span<uint8_t> out, off_t offset) override {
        return CopyFrom(BytesOf(list_), out, offset);
    }

    int Write(std::span<const uint8_t> data) override {
        const int result = (locks_.*action_)(TextOf(data));
        return result == 0 ? static_cast<int>(data.size()) : result;
    }

  private:
    WakeLocks& locks_;
    int (WakeLocks::*const action_)(std::string_view);
    std::string list_;
};

class TuningFile final : public OpenFile {
  public:
    explicit TuningFile(TuningImage::Bytes bytes) : bytes_(std::move(bytes)) {}

    int Read(std::span<uint8_t> out, off_t offset) override {
        return CopyFrom(*bytes_, out, offset);
    }

  private:
    const TuningImage::Bytes bytes_;
};

}  // namespace

int OpenFile::Read(std::span<uint8_t> /*out*/, off_t /*offset*/) {
    return -EINVAL;
}
int OpenFile::Write(std::span<const uint8_t> /*data*/) {
    return -EINVAL;
}
short OpenFile::Events() const {
    return kReadable | kWritable;
}

std::optional<off_t> NodeSize(NodeId id, const NodeContext& context) {
    if (id == NodeId::kTuning) {
        const TuningImage::Bytes bytes = context.tuning.Get();
        if (!bytes) return std::nullopt;
        return static_cast<off_t>(bytes->size());
    }
    return InfoOf(id).is_stream ? 0 : kAttributeSize;
}

std::unique_ptr<OpenFile> OpenNode(NodeId id, const NodeContext& context) {
    Dsp& dsp = context.dsp;
    switch (id) {
        case NodeId::kCommand:
            return std::make_unique<CommandFile>(dsp, context.faults);
        case NodeId::kModelData:
            return std::make_unique<ModelDataFile>(dsp);
        case NodeId::kHotwordPcm:
            return std::make_unique<PcmFile>(dsp, PcmPort::kHotword, InfoOf(id).unit_bytes);
        case NodeId::kAmbientPcm:
            return std::make_unique<PcmFile>(dsp, PcmPort::kAmbient, InfoOf(id).unit_bytes);
        case NodeId::kNotification:
            return std::make_unique<NotificationFile>(dsp);
        case NodeId::kClock:
            return std::make_unique<ClockFile>(dsp);
        case NodeId::kWakeLock:
            return std::make_unique<WakeLockFile>(context.wake_locks, &WakeLocks::Acquire);
        case NodeId::kWakeUnlock:
            return std::make_unique<WakeLockFile>(context.wake_locks, &WakeLocks::Release);
        case NodeId::kTuning: {
            TuningImage::Bytes bytes = context.tuning.Get();
            return bytes ? std::make_unique<TuningFile>(std::move(bytes)) : nullptr;
        }
    }
    return nullptr;
}

}  // namespace virtual_dsp
