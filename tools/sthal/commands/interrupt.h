#pragma once

namespace sthal {

// From now on Ctrl-C, SIGTERM and a terminal that goes away no longer end the process but make
// Interrupted() true, on any thread, so that a run can end cleanly. Another one, more than a second
// later, ends the process at once.
void CatchInterrupts();
bool Interrupted();

// --- for a shell ---

// From now on Ctrl-C interrupts only what a line waits for, and changes of the terminal are told.
void CatchSignalsOfTerminal();
// Whether Ctrl-C has come since TakeLineInterrupt(), or Interrupted(). Any thread.
bool LineInterrupted();
// Whether Ctrl-C has come since the last time.
bool TakeLineInterrupt();
// The latest SIGWINCH or SIGCONT since the last time; 0 if there was none.
int TakeTerminalChange();

}  // namespace sthal
