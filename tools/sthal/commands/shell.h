#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/sthal/script/grammar.h"
#include "tools/sthal/script/session.h"

namespace sthal {

/**
 * Carries out the verbs that somebody types, with editing, history and completion. Events appear
 * above the line being typed as they arrive. Where standard input is no terminal, its lines are
 * taken as they are.
 *
 * Ctrl-C drops the line, or ends what is being waited for; Ctrl-D, `quit` and SIGTERM end the
 * shell. One at a time in a process.
 */
class Shell {
  public:
    explicit Shell(Session& session) : session_(session) {}

    // Until the end. Returns whether every line read off a terminal was carried out.
    bool Run();

    // From now on Ctrl-C is the shell's: it no longer ends the process, but what is waited for.
    static void CatchInterrupts();
    static bool WasInterrupted();

  private:
    bool RunLines();
    bool NextLine(std::string& line);
    void EditLines();
    void TakeSignals();
    void ShowPending();
    bool Carry(const std::string& line);
    Outcome CarryShellVerb(const std::string& name, const Values& values);
    Outcome ShowModels();
    Outcome Save(const std::string& path);
    std::string PauseSinceLastVerb() const;

    static void OnLine(char* line);

    Session& session_;
    bool is_over_ = false;
    std::string unread_;                    // Of standard input that is no terminal.
    std::vector<std::string> carried_out_;  // What `save` writes.
    uint64_t last_verb_frame_ = 0;  // Where the microphones were when the last one had ended.
};

}  // namespace sthal
