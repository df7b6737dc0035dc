#include "tools/sthal/commands/run_options.h"

#include <CLI/CLI.hpp>

#include <filesystem>
#include <system_error>

namespace sthal {

void AddRunFileOptions(CLI::App& command, RunFiles& files) {
    const auto is_writable = [](const std::string& path) {
        const auto checked = CheckWritable(path);
        return checked.ok() ? std::string() : checked.error();
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

}  // namespace sthal
