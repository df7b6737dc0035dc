#include "tools/sthal/output/finding_texts.h"

#include <android-base/strings.h>

#include <cstdio>
#include <cstdlib>
#include <variant>
#include <vector>

#include "tools/sthal/output/units.h"

namespace sthal {

namespace {

std::string Number(size_t number) {
    return std::to_string(number);
}

// --- verdicts ---

std::string TimestampText(const Delivery& delivery) {
    return "the hotword's timestamp is off by " +
           DurationText(std::llabs(delivery.timestamp_error_ns));
}

std::string WhatFailed(const Delivery& delivery) {
    switch (delivery.problem) {
        case Delivery::Problem::kNone:
            return "";
        case Delivery::Problem::kEventMissing:
            return delivery.is_ambient ? "music played and no event came"
                                       : "the hotword was spoken and no event came";
        case Delivery::Problem::kNobodySpoke:
            return "an event came and nobody said the hotword";
        case Delivery::Problem::kOtherModel:
            return "the event is for another model";
        case Delivery::Problem::kNotOpened:
            return "no capture stream could be opened";
        case Delivery::Problem::kOtherAudio:
            return "the captured audio is not what the microphone heard";
        case Delivery::Problem::kDiffers:
            return "the captured audio differs from what the microphone heard";
        case Delivery::Problem::kNoPreroll:
            return "the capture begins after the hotword: there is no pre-roll";
        case Delivery::Problem::kWrongPlace:
            return "the capture begins long before the hotword: the detection was somewhere else";
        case Delivery::Problem::kTimestampOff:
            return TimestampText(delivery);
    }
    return "";
}

std::string WhatFailed(const Verdict& verdict) {
    if (verdict.failure) return ToText(*verdict.failure);
    if (verdict.broken) return ToText(*verdict.broken);
    return verdict.delivery ? WhatFailed(*verdict.delivery) : "";
}

// --- missed hotwords ---

std::string DropCauseText(const DropCause& cause) {
    const auto* const voided_by = std::get_if<virtual_dsp::VoidedBy>(&cause);
    return voided_by == nullptr ? "the DSP's crash" : Name(*voided_by);
}

std::string NotStartedText(const MissReason& reason, const Model& model) {
    std::string text = "Recognition of \"" + model.name + "\" was not started";
    if (reason.ended_by) text += std::string(": ") + CallName(*reason.ended_by) + " had ended it";
    text += ".";
    for (const int result : reason.failed_starts) {
        text += " A start had failed with " + std::to_string(result) + ".";
    }
    return reason.was_model_refused ? text + " The HAL had refused the model." : text;
}

std::string CorrelationText(const MissedHotword& missed, const Model& model) {
    char text[80];
    (void)std::snprintf(text, sizeof(text), "correlation %.4g, threshold %.4g.",
                        missed.spoken.correlation, model.threshold);
    return text;
}

// --- problems ---

struct ProblemSentence {
    const RunFacts& facts;
    const RunFindings& found;

    std::string At(int64_t ns) const { return " at " + RunTime(facts, ns); }

