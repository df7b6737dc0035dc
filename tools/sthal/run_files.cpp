#include "tools/sthal/run_files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "tools/sthal/report.h"
#include "tools/sthal/trace.h"

namespace sthal {

namespace {

std::string WriteFile(const std::string& path, const std::string& contents) {
    std::FILE* const file = std::fopen(path.c_str(), "wbe");
    if (file == nullptr) {
        return "cannot write " + path + ": " + std::strerror(errno) + "; choose another file";
    }
    const bool is_written =
            std::fwrite(contents.data(), 1, contents.size(), file) == contents.size();
    const bool is_closed = std::fclose(file) == 0;
    if (is_written && is_closed) return {};
    return "cannot write all of " + path + ": " + std::strerror(errno) + "; is the disk full?";
}

}  // namespace

std::string WriteRunFiles(const RunRecord& record, const std::string& trace_path,
                          const std::string& report_path) {
    if (trace_path.empty() && report_path.empty()) return {};
    const RunFacts facts = record.Snapshot();
    std::string problem;
    if (!trace_path.empty()) problem = WriteFile(trace_path, TraceJson(facts));
    if (!report_path.empty()) {
        const std::string another = WriteFile(report_path, ReportHtml(facts));
        if (problem.empty()) problem = another;
    }
    return problem;
}

}  // namespace sthal
