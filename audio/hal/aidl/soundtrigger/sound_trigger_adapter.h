#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** What the DSP says of its detection library. */
struct LibraryArchitecture {
    uint32_t library_version = 0;
    std::string architecture;  // At most 64 bytes, up to the DSP's first NUL.
};

/** The DSP's detection engines. */
enum EngineType : int {
    Unknown = 0,
    Hotword = 1,
    AmbientMusic = 2,
    AmbientMusicBreak = 3,
};

/** The enumerator's name; for any other value its decimal number. */
inline std::string toString(EngineType type) {
    switch (type) {
        case EngineType::Unknown:
            return "Unknown";
        case EngineType::Hotword:
            return "Hotword";
        case EngineType::AmbientMusic:
            return "AmbientMusic";
        case EngineType::AmbientMusicBreak:
            return "AmbientMusicBreak";
    }
    return std::to_string(static_cast<int>(type));
}

/** The engines as the adapter's operations take them. */
inline constexpr int kHotwordEngine = EngineType::Hotword;
inline constexpr int kAmbientMusicEngine = EngineType::AmbientMusic;
inline constexpr int kAmbientMusicBreakEngine = EngineType::AmbientMusicBreak;

/** Which set of parameters the DSP is tuned with. */
enum class TuningType : int {
    Unknown = 0,
    Default = 1,
    Docked = 2,
};

/** The enumerator's name; for any other value its decimal number. */
inline std::string toString(TuningType type) {
    switch (type) {
        case TuningType::Unknown:
            return "Unknown";
        case TuningType::Default:
            return "Default";
        case TuningType::Docked:
            return "Docked";
    }
    return std::to_string(static_cast<int>(type));
}

/**
 * The DSP as the HAL sees it: engines, models and switches. Command ids and device nodes are known
 * only below this interface.
 *
 * An engine is the number of an EngineType from 1 to 3; any other is refused with -EINVAL. A status
 * is 0, a negative errno, or a failure status of the DSP's command channel as it came.
 *
 * The HAL calls with its lock held, from any thread. GetLibraryArchitecture, ReadDspBuffer and
 * ReadDspTimestamp run beside the others and each other. The reset in Initialize runs without it,
 * before there is another thread.
 */
class SoundTriggerAdapter {
  public:
    virtual ~SoundTriggerAdapter() = default;

    /** Asks the DSP; empty when the query fails. */
    virtual std::optional<LibraryArchitecture> GetLibraryArchitecture() = 0;

    /** Moves a model of `size` bytes into the DSP. 0 when the DSP has acknowledged its load. */
    [[nodiscard]] virtual int LoadSoundModelToDsp(int engine_type, int size, const char* data) = 0;

    [[nodiscard]] virtual int StartDetectionInDsp(int engine_type) = 0;
    [[nodiscard]] virtual int StopDetectionInDsp(int engine_type) = 0;
    [[nodiscard]] virtual int UnloadSoundModelFromDsp(int engine_type) = 0;

    /** Makes the DSP report a detection now. The ambient music break engine cannot: -EINVAL. */
    [[nodiscard]] virtual int TriggerForceRecognition(int engine_type) = 0;

    /**
     * Reads captured audio as 16-bit PCM.
     *
     * @param buffer    Room for 2048 bytes whatever `size` says: one hotword channel and ambient
     *                  music are converted, always 1024 samples.
     * @param size      Wanted, in bytes. Hotword: at most 4096 for two channels and 2048 for one.
     *                  Ambient: at most 2049; an odd last byte is not delivered.
     * @param channels  1 or 2; ambient audio is always one channel.
     * @return Bytes placed in `buffer`; -EINVAL for a bad engine or size, -ETIMEDOUT when no more
     *         audio came for 128 ms, else the device's negative errno.
     */
    [[nodiscard]] virtual int ReadDspBuffer(int engine_type, char* buffer, unsigned int size,
                                            int channels) = 0;

    /** The descriptor to wait on for detections, opened by the first call; -1 when it cannot be. */
    [[nodiscard]] virtual int GetNotificationFileDescriptor() = 0;

    /**
     * Takes one detection record, once the descriptor is readable.
     *
     * @param engine_type  The engine that detected, 0 for an unknown record; left alone without a
     *                     whole record.
     * @param payload      The record's text; left alone when it has none.
     * @return 0, also for an unknown or short record; a negative errno; -EINVAL before
     *         GetNotificationFileDescriptor.
     */
    [[nodiscard]] virtual int ReadDspNotification(int* engine_type, std::string& payload) = 0;

    [[nodiscard]] virtual int SetupEraserInDsp(bool enable) = 0;
    [[nodiscard]] virtual int SetupApProcessWithDock(bool enable) = 0;
    [[nodiscard]] virtual int SetupMicSwapInDsp(bool enable) = 0;
    [[nodiscard]] virtual int SetupReferenceSource(bool enable) = 0;

    /** Closes the notification device; the next GetNotificationFileDescriptor opens it again. */
    virtual void ResetNotificationFileDescriptor() = 0;

    /** Sends the parameters of a TuningType. 0 also where there are none to send. */
    [[nodiscard]] virtual int SendTuningToDsp(int tuning_type) = 0;

    /** Has the hotword engine deliver audio without a detection. */
    [[nodiscard]] virtual int InternalHotwordRecognition(unsigned int value) = 0;

    [[nodiscard]] virtual int SetupNeuralAecInDsp(bool enable) = 0;

    /**
     * The instant of the latest hotword in nanoseconds of kernel boot time, known once its first
     * audio has been read; -1 before the first hotword. 0 for the other engines.
     */
    [[nodiscard]] virtual int64_t ReadDspTimestamp(int engine_type) = 0;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
