#pragma once

#include <cstdint>
#include <memory>

#include "tools/audio/sound.h"
#include "tools/sthal/facts/run_facts.h"
#include "tools/sthal/phone/playing_recording.h"
#include "tools/sthal/phone/service.h"

namespace virtual_dsp {
class Board;
}

namespace sthal {

/**
 * What verbs act on: a phone with the parts that it has.
 *
 * It notes in the run's record each recording that Play() is given and what is heard of it, how
 * much audio is ready whenever a detection is raised, and, as far as it sees them, the HAL's log
 * lines, the entries of the DSP's journal and the calls that faults hit. At its end it has the
 * service note a last dump. Calls and events are noted by Service, streams by CaptureStream.
 *
 * One at a time in a process, since the process has one set of device nodes and one log. Used by
 * one thread, but for what says otherwise.
 */
class Phone {
  public:
    virtual ~Phone() = default;

    // The audio service with the HAL in this process; null where the phone is only a DSP.
    virtual Service* service() = 0;
    // The virtual board; null on a phone's own device nodes.
    virtual virtual_dsp::Board* board() = 0;

    // --- the room ---
    // Plays a recording after those that are still playing. `said`, and the frame at which it
    // begins in the recording: what it was made of, if it was said.
    virtual std::shared_ptr<PlayingRecording> Play(const audio::Sound& recording,
                                                   std::shared_ptr<const audio::Sound> said,
                                                   size_t said_at) = 0;
    // Breaks off what is played.
    virtual void StopPlaying() = 0;
    // Frames that the microphones have heard: the room's clock. Any thread.
    virtual uint64_t HeardFrames() const = 0;
    // `count` frames that both microphones heard, from `first` on; fewer where they are no longer,
    // or not yet, there. Any thread.
    virtual audio::Sound Heard(uint64_t first, size_t count) const = 0;

    // Notes how much audio the DSP holds ready, and returns it. Any thread.
    virtual BufferFill NoteBufferFill() = 0;
};

}  // namespace sthal
