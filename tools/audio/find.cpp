#include "tools/audio/find.h"

#include <algorithm>
#include <functional>
#include <set>
#include <span>

#include "host/virtual_dsp/correlator/correlator.h"

namespace sthal::audio {
namespace {

using virtual_dsp::Correlator;

// For each frame of the recording: the correlation of the pattern with what ends there.
std::vector<float> Scores(const Sound& recording, const Sound& pattern) {
    std::vector<float> scores;
    if (pattern.samples.empty() || pattern.frames() > recording.frames()) return scores;
    std::vector<int16_t> audio = recording.Channel(0).samples;
    const size_t frames = audio.size();
    audio.resize((frames + Correlator::kBlock - 1) / Correlator::kBlock * Correlator::kBlock);
    Correlator correlator(pattern.Channel(0).samples);
    for (size_t at = 0; at < audio.size(); at += Correlator::kBlock) {
        const auto block = correlator.Hear(std::span(audio).subspan(at, Correlator::kBlock));
        scores.insert(scores.end(), block.begin(), block.end());
    }
    scores.resize(frames);
    return scores;
}

}  // namespace

std::vector<Match> FindMatches(const Sound& recording, const Sound& pattern, double least) {
    const std::vector<float> scores = Scores(recording, pattern);
    std::vector<size_t> peaks;
    for (size_t i = 0; i < scores.size(); ++i) {
        const bool is_above_last = i == 0 || scores[i] > scores[i - 1];
        const bool is_above_next = i + 1 == scores.size() || scores[i] >= scores[i + 1];
        if (is_above_last && is_above_next && scores[i] >= least) peaks.push_back(i);
    }
    std::ranges::stable_sort(peaks, std::greater(), [&](size_t peak) { return scores[peak]; });

    const size_t frames = pattern.frames();
    std::set<size_t> kept;
    for (const size_t peak : peaks) {
        const auto near = kept.lower_bound(peak + 1 - frames);
        if (near == kept.end() || *near >= peak + frames) kept.insert(peak);
    }
    std::vector<Match> matches;
    matches.reserve(kept.size());
    for (const size_t peak : kept) {
        matches.push_back({.range = {peak + 1 - frames, peak + 1}, .correlation = scores[peak]});
    }
    return matches;
}

Match FindTemplate(const Sound& recording, const Sound& pattern) {
    const std::vector<float> scores = Scores(recording, pattern);
    const auto best = std::ranges::max_element(scores);
    if (best == scores.end() || *best <= 0) return {.range = {0, pattern.frames()}};
    const auto end = static_cast<size_t>(best - scores.begin()) + 1;
    return {.range = {end - pattern.frames(), end}, .correlation = *best};
}

}  // namespace sthal::audio
