// The tuning file: its image, which is the input, and the walk over the records in it, which ends
// in commands. The manager reads a file of its own, so the image is put into one.
#include <zlib.h>

#include <cerrno>

#include "audio/hal/utils/tamberlo/tamberlo_config_file.h"
#include "audio/hal/utils/tamberlo/tamberlo_tuning_text.h"
#include "fuzz/scripted_nodes.h"
#include "tests/support/model.h"

namespace fuzz {

namespace {

using utils::tamberlo::ReadTuningFile;
using utils::tamberlo::TuningFile;
using utils::tamberlo::TuningFileFromText;

constexpr uint32_t kDefaultMode = 0;
constexpr uint32_t kDockedMode = 86;
constexpr uint32_t kSoundTrigger = 4;

// What a mode's records come to: the commands for those before the first bad one, and the result.
struct Walk {
    std::vector<Bytes> commands;  // With 0 as their sequence number.
    int result = 0;
};

Walk WalkRecords(const TuningFile& file, uint32_t mode) {
    Walk walk;
    const auto types = file.modes.find(mode);
    if (types == file.modes.end() || !types->second.contains(kSoundTrigger)) return walk;
    for (const auto& block : types->second.at(kSoundTrigger)) {
        Input records(block.data);
        for (size_t left = block.data.size(); left > 0;) {
            const auto id = records.Take<uint32_t>();
            const auto length = records.Take<uint32_t>();
            const bool is_whole = left >= 12 && length >= 4 && length <= left - 8;
            if (!is_whole || utils::tamberlo::TuningParameterName(id).empty()) {
                walk.result = -EINVAL;
                return walk;
            }
            const auto value = As<uint32_t>(records.TakeBytes(length));
            walk.commands.push_back(
                    Join(uint16_t{0}, uint16_t{12}, static_cast<uint16_t>(id), uint16_t{0}, value));
            left -= 8 + length;
        }
    }
    return walk;
}

void RequireSent(CommandNode* dsp, const std::vector<Bytes>& expected) {
    std::vector<Bytes> sent = dsp->Take();
    for (Bytes& command : sent) command[offsetof(zyl::CommandHeader, sequence)] = 0;
    Require(sent == expected, "one command per sound record before the first bad one");
}

void Send(soundtrigger::SoundTriggerAdapter* adapter, CommandNode* dsp, int type, Walk walk) {
    Require(adapter->SendTuningToDsp(type) == walk.result, "the result is the records'");
    RequireSent(dsp, walk.commands);

    if (walk.commands.empty()) return;
    size_t left = walk.commands.size() / 2;
    dsp->answer = [&left](Bytes*) { return left-- == 0 ? -EBUSY : 0; };
    walk.commands.resize(left + 1);
    Require(adapter->SendTuningToDsp(type) == -EBUSY, "a refused command ends the walk");
    RequireSent(dsp, walk.commands);
    dsp->answer = nullptr;
}

}  // namespace

void Run(Input input) {
    const Bytes image = input.TakeBytes(SIZE_MAX);
    auto tuning = soundtrigger::MemoryFile(image);
    ScriptedNodes nodes;
    CommandNode dsp(&nodes);
    const auto adapter = MakeAdapter("/proc/self/fd/" + std::to_string(tuning.get()));
    tuning.set(-1);

    const auto read = ReadTuningFile(image);
    const TuningFile file = read.ok() ? *read : TuningFile();
    Send(adapter.get(), &dsp, 1, WalkRecords(file, kDefaultMode));
    Send(adapter.get(), &dsp, 2, WalkRecords(file, kDockedMode));
    Send(adapter.get(), &dsp, 0, {});

    if (!read.ok()) return;
    Require(WriteTuningFile(file).value() == image, "a file that was read is written as it was");
    Require(TuningFileFromText(TuningFileToText(file)).value() == file,
            "a file's text is that file");
}

std::map<std::string, Bytes> Seeds() {
    const auto image = [](const char* text) {
        return WriteTuningFile(TuningFileFromText(text).value()).value();
    };
    return {{"empty", image("")},
            {"parameters",
             image("mode 0\n type 4\n block 1\n param 275 = -10\n param 277 = 1\n param 279 = 2\n"
                   "param 297 = 3\n block 2\n param 299 = 4\n param 345 = 5\n param 346 = 6\n"
                   "param 347 = 0x7fffffff\n mode 86\n type 1\n block 1\n bytes 01 02\n type 4\n"
                   "block 1\n bytes 13 01 00 00 08 00 00 00 01 00 00 00 02 00 00 00\n")},
            {"bad-records",
             image("mode 0\n type 4\n block 1\n param 275 = 1\n param 276 = 1\n mode 86\n type 4\n"
                   "block 1\n param 277 = 1\n bytes 13 01 00 00 ff ff ff ff 01\n")}};
}

}  // namespace fuzz

// Gives most images their length and checksum, without which nothing behind them is ever looked at.
extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size,
                                          unsigned seed) {
    constexpr size_t kLengthAt = 8;
    constexpr size_t kChecksumAt = 12;
    constexpr size_t kChecksummedFrom = 16;
    size = LLVMFuzzerMutate(data, size, max_size);
    if (seed % 8 == 0 || size < kChecksummedFrom) return size;
    const auto length = static_cast<uint32_t>(size);
    memcpy(data + kLengthAt, &length, sizeof(length));
    const auto checksum =
            static_cast<uint32_t>(crc32_z(0, data + kChecksummedFrom, size - kChecksummedFrom));
    memcpy(data + kChecksumAt, &checksum, sizeof(checksum));
    return size;
}
