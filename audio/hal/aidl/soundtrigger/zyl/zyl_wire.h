#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

// What passes between the application processor and the DSP, real or virtual: device nodes, command
// ids, the bytes of every command, reply and detection record. The two sides share nothing else.
// Multi-byte fields are little-endian, as both ends are.
namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {

static_assert(std::endian::native == std::endian::little, "fields are copied, not byte-swapped");

inline constexpr char kCommandDevice[] = "/dev/zcd-sound_trigger";
inline constexpr char kModelDataDevice[] = "/dev/zcd-model_data";
inline constexpr char kHotwordPcmDevice[] = "/dev/zcd-hotword_pcm";
inline constexpr char kAmbientPcmDevice[] = "/dev/zcd-ambient_pcm";
inline constexpr char kNotificationDevice[] = "/dev/zcd-hotword_notification";
// Two decimal numbers separated by white space: the DSP clock in ticks, then the kernel's boot time
// in nanoseconds, both taken at the same instant.
inline constexpr char kClockNode[] =
        "/sys/devices/platform/17000000.zyl/zyl_clock_and_kernel_boottime";
inline constexpr char kTuningFile[] = "/vendor/etc/zyl/smartfeature.qstf";

// A model goes through kModelDataDevice in pieces of this size, the last one shorter, each followed
// by a write-model command that says where the piece belongs.
inline constexpr int kModelChunkBytes = 16384;

// Both engines listen at this rate. Hotword audio is 16-bit PCM, two interleaved channels; ambient
// audio is one channel of 8-bit mu-law (ITU-T G.711).
inline constexpr int kSampleRateHz = 16000;
inline constexpr int kHotwordChannels = 2;

// Ids of commands. On the wire they are 16 bits wide.
enum CommandId : uint32_t {
    CMD_AUDIO_INPUT_HOTWORD_ERASER_ENABLE = 206,
    CMD_AUDIO_INPUT_HOTWORD_ERASER_DISABLE = 207,
    CMD_AUDIO_INPUT_HOTWORD_START = 227,
    CMD_AUDIO_INPUT_HOTWORD_STOP = 228,
    CMD_AUDIO_INPUT_AMBIENT_MUSIC_START = 256,
    CMD_AUDIO_INPUT_AMBIENT_MUSIC_STOP = 257,
    CMD_AUDIO_INPUT_HOTWORD_WRITE_MODEL = 260,
    CMD_AUDIO_INPUT_HOTWORD_LOAD_MODEL = 261,
    CMD_AUDIO_INPUT_HOTWORD_UNLOAD_MODEL = 262,
    CMD_AUDIO_INPUT_AMBIENT_MUSIC_WRITE_MODEL = 263,
    CMD_AUDIO_INPUT_AMBIENT_MUSIC_LOAD_MODEL = 264,
    CMD_AUDIO_INPUT_AMBIENT_MUSIC_UNLOAD_MODEL = 265,
    CMD_AUDIO_INPUT_HOTWORD_INTERNAL_RECOGNITION = 267,
    CMD_AUDIO_INPUT_HOTWORD_FORCE_RECOGNITION = 268,
    CMD_AUDIO_INPUT_AMBIENT_MUSIC_FORCE_RECOGNITION = 269,
    CMD_AUDIO_INPUT_HOTWORD_SET_ERASER_PRE_GAIN = 275,
    CMD_AUDIO_INPUT_HOTWORD_SET_ERASER_POST_GAIN = 277,
    CMD_AUDIO_INPUT_HOTWORD_SET_NON_ERASER_GAIN = 279,
    CMD_AUDIO_INPUT_GET_LIBRARY_ARCHITECTURE = 282,
    CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_START = 283,
    CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_STOP = 284,
    CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_WRITE_MODEL = 287,
    CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_LOAD_MODEL = 288,
    CMD_AUDIO_INPUT_AMBIENT_MUSIC_BREAK_UNLOAD_MODEL = 289,
    CMD_AUDIO_INPUT_SET_CHRE_GAIN = 297,
    CMD_AUDIO_INPUT_HOTWORD_SET_CLEANER_POST_GAIN = 299,
    CMD_AUDIO_INPUT_SET_REFERENCE_SOURCE = 325,
    CMD_AUDIO_INPUT_SET_AP_PROCESS_WITH_DOCK = 339,
    CMD_AUDIO_INPUT_MIC_SWAP_ENABLE = 342,
    CMD_AUDIO_INPUT_MIC_SWAP_DISABLE = 343,
    CMD_AUDIO_INPUT_SET_CHRE_SRC_AEC_TIMEOUT = 345,
    CMD_AUDIO_INPUT_SET_CHRE_SRC_PDM_GAIN = 346,
    CMD_AUDIO_INPUT_SET_CHRE_SRC_AEC_GAIN = 347,
    CMD_AUDIO_INPUT_NEURAL_AEC_ENABLE = 350,
    CMD_AUDIO_INPUT_NEURAL_AEC_DISABLE = 351,
    CMD_AUDIO_INPUT_GET_HOTWORD_TIMESTAMP = 354,

    // No command of the DSP; what a command that could not be built carries.
    kInvalidCommandId = 0xFFFFFFFF,
};

// Ids of detection records.
inline constexpr uint16_t kHotwordDetected = 241;
inline constexpr uint16_t kAmbientMusicDetected = 259;
inline constexpr uint16_t kAmbientMusicBreakDetected = 286;

// Values of the reference source command.
inline constexpr uint32_t kReferenceSourceOff = 0;
inline constexpr uint32_t kReferenceSourceDock = 2;

// Begins every command and its reply, which has as many bytes, the same header, and the DSP's
// answer in place of the payload.
struct CommandHeader {
    uint8_t reserved0;   // 0.
    uint8_t sequence;    // Low byte of the process-wide command counter; repeats are harmless.
    uint16_t size;       // Bytes of the whole command, this header included.
    uint16_t id;         // CommandId. Not the enum: its size is not ours to promise.
    uint16_t reserved6;  // 0.
};
static_assert(std::has_unique_object_representations_v<CommandHeader>, "no hidden padding");
static_assert(sizeof(CommandHeader) == 8);
static_assert(offsetof(CommandHeader, sequence) == 1);
static_assert(offsetof(CommandHeader, size) == 2);
static_assert(offsetof(CommandHeader, id) == 4);
static_assert(offsetof(CommandHeader, reserved6) == 6);

// Where the piece just written to kModelDataDevice belongs.
struct WriteModelPayload {
    CommandHeader header;
    uint32_t offset;  // Bytes from the start of the model.
};
static_assert(std::has_unique_object_representations_v<WriteModelPayload>);
static_assert(sizeof(WriteModelPayload) == 12);
static_assert(offsetof(WriteModelPayload, offset) == 8);

// A command with one 32-bit value: the tuning parameters and the reference source.
struct ValuePayload {
    CommandHeader header;
    uint32_t value;
};
static_assert(std::has_unique_object_representations_v<ValuePayload>);
static_assert(sizeof(ValuePayload) == 12);
static_assert(offsetof(ValuePayload, value) == 8);

struct ApProcessPayload {
    CommandHeader header;
    uint8_t enabled;    // 1 or 0.
    uint8_t reserved9;  // 0.
};
static_assert(std::has_unique_object_representations_v<ApProcessPayload>);
static_assert(sizeof(ApProcessPayload) == 10);
static_assert(offsetof(ApProcessPayload, enabled) == 8);
static_assert(offsetof(ApProcessPayload, reserved9) == 9);

struct InternalRecognitionPayload {
    CommandHeader header;
    uint64_t value;
};
static_assert(std::has_unique_object_representations_v<InternalRecognitionPayload>);
static_assert(sizeof(InternalRecognitionPayload) == 16);
static_assert(offsetof(InternalRecognitionPayload, value) == 8);

// A query: zero bytes on the way down, the answer on the way up.
struct LibraryArchitecturePayload {
    CommandHeader header;
    uint32_t library_version;
    std::array<char, 64> architecture;  // Text; NUL-terminated unless all 64 bytes are used.
};
static_assert(std::has_unique_object_representations_v<LibraryArchitecturePayload>);
static_assert(sizeof(LibraryArchitecturePayload) == 76);
static_assert(offsetof(LibraryArchitecturePayload, library_version) == 8);
static_assert(offsetof(LibraryArchitecturePayload, architecture) == 12);

// A query: zero bytes on the way down, the DSP's clock at the latest hotword on the way up.
struct HotwordTimestampPayload {
    CommandHeader header;
    uint64_t ticks;
};
static_assert(std::has_unique_object_representations_v<HotwordTimestampPayload>);
static_assert(sizeof(HotwordTimestampPayload) == 16);
static_assert(offsetof(HotwordTimestampPayload, ticks) == 8);

// One read of kNotificationDevice.
struct NotificationRecord {
    std::array<uint8_t, 4> header;  // Not interpreted.
    uint16_t id;                    // kHotwordDetected and its like.
    std::array<uint8_t, 2> reserved6;
    std::array<char, 32> payload;  // Text; NUL-terminated unless all 32 bytes are used.
};
static_assert(std::has_unique_object_representations_v<NotificationRecord>);
static_assert(sizeof(NotificationRecord) == 40);
static_assert(offsetof(NotificationRecord, id) == 4);
static_assert(offsetof(NotificationRecord, payload) == 8);

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
