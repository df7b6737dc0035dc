#include "fuzz/fuzz.h"

#include <android-base/logging.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace fuzz {

namespace {

std::atomic<int> error_lines = 0;

int WriteSeeds(const std::filesystem::path& folder) {
    std::filesystem::create_directories(folder);
    for (const auto& [name, bytes] : Seeds()) {
        std::ofstream file(folder / name, std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()), std::ssize(bytes));
        if (!file.flush()) return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}

}  // namespace

void Require(bool holds, const char* property) {
    if (holds) return;
    std::fprintf(stderr, "== does not hold: %s\n", property);
    std::abort();
}

int ErrorLines() {
    return error_lines;
}

}  // namespace fuzz

// Memory that cannot be had is null, as on a phone, and no report. What the framework may ask for
// at most is refused early, since a sanitizer pays for its size. A small quarantine keeps many
// fuzzers on a small machine.
extern "C" const char* __asan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=32:quarantine_size_mb=16";
}

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    if (*argc == 3 && std::string_view((*argv)[1]) == "--seeds") {
        std::exit(fuzz::WriteSeeds((*argv)[2]));
    }
    // Every line is made, down to VERBOSE, and dropped; FUZZ_LOG shows them, to replay a finding.
    android::base::SetMinimumLogSeverity(android::base::VERBOSE);
    android::base::SetLogger(
            [is_shown = std::getenv("FUZZ_LOG") != nullptr](auto, auto severity, const char* tag,
                                                            auto, auto, const char* message) {
                if (severity == android::base::ERROR) ++fuzz::error_lines;
                if (is_shown) std::fprintf(stderr, "%s: %s\n", tag, message);
            });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Run(fuzz::Input(fuzz::Bytes(data, data + size)));
    return 0;
}
