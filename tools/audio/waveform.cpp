#include "tools/audio/waveform.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

namespace sthal::audio {
namespace {

using ::android::base::StringPrintf;

constexpr std::array kBlocks = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr double kFloorDb = -42;  // What is quieter is drawn as silence: a room's noise.

const char* Block(int peak) {
    if (peak == 0) return kBlocks.front();
    const double above_floor = 20 * std::log10(peak / 32768.0) - kFloorDb;
    const double level = above_floor / -kFloorDb * kBlocks.size();
    return kBlocks[static_cast<size_t>(std::clamp(level, 0.0, kBlocks.size() - 1.0))];
}

std::string Blocks(const Sound& sound, size_t width) {
    const auto step = static_cast<size_t>(sound.channels);
    std::string line;
    for (size_t column = 0; column < width; ++column) {
        const size_t end = (column + 1) * sound.frames() / width;
        int peak = 0;
        for (size_t frame = column * sound.frames() / width; frame < end; ++frame) {
            peak = std::max(peak, std::abs(int{sound.samples[frame * step]}));
        }
        line += Block(peak);
    }
    return line + '\n';
}

// The column that a frame is drawn in; the last one for frames beyond the end.
size_t Column(size_t frame, const Sound& sound, size_t width) {
    if (sound.frames() == 0) return 0;
    return std::min(frame * width / sound.frames(), width - 1);
}

std::string MarkerLine(const Marker& marker, const Sound& sound, size_t width) {
    const auto [begin, end] = marker.range;
    const size_t left = Column(begin, sound, width);
    const size_t right = end > begin ? Column(end - 1, sound, width) : left;
    std::string line(left, ' ');
    for (size_t column = left; column <= right; ++column) {
        line += left == right ? "│" : column == left ? "├" : column == right ? "┤" : "─";
    }
    line += std::string(width - right, ' ') + marker.label;
    line += end > begin ? StringPrintf(" %.3f to %.3f s\n", Seconds(begin), Seconds(end))
                        : StringPrintf(" %.3f s\n", Seconds(begin));
    return line;
}

}  // namespace

std::string DrawWaveform(const Sound& sound, size_t width, std::span<const Marker> markers) {
    width = std::max<size_t>(width, 1);
    std::string drawing = Blocks(sound, width);
    for (const Marker& marker : markers) drawing += MarkerLine(marker, sound, width);
    return drawing;
}

}  // namespace sthal::audio
