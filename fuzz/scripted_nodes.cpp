#include "fuzz/scripted_nodes.h"

#include <fcntl.h>

#include <cerrno>

namespace fuzz {

namespace {

ScriptedNodes* current = nullptr;

}  // namespace

int Deliver(const Bytes& from, std::span<uint8_t> to) {
    const size_t count = std::min(from.size(), to.size());
    std::copy_n(from.begin(), count, to.begin());
    return static_cast<int>(count);
}

ScriptedNodes::ScriptedNodes() {
    current = this;
}

ScriptedNodes::~ScriptedNodes() {
    Require(open_files_ == 0, "every device that was opened is closed");
    current = nullptr;
}

Node* ScriptedNodes::Find(const char* path) {
    const auto found = current->nodes_.find(path);
    return found == current->nodes_.end() ? nullptr : &found->second;
}

void ScriptedNodes::CountOpen(int change) {
    current->open_files_ += change;
}

CommandNode::CommandNode(ScriptedNodes* nodes) {
    Node& node = (*nodes)[zyl::kCommandDevice];
    node.write = [this](std::span<const uint8_t> command) {
        commands_.emplace_back(command.begin(), command.end());
        reply_ = commands_.back();
        result_ = answer ? answer(&reply_) : 0;
        return static_cast<int>(command.size());
    };
    node.read = [this](auto to) { return result_ < 0 ? result_ : Deliver(reply_, to); };
}

std::unique_ptr<utils::File> CommandFile() {
    return std::make_unique<utils::File>(zyl::kCommandDevice, O_RDWR | O_NONBLOCK);
}

std::unique_ptr<zyl::ZylSoundTriggerAdapter> MakeAdapter(const std::string& tuning_file) {
    return std::make_unique<zyl::ZylSoundTriggerAdapter>(
            CommandFile(), std::make_unique<zyl::ZylSoundTriggerTuningManager>(tuning_file));
}

}  // namespace fuzz

namespace vendor::quarno::brindlecove::audio::hal::utils {

using fuzz::Node;
using fuzz::ScriptedNodes;

namespace {

// No descriptor that this process has: nothing but a File may use it.
constexpr int kDescriptor = 1'000'000;

int Fail(int error) {
    errno = error;
    return -1;
}

}  // namespace

File::File(const char* path, int flags) : flags_(flags) {
    path_fits_ = strlen(path) < path_.size();
    std::copy_n(path, path_fits_ ? strlen(path) + 1 : 0, path_.begin());
}

File::~File() {
    Close();
}

int File::Open() {
    Close();
    const Node* const node = ScriptedNodes::Find(path());
    if (node == nullptr) return -ENOENT;
    const int result = node->open ? node->open() : 0;
    if (result != 0) return result;
    fd_ = kDescriptor;
    ScriptedNodes::CountOpen(+1);
    return 0;
}

// What is not there does not appear within a run, so there is nothing to wait for.
int File::Open(int, int) {
    return Open();
}

int File::PollIn(int timeout_ms) {
    if (fd_ < 0) return -EBADF;
    const Node* const node = ScriptedNodes::Find(path());
    return node->poll ? node->poll(timeout_ms) : 0;
}

int File::Read(char* buffer, int size) {
    if (fd_ < 0 || (flags_ & O_ACCMODE) == O_WRONLY) return Fail(EBADF);
    if (size < 0) return Fail(EINVAL);
    const Node* const node = ScriptedNodes::Find(path());
    const std::span to(reinterpret_cast<uint8_t*>(buffer), static_cast<size_t>(size));
    const int result = node->read ? node->read(to) : fuzz::Deliver(fuzz::Bytes(to.size()), to);
    return result < 0 ? Fail(-result) : result;
}

int File::Write(const char* data, int size) {
    if (fd_ < 0 || (flags_ & O_ACCMODE) == O_RDONLY) return Fail(EBADF);
    if (size < 0) return Fail(EINVAL);
    const Node* const node = ScriptedNodes::Find(path());
    const std::span from(reinterpret_cast<const uint8_t*>(data), static_cast<size_t>(size));
    const int result = node->write ? node->write(from) : size;
    return result < 0 ? Fail(-result) : result;
}

void File::Close() {
    if (fd_ < 0) return;
    fd_ = -1;
    ScriptedNodes::CountOpen(-1);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::utils
