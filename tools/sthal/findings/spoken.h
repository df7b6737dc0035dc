#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "tools/audio/sound.h"
#include "tools/sthal/facts/run_facts.h"

namespace sthal {

// A place in a recording that correlates with a model's pattern.
struct SpokenHotword {
    size_t recording = 0;       // Of RunFacts::recordings.
    size_t model = 0;           // Of RunFacts::models.
    audio::FrameRange range{};  // Of the recording.
    double correlation = 0;     // 0..1, as a threshold.
};

/**
 * Where the patterns of the run's models lie in its recordings. What correlates less than any model
 * would be asked to accept does not count. Takes about 0.1 s for a minute of recording and a
 * model.
 */
std::vector<SpokenHotword> FindSpoken(const RunFacts& facts);

bool IsSamePattern(const Model& a, const Model& b);

// The models that have the handles at a time. A handle that was freed goes to the next model,
// whatever that one is for.
std::map<int, const Model*> HoldersAt(const RunFacts& facts, int64_t ns);

// The handles that models of this pattern have at a time.
std::set<int> HandlesAt(const RunFacts& facts, const Model& pattern, int64_t ns);

// The framework's latest successful call, before a time, that started or ended recognition of one
// of these models; null when there was none.
const Call* LatestStartOrEnd(const RunFacts& facts, const std::set<int>& handles, int64_t ns);

}  // namespace sthal
