#include "tools/sthal/output/run_files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/sthal/output/page.h"
#include "tools/sthal/output/trace.h"

namespace sthal {

namespace {

host::Error CannotWrite(const std::string& path) {
    return host::Error("cannot write " + path + ": " + std::strerror(errno) +
                       "; choose another file");
}

host::Result<void> WriteFile(const std::string& path, const std::string& contents) {
    std::FILE* const file = std::fopen(path.c_str(), "wbe");
    if (file == nullptr) return CannotWrite(path);
    const bool is_written =
            std::fwrite(contents.data(), 1, contents.size(), file) == contents.size();
    const bool is_closed = std::fclose(file) == 0;
    if (is_written && is_closed) return {};
    return host::Error("cannot write all of " + path + ": " + std::strerror(errno) +
                       "; is the disk full?");
}

}  // namespace

host::Result<void> CheckWritable(const std::string& path) {
    std::FILE* const file = std::fopen(path.c_str(), "abe");
    if (file == nullptr) return CannotWrite(path);
    (void)std::fclose(file);  // Nothing was written.
    return {};
}

host::Result<void> WriteRunFiles(const RunFacts& facts, const RunFiles& files) {
    host::Result<void> trace;
    host::Result<void> page;
    if (!files.trace.empty()) trace = WriteFile(files.trace, TraceJson(facts));
    if (!files.report.empty()) page = WriteFile(files.report, ReportHtml(facts));
    return trace.ok() ? page : trace;
}

}  // namespace sthal
