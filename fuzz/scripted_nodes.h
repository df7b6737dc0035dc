#pragma once

#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>

#include "audio/hal/aidl/soundtrigger/zyl/zyl_sound_trigger_adapter.h"
#include "fuzz/fuzz.h"

namespace fuzz {

/** What a device node does on the calls of a File. What is not set succeeds: poll is ready, a read
 * fills its buffer with zeros, a write is taken whole. */
struct Node {
    std::function<int()> open;                           // 0 or a negative errno.
    std::function<int(int timeout_ms)> poll;             // As File::PollIn.
    std::function<int(std::span<uint8_t> to)> read;      // Bytes or a negative errno.
    std::function<int(std::span<const uint8_t>)> write;  // Bytes or a negative errno.
};

/** A read's result where `from` is what there is. */
int Deliver(const Bytes& from, std::span<uint8_t> to);

/**
 * The nodes of one run, by path; another path does not exist. The fuzzers link an implementation of
 * utils::File that opens these. The virtual board would serve such nodes to the real one, but at
 * 50 us a call and from threads of its own: a hundred times fewer runs, and none that repeats
 * exactly. All that is above File is the product's own code either way.
 *
 * Requires at its end that every File has been closed.
 */
class ScriptedNodes {
  public:
    ScriptedNodes();
    ~ScriptedNodes();
    ScriptedNodes(const ScriptedNodes&) = delete;
    ScriptedNodes& operator=(const ScriptedNodes&) = delete;

    Node& operator[](const std::string& path) { return nodes_[path]; }

  private:
    friend class utils::File;
    static Node* Find(const char* path);
    static void CountOpen(int change);

    std::map<std::string, Node> nodes_;
    int open_files_ = 0;
};

/** The command node of a DSP that takes every command, keeps it, and answers as it is told to. */
class CommandNode {
  public:
    explicit CommandNode(ScriptedNodes* nodes);

    /** Makes the reply of the command. A negative errno refuses the command. */
    std::function<int(Bytes* command)> answer;

    /** The commands since the last Take. */
    std::vector<Bytes> Take() { return std::exchange(commands_, {}); }

  private:
    std::vector<Bytes> commands_;
    Bytes reply_;
    int result_ = 0;
};

std::unique_ptr<utils::File> CommandFile();

/** The real adapter, on the nodes of this run. */
std::unique_ptr<zyl::ZylSoundTriggerAdapter> MakeAdapter(const std::string& tuning_file = "");

}  // namespace fuzz
