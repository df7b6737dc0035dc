#pragma once

#include <optional>
#include <string>

#include "tools/sthal/output/run_files.h"

namespace sthal {

// What a run of the demo ends with, as an exit status.
enum class DemoStatus {
    kDelivered = 0,  // The event came at the right place, and the capture is the microphone's.
    kFailed = 1,     // Something went wrong; the last line says what.
    kUsage = 2,      // The arguments or files make no run.
    kNoHotword = 3,  // There was none in the recording, and no event came.
    kInterrupted = 130,
};

struct DemoOptions {
    // What is done with the phone.
    enum class Story {
        kHotword,      // A keyphrase is spoken, detected, delivered and captured.
        kZeroLatency,  // A capture through internal recognition, without any model.
        kAmbient,      // Music is detected by the ambient engine and captured as mu-law.
        kRestart,      // The DSP crashes in the middle of recognition and comes back.
        kDock,         // Dock, music on the loudspeaker, a charger with a fan.
    };
    Story story = Story::kHotword;
    std::string phrase = "hello brindle cove";
    std::optional<std::string> microphone_file;  // Instead of a recording made of speech.
    std::optional<std::string> hotword_file;     // What the model is made of then.
    bool without_hotword = false;                // Nobody says it.
    double speed = 1.0;
    std::optional<double> threshold;  // 0.7 for a hotword; 0.9 for music, which resembles itself.
    std::optional<double> capture_seconds;  // To the end of the recording when absent.
    int channels = 2;
    std::string output_folder = "demo-output";
    RunFiles files;
    bool dump = false;
    bool verbose = false;
};

// The threshold that counts.
double Threshold(const DemoOptions& options);

/**
 * Shows one detection from the microphone to the framework and its audio back, and judges it. Must
 * run on the board. Prints to standard output; writes microphone.wav, hotword.wav and capture.wav.
 */
DemoStatus RunDemo(const DemoOptions& options);

}  // namespace sthal
