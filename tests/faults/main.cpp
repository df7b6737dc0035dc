// fault_matrix: what every operation of the HAL makes of every failure below it. With --markdown it
// prints the results as tables, and on standard error what is not as expected.
#include <gtest/gtest.h>

#include <cstring>
#include <iostream>

#include "host/virtual_dsp/board/enter_board.h"
#include "tests/faults/result_tables.h"

namespace {

// Takes the place of GoogleTest's printer, whose lines would stand among the tables.
class FailurePrinter : public testing::EmptyTestEventListener {
    void OnTestPartResult(const testing::TestPartResult& result) override {
        if (result.failed()) std::cerr << result << '\n';
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (const auto status = virtual_dsp::EnterBoard(argc, argv)) return *status;
    testing::InitGoogleTest(&argc, argv);
    const bool markdown = argc > 1 && strcmp(argv[1], "--markdown") == 0;
    if (markdown) {
        auto& listeners = testing::UnitTest::GetInstance()->listeners();
        delete listeners.Release(listeners.default_result_printer());
        listeners.Append(new FailurePrinter);
    }
    const int failed = RUN_ALL_TESTS();
    using ::vendor::quarno::brindlecove::audio::hal::soundtrigger::ResultTables;
    if (markdown) ResultTables::Get().PrintMarkdown();
    return failed;
}
