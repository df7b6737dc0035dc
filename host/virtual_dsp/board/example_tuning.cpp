#include "host/virtual_dsp/board/example_tuning.h"

#include <android-base/logging.h>

#include "audio/hal/utils/tamberlo/tamberlo_config_file.h"
#include "audio/hal/utils/tamberlo/tamberlo_tuning_text.h"

namespace virtual_dsp {

namespace {

namespace tamberlo = ::vendor::quarno::brindlecove::audio::hal::utils::tamberlo;

constexpr char kText[] =
#include "example_tuning.inc"  // A string literal that CMake makes of example_tuning.txt.
        ;

}  // namespace

std::vector<uint8_t> ExampleTuningFile() {
    const auto file = tamberlo::TuningFileFromText(kText);
    CHECK(file.ok()) << "example_tuning.txt:" << file.error().line << ": " << file.error().what;
    return tamberlo::WriteTuningFile(*file).value();
}

}  // namespace virtual_dsp
