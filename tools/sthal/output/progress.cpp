#include "tools/sthal/output/progress.h"

#include <algorithm>
#include <cstdio>

namespace sthal {

namespace {

constexpr double kMegabyte = 1 << 20;

// Below these, nobody gets to see progress.
constexpr size_t kBytesWorthProgress = size_t{1} << 20;
constexpr size_t kFramesWorthProgress = size_t{2} * audio::kSampleRateHz;

// "playing [#####.....] 3.0 of 6.0 s"
std::string ProgressText(const char* what, double done, double total, const char* unit) {
    constexpr size_t kBarColumns = 20;
    const double share = total > 0 ? std::min(done / total, 1.0) : 1.0;
    const auto full = static_cast<size_t>(share * kBarColumns);
    const std::string bar = std::string(full, '#') + std::string(kBarColumns - full, '.');
    char text[128];
    (void)std::snprintf(text, sizeof(text), "%s [%s] %.1f of %.1f %s", what, bar.c_str(), done,
                        total, unit);
    return text;
}

}  // namespace

void Progress::Follow(const Fact& fact) {
    if (const auto* const call = std::get_if<Call>(&fact)) {
        if (call->bytes == 0) return;
        const bool has_begun = call->end_ns == 0;
        taken_bytes_ = 0;
        model_bytes_ = has_begun ? call->bytes : 0;
        if (!has_begun) End();
    } else if (const auto* const entry = std::get_if<virtual_dsp::JournalEntry>(&fact)) {
        const auto* const chunk = entry->As<virtual_dsp::ChunkTaken>();
        const size_t wanted = model_bytes_;
        if (chunk == nullptr || wanted < kBytesWorthProgress) return;
        const size_t taken = taken_bytes_ += chunk->taken;
        Show(ProgressText("loading", static_cast<double>(taken) / kMegabyte,
                          static_cast<double>(wanted) / kMegabyte, "MiB"));
    }
}

void Progress::ShowPlayback(size_t heard_frames, size_t frames) {
    if (heard_frames >= frames || frames < kFramesWorthProgress) return;
    Show(ProgressText("playing", audio::Seconds(heard_frames), audio::Seconds(frames), "s"));
}

}  // namespace sthal
