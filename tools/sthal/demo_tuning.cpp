#include "tools/sthal/demo_tuning.h"

#include <android-base/logging.h>

#include "audio/hal/utils/tamberlo/tamberlo_config_file.h"
#include "audio/hal/utils/tamberlo/tamberlo_tuning_text.h"

namespace sthal {

namespace {

namespace tamberlo = ::vendor::quarno::brindlecove::audio::hal::utils::tamberlo;

constexpr char kText[] =
#include "example_tuning.inc"  // A string literal that CMake makes of example_tuning.txt.
        ;

}  // namespace

std::vector<uint8_t> DemoTuningFile() {
    const tamberlo::TuningTextResult text = tamberlo::TuningFileFromText(kText);
    CHECK(text.file.has_value()) << "example_tuning.txt:" << text.line << ": " << text.what;
    return *tamberlo::WriteTuningFile(*text.file);
}

}  // namespace sthal
