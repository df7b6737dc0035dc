#include "tools/sthal/facts/run_facts.h"

#include "host/virtual_dsp/dsp/command_table.h"

namespace sthal {

bool IsNoteOnly(const framework::FrameworkMonitor::Violation& violation) {
    return violation.rule == framework::FrameworkMonitor::Rule::kSecondEventAfterDspRestart;
}

bool IsModelChunk(const virtual_dsp::JournalEntry& entry) {
    if (IsRefusal(entry)) return false;
    if (entry.As<virtual_dsp::ChunkTaken>() != nullptr) return true;
    const auto* const command = entry.As<virtual_dsp::CommandAnswered>();
    if (command == nullptr) return false;
    const auto* const info = virtual_dsp::FindCommand(command->id.value_or(0));
    return info != nullptr && info->action == virtual_dsp::Action::kWriteModel;
}

}  // namespace sthal
