#pragma once

namespace sthal {

// From now on Ctrl-C, SIGTERM and a terminal that goes away no longer end the process but make
// Interrupted() true, on any thread, so that a run can end cleanly. Another one, more than a second
// later, ends the process at once.
void CatchInterrupts();
bool Interrupted();

}  // namespace sthal
