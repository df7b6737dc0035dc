#include "tools/sthal/output/progress.h"

#include <algorithm>
#include <cstdio>

#include "tools/audio/sound.h"

namespace sthal {

namespace {

constexpr size_t kPieceBytes = 16384;
constexpr double kPiecesOfMegabyte = 64;

// Below these, nobody gets to see progress.
constexpr size_t kPiecesWorthProgress = 64;
constexpr size_t kFramesWorthProgress = size_t{2} * audio::kSampleRateHz;

// "playing [#####.....] 3.0 of 6.0 s"
std::string ProgressText(const char* what, double done, double total, const char* unit) {
    constexpr size_t kColumns = 20;
    const double share = total > 0 ? std::min(done / total, 1.0) : 1.0;
    const auto full = static_cast<size_t>(share * kColumns);
    const std::string bar = std::string(full, '#') + std::string(kColumns - full, '.');
    char text[128];
    (void)std::snprintf(text, sizeof(text), "%s [%s] %.1f of %.1f %s", what, bar.c_str(), done,
                        total, unit);
    return text;
}

}  // namespace

void Progress::BeginModel(size_t bytes) {
    model_pieces_ = 0;
    model_pieces_wanted_ = (bytes + kPieceBytes - 1) / kPieceBytes;
}

void Progress::AddModelPiece() {
    const size_t pieces = ++model_pieces_;
    const size_t wanted = model_pieces_wanted_;
    if (wanted < kPiecesWorthProgress) return;
    Show(ProgressText("loading", static_cast<double>(pieces) / kPiecesOfMegabyte,
                      static_cast<double>(wanted) / kPiecesOfMegabyte, "MiB"));
}

void Progress::ShowPlayback(const Playback& playback) {
    if (playback.IsFinished() || playback.frames() < kFramesWorthProgress) return;
    Show(ProgressText("playing", audio::Seconds(playback.heard_frames()),
                      audio::Seconds(playback.frames()), "s"));
}

}  // namespace sthal
