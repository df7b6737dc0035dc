#pragma once

#include <string>

#include "tools/sthal/script/grammar.h"
#include "tools/sthal/script/session.h"

// What verbs do with a session, where that is more than one call. The table of verbs has the forms
// of their values.
namespace sthal {

Outcome RunLoad(Session& session, const Values& values);
Outcome RunStart(Session& session, const Values& values);
Outcome RunProperties(Session& session, const Values& values);
Outcome RunCapture(Session& session, const Values& values);
Outcome RunZeroLatency(Session& session, const Values& values);
Outcome RunSay(Session& session, const Values& values);
Outcome RunPlayWav(Session& session, const Values& values);
Outcome RunPlayMusic(Session& session, const Values& values);
Outcome RunHush(Session& session, const Values& values);
Outcome RunDspOnline(Session& session, const Values& values);
Outcome RunJournal(Session& session, const Values& values);
Outcome RunForget(Session& session, const Values& values);
Outcome RunPlayTracks(Session& session, const Values& values);
Outcome RunTuningLoad(Session& session, const Values& values);
Outcome RunTuningShow(Session& session, const Values& values);
Outcome RunDump(Session& session, const Values& values);
Outcome RunLogLevel(Session& session, const Values& values);

// What is wrong with what these verbs are given, or nothing; see Verb::find_problem.
std::string LoadProblem(const Values& values);
std::string SayProblem(const Values& values);
std::string PlayWavProblem(const Values& values);
std::string TuningProblem(const Values& values);

}  // namespace sthal
