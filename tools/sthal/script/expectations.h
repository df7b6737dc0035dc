#pragma once

#include "tools/sthal/script/grammar.h"
#include "tools/sthal/script/session.h"

// The verbs that wait for something, or fail when it is not so. What the HAL or the DSP does by
// itself is given up to a second to happen.
namespace sthal {

Outcome RunWait(Session& session, const Values& values);
Outcome WaitEvent(Session& session, const Values& values);
Outcome WaitHeard(Session& session, const Values& values);
Outcome WaitCapture(Session& session, const Values& values);
Outcome ExpectEvent(Session& session, const Values& values);
Outcome ExpectNoEvent(Session& session, const Values& values);
Outcome ExpectResult(Session& session, const Values& values);
Outcome ExpectState(Session& session, const Values& values);
Outcome ExpectCaptureExact(Session& session, const Values& values);
Outcome ExpectCaptureCut(Session& session, const Values& values);
Outcome ExpectCaptureSilent(Session& session, const Values& values);
Outcome ExpectDump(Session& session, const Values& values);
Outcome ExpectLog(Session& session, const Values& values);
Outcome ExpectCommand(Session& session, const Values& values);
Outcome ExpectNoCommand(Session& session, const Values& values);
Outcome ExpectFaultFired(Session& session, const Values& values);

}  // namespace sthal