    std::string operator()(const problem::BadVerdict&) const {
        const bool has_failed = facts.verdict.kind == Verdict::Kind::kFailed;
        return has_failed ? WhatFailed(facts.verdict) : VerdictText(facts.verdict);
    }
    std::string operator()(const problem::RuleBroken& broken) const {
        return ToText(facts.broken_rules[broken.rule]);
    }
    std::string operator()(const problem::NoEvent& none) const {
        const MissedHotword& missed = found.missed[none.missed];
        return "No event came of \"" + facts.models[missed.spoken.model].name + "\" in recording " +
               Number(missed.spoken.recording + 1) + ", heard until " +
               RunTime(facts, missed.heard_ns) + ". " + MissedText(missed, facts);
    }
    std::string operator()(const problem::SilentCapture& silent) const {
        const std::string capture =
                "The capture opened" + At(facts.streams[silent.stream].opened_ns);
        if (silent.silent_reads == silent.reads) {
            return capture + " got no audio: all its samples are 0";
        }
        return capture + " got silence (all samples 0) in " + Number(silent.silent_reads) +
               " of its " + Number(silent.reads) + " reads, first" + At(silent.first_silent_ns);
    }
    std::string operator()(const problem::FaultsSet& faults) const {
        return (faults.is_at_least ? "At least " : "") + Number(faults.hits) +
               (faults.hits == 1 ? " call was" : " calls were") +
               " hit by faults that the run set on purpose; failures and errors may come of them";
    }
    std::string operator()(const problem::CallFailed& failed) const {
        const Call& call = facts.calls[failed.call];
        return CallName(call.operation) + At(call.begin_ns) + " returned " +
               std::to_string(call.result.value_or(0)) + ": " + CallDetail(call);
    }
    std::string operator()(const problem::StreamRefused& refused) const {
        const Stream& stream = facts.streams[refused.stream];
        return "No stream was opened" + At(stream.begin_ns) + ": " + RefusalText(stream);
    }
    std::string operator()(const problem::ErrorLogged& logged) const {
        const LogLine& line = facts.log[logged.line];
        return "The HAL logged" + At(line.ns) + ": " + line.text;
    }
    std::string operator()(const problem::DspRefused& refused) const {
        const virtual_dsp::JournalEntry& entry = facts.journal[refused.entry];
        return "The DSP refused" + At(entry.boottime_ns) + ": " + ToText(entry);
    }
    std::string operator()(const problem::RecordTooLong& record) const {
        return "The run was too long for its record: " + Number(record.left_out) +
               " facts are missing here";
    }
    std::string operator()(const problem::More& more) const { return Number(more.count) + " more"; }
};

}  // namespace

// --- facts ---

const char* CallName(Operation operation) {
    switch (operation) {
        case Operation::kInitialize:
            return "Initialize";
        case Operation::kOnSoundCardStateChanged:
            return "OnSoundCardStateChanged";
        case Operation::kOnDockChargerConnected:
            return "OnDockChargerConnected";
        case Operation::kOnRoutingGraphChanged:
            return "OnRoutingGraphChanged";
        case Operation::kOnSourceMetadataChanged:
            return "OnSourceMetadataChanged";
        case Operation::kSetParameter:
            return "SetParameter";
        case Operation::kDump:
            return "Dump";
        case Operation::kGetProperties:
            return "getProperties";
        case Operation::kLoadSoundModel:
            return "loadSoundModel";
        case Operation::kLoadPhraseSoundModel:
            return "loadPhraseSoundModel";
        case Operation::kStartRecognition:
            return "startRecognition";
        case Operation::kStopRecognition:
            return "stopRecognition";
        case Operation::kUnloadSoundModel:
            return "unloadSoundModel";
        case Operation::kForceRecognitionEvent:
            return "forceRecognitionEvent";
    }
    return "";
}

std::string CallDetail(const Call& call) {
    std::string model = "model " + std::to_string(call.handle);
    std::string text;
    std::vector<std::string> list;
    switch (call.operation) {
        case Operation::kInitialize:
        case Operation::kDump:
        case Operation::kGetProperties:
            break;
        case Operation::kOnSoundCardStateChanged:
            return Name(call.on ? SoundCardState::kOnline : SoundCardState::kOffline);
        case Operation::kOnDockChargerConnected:
            return call.on ? "true" : "false";
        case Operation::kSetParameter:
            return call.on ? "fan: true" : "fan: false";
        case Operation::kOnRoutingGraphChanged:
            for (const Route& route : call.routes) {
                list.push_back(route.usecase + " to " + route.device);
            }
            return android::base::Join(list, ", ");
        case Operation::kOnSourceMetadataChanged:
            for (const auto usage : call.usages) list.push_back(toString(usage));
            return list.empty() ? call.name
                                : call.name + " plays " + android::base::Join(list, ", ");
        case Operation::kLoadSoundModel:
        case Operation::kLoadPhraseSoundModel:
            text = "\"" + call.name + "\", " + Number(call.bytes) + " bytes";
            return call.result == 0 ? text + ", " + model : text;
        case Operation::kStartRecognition:
            return model + ", io handle " + std::to_string(call.io_handle);
        case Operation::kStopRecognition:
        case Operation::kUnloadSoundModel:
        case Operation::kForceRecognitionEvent:
            return model;
    }
    return text;
}

std::string ToText(const Event& event) {
    const auto& common = event.event.common;
    std::string text = event.is_phrase ? "phrase event" : "generic event";
    text += " of model " + std::to_string(event.handle) + ": status " + toString(common.status);
    text += common.captureAvailable ? ", capture available" : ", no capture";
    if (common.audioConfig) {
        const auto& base = common.audioConfig->base;
        text += ", " + std::to_string(base.sampleRate) + " Hz " + toString(base.format.pcm) + " " +
                base.channelMask.toString();
    }
    if (event.is_phrase) {
        for (const auto& extra : event.event.phraseExtras) text += ", " + extra.toString();
    }
    const std::string data(common.data.begin(), common.data.end());
    text += ", data " + Number(data.size()) + " bytes";
    return data.empty() ? text : text + " \"" + data + "\"";
}

std::string ToText(const BrokenRule& broken) {
    const std::string text = framework::ToText(broken.violation);
    return IsNoteOnly(broken.violation)
                   ? text
                   : "the HAL broke a rule of the framework, which would restart it: " + text;
}

std::string RefusalText(const Stream& stream) {
    switch (stream.refusal) {
        case StreamRefusal::kNone:
            return "";
        case StreamRefusal::kInternalRecognitionRefused:
            return "the HAL refused internal force recognition";
        case StreamRefusal::kNoDetection:
            return "no detection to capture on io handle " + std::to_string(stream.io_handle);
    }
    return "";
}

// --- verdicts ---

std::string VerdictText(const Verdict& verdict) {
    switch (verdict.kind) {
        case Verdict::Kind::kNone:
            return "The run did not come to a verdict.";
        case Verdict::Kind::kHeld:
        case Verdict::Kind::kNothingSpoken:
            return verdict.delivery ? ToText(*verdict.delivery)
                                    : "OK: " + verdict.subject + " held";
        case Verdict::Kind::kEnded:
            return "The session was ended.";
        case Verdict::Kind::kFailed:
            return "FAILED: " + WhatFailed(verdict);
        case Verdict::Kind::kInterrupted:
            return "interrupted: everything was stopped and taken down";
    }
    return "";
}

std::string ToText(const Delivery& delivery) {
    if (delivery.problem != Delivery::Problem::kNone) return "FAILED: " + WhatFailed(delivery);
    if (!delivery.wants_event) {
        return "OK: captured without a detection, sample for sample what the microphone heard";
    }
    if (!delivery.has_event) {
        return std::string(delivery.is_ambient ? "NO MUSIC" : "NO HOTWORD") +
               ": there is none in the recording, and no event came";
    }
    return "OK: the event reached the framework " + DurationText(delivery.callback_latency_ns) +
           " after the DSP's record, and the captured audio is sample for sample what the "
           "microphone heard" +
           (delivery.is_ambient ? ", after the same mu-law companding"
                                : "; " + TimestampText(delivery));
}

std::string ToText(const Failure& failure) {
    std::string text;
    if (!failure.file.empty()) text += failure.file + ":" + std::to_string(failure.line) + ": ";
    if (!failure.verb.empty()) text += "'" + failure.verb + "': ";
    return failure.seen.empty() ? text + failure.expected
                                : text + "expected " + failure.expected + "; saw " + failure.seen;
}

// --- findings ---

const char* StepName(LatencyStep step) {
    switch (step) {
        case LatencyStep::kHotwordEnd:
            return "hotword ended";
        case LatencyStep::kReadable:
            return "record readable";
        case LatencyStep::kRead:
            return "record read";
        case LatencyStep::kCallback:
            return "callback entered";
        case LatencyStep::kOpened:
            return "stream opened";
        case LatencyStep::kFirstAudio:
            return "first audio";
        case LatencyStep::kLive:
            return "caught up with live";
    }
    return "";
}

std::string MissedText(const MissedHotword& missed, const RunFacts& facts) {
    const Model& model = facts.models[missed.spoken.model];
    const MissReason& reason = missed.reason;
    switch (reason.kind) {
        using enum MissReason::Kind;
        case kLoadedIntoOtherEngine:
            return "The model is for the " + Name(model.engine) +
                   " engine and was loaded into another one: " + ToText(reason.refusal) + ".";
        case kDspDown:
            return "The DSP was down.";
        case kReportedOffline:
            return "The HAL had been told that the DSP is offline.";
        case kNeverReportedOnline:
            return "The HAL had not been told yet that the DSP is online.";
        case kInternalRecognition:
            return "An internal recognition was running: what the engine detects belongs to it.";
        case kNotStarted:
            return NotStartedText(reason, model);
        case kDetectedAlready:
            return "The engine had detected already, and detects once after each start.";
        case kEngineNotDetecting:
            return std::string("The HAL counted the model as started, the DSP's engine was ") +
                   Name(reason.engine_state) + ".";
        case kStartedTooLate:
            return "The DSP began to listen in the middle of it: what was heard before does not "
                   "count.";
        case kBelowThreshold:
            return "Below the model's threshold: " + CorrelationText(missed, model);
        case kNotDetected:
            return "The DSP was listening and detected nothing: " + CorrelationText(missed, model);
        case kRecordDropped:
            return "The DSP detected it, but its record was dropped by " +
                   DropCauseText(reason.dropped_by) + " before the HAL read it.";
        case kReadFailed:
            return "The HAL logged: " + reason.logged + ".";
        case kNeverRead:
            return "The HAL never read the DSP's record.";
        case kTransitionRefused:
            return "The client's state refused it; the HAL logged: " + reason.logged + ".";
        case kOnlyOtherEnginesStarted:
            return "The record is the " + Name(model.engine) +
                   " engine's; only models of other engines were started.";
        case kNoClient:
            return "The HAL read the record and found no client of it.";
        case kTakenNotDelivered:
            return "The HAL took the record, but did not deliver the event: its model was stopped "
                   "or unloaded at that moment, or has no callback.";
    }
    return "";
}

std::string LabelOf(const RecordingMark& mark, const RunFacts& facts) {
    using Origin = virtual_dsp::DetectionRaised::Origin;
    switch (mark.kind) {
        case RecordingMark::Kind::kSpoken:
            return "\"" + facts.models[mark.model].name + "\", spoken";
        case RecordingMark::Kind::kMissed:
            return "\"" + facts.models[mark.model].name + "\", no event";
        case RecordingMark::Kind::kDetected:
            return Name(mark.engine) + (mark.origin == Origin::kHeard    ? " detected"
                                        : mark.origin == Origin::kForced ? " forced"
                                                                         : ", internal");
        case RecordingMark::Kind::kCaptured:
        case RecordingMark::Kind::kSilent:
            break;
    }
    if (!mark.is_listed) return "";
    const bool is_silent = mark.kind == RecordingMark::Kind::kSilent;
    std::string text = is_silent ? "silence instead of audio" : "captured";
    if (mark.is_internal) text += ", internal recognition";
    return mark.more_stretches == 0
                   ? text
                   : text + ", and " + Number(mark.more_stretches) + " more stretches";
}

std::string ToText(const Problem& problem, const RunFacts& facts, const RunFindings& found) {
    return std::visit(ProblemSentence{facts, found}, problem);
}

}  // namespace sthal
