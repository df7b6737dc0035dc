#include "tools/sthal/output/run_files.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include "tools/sthal/output/page.h"
#include "tools/sthal/output/trace.h"

namespace sthal {

namespace {

std::string CannotWrite(const std::string& path) {
    return "cannot write " + path + ": " + std::strerror(errno) + "; choose another file";
}

std::string WriteFile(const std::string& path, const std::string& contents) {
    std::FILE* const file = std::fopen(path.c_str(), "wbe");
    if (file == nullptr) return CannotWrite(path);
    const bool is_written =
            std::fwrite(contents.data(), 1, contents.size(), file) == contents.size();
    const bool is_closed = std::fclose(file) == 0;
    if (is_written && is_closed) return {};
    return "cannot write all of " + path + ": " + std::strerror(errno) + "; is the disk full?";
}

}  // namespace

void AddRunFileOptions(CLI::App& command, RunFiles& files) {
    const auto is_writable = [](const std::string& path) {
        // Now, and not after the run. What is in it is left until then.
        std::FILE* const file = std::fopen(path.c_str(), "abe");
        if (file == nullptr) return CannotWrite(path);
        (void)std::fclose(file);
        return std::string();
    };
    command.add_option("--trace", files.trace,
                       "write what happened when, for Perfetto or chrome://tracing (JSON)")
            ->check(is_writable);
    command.add_option("--report", files.report,
                       "write a page that shows the run, for a browser (HTML)")
            ->check(is_writable);
}

void AddOutputOption(CLI::App& command, std::string& folder) {
    command.add_option("--out", folder, "folder for the WAV files")
            ->capture_default_str()
            ->check([](const std::string& path) {
                std::error_code error;
                std::filesystem::create_directories(path, error);
                if (!error) return std::string();
                return "cannot make the folder " + path + ": " + error.message() +
                       "; choose another one";
            });
}

std::string WriteRunFiles(const RunRecord& record, const RunFiles& files) {
    if (!files.AreWanted()) return {};
    const RunFacts facts = record.Snapshot();
    std::string problem;
    if (!files.trace.empty()) problem = WriteFile(files.trace, TraceJson(facts));
    if (!files.report.empty()) {
        const std::string another = WriteFile(files.report, ReportHtml(facts));
        if (problem.empty()) problem = another;
    }
    return problem;
}

}  // namespace sthal
