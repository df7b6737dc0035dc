#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/sthal/script/verbs.h"

namespace sthal {

/**
 * Carries out the verbs that somebody types, with editing, history and completion. Events appear
 * above the line being typed as they arrive. Where standard input is no terminal, its lines are
 * taken as they are.
 *
 * Ctrl-C drops the line, or ends what is being waited for; Ctrl-D, `quit` and SIGTERM end the
 * shell. Wants the signals of the terminal to be caught (interrupt.h) and the phone to be started.
 * One at a time in a process.
 */
class Shell {
  public:
    explicit Shell(Session& session) : session_(session) {}

    // Until the end. Returns whether every line read off a terminal was carried out.
    bool Run();

  private:
    void EditLines();
    void TakeSignals();
    void ShowPending();
    bool RunLine(const std::string& line);
    VerbResult RunCommand(const Command& command, const std::string& line);
    VerbResult RunShellVerb(const Command& command);
    VerbResult RunFile(const std::string& path);
    VerbResult Save(const std::string& path);
    std::string PauseSinceLastVerb() const;

    static void OnLine(char* line);

    Session& session_;
    bool is_over_ = false;
    std::vector<std::string> carried_out_;  // What `save` writes.
    uint64_t last_verb_frame_ = 0;  // Where the microphones were when the last one had ended.
};

}  // namespace sthal
