// A model descriptor of the framework's: type, dataSize, and what there is to read behind it.
// Models are loaded and unloaded by the HAL while the DSP refuses commands.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "fuzz/scripted_nodes.h"
#include "tests/support/model.h"

namespace fuzz {

namespace {

using ::ndk::ScopedFileDescriptor;
using soundtrigger::SoundModel;
using soundtrigger::SoundModelType;

constexpr int kUntouched = -77;
constexpr int kMaxModels = 3;
constexpr int32_t kLargestAllocation = 32 << 20;  // As the allocator has been told.

// A descriptor and what it yields; nothing where it cannot be read. (One that has nothing to read
// yet is waited for, for a second: too long here.)
struct Source {
    ScopedFileDescriptor descriptor;
    std::optional<Bytes> content;
};

Source MakeSource(uint8_t kind, uint16_t size) {
    Bytes content(size);
    for (size_t i = 0; i < size; ++i) content[i] = U8(static_cast<int>(i * 2654435761U >> 24));
    Source source;
    int ends[2];
    switch (kind % 6) {
        case 0: {  // A file, from somewhere on.
            const size_t skipped = std::min<size_t>(kind, size);
            source.descriptor = soundtrigger::MemoryFile(content);
            lseek(source.descriptor.get(), static_cast<off_t>(skipped), SEEK_SET);
            source.content =
                    Bytes(content.begin() + static_cast<ptrdiff_t>(skipped), content.end());
            break;
        }
        case 1:  // A pipe at its end. It holds 65536 bytes, more than there are.
            Require(pipe2(ends, O_CLOEXEC) == 0, "(there is a pipe)");
            source.descriptor.set(ends[0]);
            Require(write(ends[1], content.data(), size) == size, "(it is written)");
            close(ends[1]);
            source.content = content;
            break;
        case 2:
            source.descriptor.set(open("/dev/null", O_WRONLY | O_CLOEXEC));
            break;
        case 3:
            source.descriptor.set(open("/", O_RDONLY | O_CLOEXEC));
            break;
        case 4:
            source.descriptor.set(1'000'000'000);  // No process has so many.
            break;
        default:
            break;
    }
    return source;
}

// The DSP's side of a download: puts the chunks together, and refuses a command when told to.
class ModelDsp {
  public:
    explicit ModelDsp(ScriptedNodes* nodes) : commands_(nodes) {
        (*nodes)[zyl::kModelDataDevice].write = [this](std::span<const uint8_t> chunk) {
            Require(chunk.size() <= zyl::kModelChunkBytes, "a chunk is no larger than agreed");
            chunk_.assign(chunk.begin(), chunk.end());
            return static_cast<int>(chunk.size());
        };
        commands_.answer = [this](Bytes* command) {
            const bool is_accepted = refuse_after_-- != 0 && CarryOut(*command);
            has_refused_ |= !is_accepted;
            return is_accepted ? 0 : -EBUSY;
        };
    }

    // What follows is a new request; its command after `count` more is refused, none if negative.
    void Begin(int count) {
        refuse_after_ = count;
        has_refused_ = false;
        staged_.clear();
        loaded_.clear();
    }
    bool has_refused() const { return has_refused_; }
    const Bytes& loaded() const { return loaded_; }

  private:
    bool CarryOut(const Bytes& command) {
        const auto id = As<zyl::CommandHeader>(command).id;
        if (id == zyl::CMD_AUDIO_INPUT_HOTWORD_WRITE_MODEL ||
            id == zyl::CMD_AUDIO_INPUT_AMBIENT_MUSIC_WRITE_MODEL) {
            const uint32_t offset = As<zyl::WriteModelPayload>(command).offset;
            if (has_refused_) return false;
            Require(offset == staged_.size(), "chunks follow one another");
            staged_.insert(staged_.end(), chunk_.begin(), chunk_.end());
        }
        if (id == zyl::CMD_AUDIO_INPUT_HOTWORD_LOAD_MODEL ||
            id == zyl::CMD_AUDIO_INPUT_AMBIENT_MUSIC_LOAD_MODEL) {
            loaded_ = staged_;
            return !has_refused_;  // A model with a hole is none.
        }
        return true;
    }

    CommandNode commands_;
    Bytes chunk_;
    Bytes staged_;
    Bytes loaded_;
    int refuse_after_ = -1;
    bool has_refused_ = false;
};

class Session {
  public:
    // The HAL is not initialised: nothing here needs its control thread, and without one a run
    // repeats exactly.
    Session() { hal_.OnSoundCardStateChanged(true); }

    void Load(Input* input, int refuse_after) {
        SoundModel model;
        model.type = static_cast<SoundModelType>(input->Take<int8_t>());
        model.dataSize = input->Take<int32_t>();
        model.vendorUuid = std::to_string(input->Take<uint8_t>() % 5);
        const auto kind = input->Take<uint8_t>();
        Source source = MakeSource(kind, input->Take<uint16_t>());
        model.data = std::move(source.descriptor);
        const bool is_sound = IsAcceptable(model) && source.content;

        int handle = kUntouched;
        const int errors = ErrorLines();
        dsp_.Begin(refuse_after);
        const int result = hal_.LoadSoundModel(model, nullptr, &handle);
        Require(result == (is_sound && !dsp_.has_refused() ? 0 : -EINVAL),
                "a model is loaded if it is one, is new, and the DSP takes it");
        Require(handle == (result == 0 ? FreeHandle() : kUntouched),
                "a loaded model gets the smallest free handle, a refused one none");
        Require((result == 0) == (ErrorLines() == errors), "a refusal, and no load, logs an error");
        if (result != 0) return;
        const auto size = std::min(source.content->size(), static_cast<size_t>(model.dataSize));
        source.content->resize(size);
        Require(dsp_.loaded() == source.content, "the DSP has the bytes announced and there");
        vendor_uuids_[handle] = model.vendorUuid;
    }

    void Unload(int handle, int refuse_after) {
        dsp_.Begin(refuse_after);
        const int result = hal_.UnloadSoundModel(handle);
        const bool is_known = vendor_uuids_.contains(handle);
        Require(result == (is_known && !dsp_.has_refused() ? 0 : -EINVAL),
                "a known model is unloaded unless the DSP refuses");
        if (result == 0) vendor_uuids_.erase(handle);
    }

  private:
    bool IsAcceptable(const SoundModel& model) const {
        for (const auto& [handle, uuid] : vendor_uuids_) {
            if (uuid == model.vendorUuid) return false;
        }
        return (model.type == SoundModelType::KEYPHRASE || model.type == SoundModelType::GENERIC) &&
               model.dataSize >= 1 && model.dataSize <= kLargestAllocation &&
               FreeHandle() <= kMaxModels;
    }

    int FreeHandle() const {
        int handle = 1;
        while (vendor_uuids_.contains(handle)) ++handle;
        return handle;
    }

    ScriptedNodes nodes_;
    ModelDsp dsp_{&nodes_};
    soundtrigger::SoundTriggerHal hal_{MakeAdapter()};
    std::map<int, std::string> vendor_uuids_;  // Of the loaded models, by handle.
};

}  // namespace

void Run(Input input) {
    Session session;
    while (!input.empty()) {
        const auto what = input.Take<uint8_t>();
        const int refuse_after = what / 8 % 8 - 4;  // Half of the requests meet no refusal.
        if (what % 8 < 5) {
            session.Load(&input, refuse_after);
        } else {
            session.Unload(what / 64 + what % 2, refuse_after);
        }
    }
}

std::map<std::string, Bytes> Seeds() {
    const auto load = [](int refuse_after, int type, int32_t size, int uuid, int kind, int there) {
        return Join(U8((refuse_after + 4) * 8), U8(type), size, U8(uuid), U8(kind),
                    static_cast<uint16_t>(there));
    };
    Bytes sources;
    for (int kind = 0; kind < 6; ++kind) {
        sources = Join(sources, load(-1, 1, 200, kind % 4, kind, 100), load(-1, 1, 2, 4, kind, 0));
    }
    Bytes sizes;
    for (const int32_t size : {0, -1, INT32_MIN, INT32_MAX, kLargestAllocation + 1}) {
        sizes = Join(sizes, load(-1, 0, size, 1, 0, 10), load(-1, -1, 10, 1, 0, 10));
    }
    return {{"loads", Join(load(-1, 0, 40000, 1, 0, 40000), load(-1, 1, 16384, 2, 1, 16384),
                           load(-1, 1, 100, 3, 6, 40), load(-1, 1, 100, 4, 0, 40), U8(5 + 64),
                           load(-1, 1, 5, 0, 6, 9))},
            {"refusals", Join(load(0, 0, 40000, 1, 0, 40000), load(2, 0, 40000, 1, 0, 40000),
                              load(3, 0, 40000, 1, 0, 40000), load(-1, 0, 40000, 1, 0, 40000))},
            {"sources", sources},
            {"sizes", sizes}};
}

}  // namespace fuzz
