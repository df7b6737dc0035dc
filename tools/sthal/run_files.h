#pragma once

#include <string>

#include "tools/sthal/record.h"

namespace sthal {

/**
 * Writes what a run has recorded: a trace for Perfetto, and a page that shows the run. An empty
 * path leaves that file out. The record must have been enabled before the run.
 *
 * @return What is wrong with a file and what can be done, or nothing.
 */
std::string WriteRunFiles(const RunRecord& record, const std::string& trace_path,
                          const std::string& report_path);

}  // namespace sthal
