#pragma once

#include <string>

#include "tools/sthal/findings/recording_marks.h"
#include "tools/sthal/findings/run_findings.h"

// The sentences that persons read of facts and findings. None ends in a line feed.
namespace sthal {

// --- facts ---

// "loadPhraseSoundModel", "OnSoundCardStateChanged".
const char* CallName(Operation operation);
// "model 1, io handle 13": a call's arguments; empty where it has none.
std::string CallDetail(const Call& call);
// "phrase event of model 1: status SUCCESS, capture available, ...".
std::string ToText(const Event& event);
// "the HAL broke a rule of the framework, ..."; of one that is a note only, the rule.
std::string ToText(const BrokenRule& broken);
// Why a stream was refused; empty of one that was not.
std::string RefusalText(const Stream& stream);

// --- verdicts ---

// "OK: FILE held". Failures may have several lines.
std::string VerdictText(const Verdict& verdict);
// "OK: the event reached the framework 205 us after ...", "FAILED: ...", "NO HOTWORD: ...".
std::string ToText(const Delivery& delivery);
// "FILE:LINE: 'verb': expected X; saw Y".
std::string ToText(const Failure& failure);

// --- findings ---

// "hotword ended", for a heading.
const char* StepName(LatencyStep step);
// Why no event came.
std::string MissedText(const MissedHotword& missed, const RunFacts& facts);
// "\"hey\", spoken"; empty of a mark that is not listed.
std::string LabelOf(const RecordingMark& mark, const RunFacts& facts);
std::string ToText(const Problem& problem, const RunFacts& facts, const RunFindings& found);

}  // namespace sthal
