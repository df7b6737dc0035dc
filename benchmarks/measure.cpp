#include "benchmarks/measure.h"

#include <malloc.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <utility>

namespace {

thread_local uint64_t allocations = 0;
thread_local int64_t held_bytes = 0;

void* Counted(void* memory) {
    ++allocations;
    held_bytes += static_cast<int64_t>(malloc_usable_size(memory));
    return memory;
}

void CountFreed(void* memory) {
    held_bytes -= static_cast<int64_t>(malloc_usable_size(memory));
}

}  // namespace

// Counts and passes on. The C library's own functions are found by their other names, since dlsym
// itself allocates.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void __libc_free(void* memory);

void* malloc(size_t size) {
    return Counted(__libc_malloc(size));
}

void* calloc(size_t count, size_t size) {
    return Counted(__libc_calloc(count, size));
}

void* realloc(void* memory, size_t size) {
    CountFreed(memory);
    return Counted(__libc_realloc(memory, size));
}

void free(void* memory) {
    CountFreed(memory);
    __libc_free(memory);
}
}

namespace bench {

uint64_t Allocations() {
    return allocations;
}

int64_t HeldBytes() {
    return held_bytes;
}

int64_t NowNs() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

double Samples::Quantile(double q) const {
    if (values_.empty()) return 0;
    std::vector<int64_t> sorted = values_;
    const auto nth = static_cast<ptrdiff_t>(q * static_cast<double>(sorted.size() - 1));
    std::nth_element(sorted.begin(), sorted.begin() + nth, sorted.end());
    return static_cast<double>(sorted[static_cast<size_t>(nth)]);
}

bool Row::IsMissed() const {
    return goal && ratio.value_or(value) > *goal;
}

Round Timed(std::function<void()> work) {
    return [work = std::move(work)] {
        const int64_t started = NowNs();
        work();
        return NowNs() - started;
    };
}

Row Compare(std::string what, std::string bare_name, int rounds, const Round& library,
            const Round& bare, std::optional<double> goal) {
    Samples ours;
    Samples theirs;
    const int warm_up = rounds / 10 + 1;
    for (int round = -warm_up; round < rounds; ++round) {
        // Who comes second may profit from what the first left in the caches.
        const bool library_first = round % 2 == 0;
        const int64_t first = library_first ? library() : bare();
        const int64_t second = library_first ? bare() : library();
        if (round < 0) continue;
        ours.Add(library_first ? first : second);
        theirs.Add(library_first ? second : first);
    }
    Row row;
    row.what = std::move(what);
    row.bare = std::move(bare_name);
    row.unit = "us";
    row.value = ours.Median() / 1e3;
    row.p99 = ours.P99() / 1e3;
    row.bare_value = theirs.Median() / 1e3;
    row.bare_p99 = theirs.P99() / 1e3;
    if (row.bare_value > 0) row.ratio = row.value / row.bare_value;
    row.goal = goal;
    return row;
}

namespace {

std::string Number(double value, int digits) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(digits) << value;
    return text.str();
}

int Digits(const Row& row) {
    if (row.unit == "times") return 3;
    if (row.unit != "us") return 0;
    return row.value < 100 ? 2 : 1;
}

}  // namespace

void PrintTable(const std::vector<Row>& rows, std::ostream& out) {
    out << "| what | logging | library: median, p99 | bare: median, p99 | ratio | goal | |\n"
           "|---|---|---|---|---|---|---|\n";
    for (const Row& row : rows) {
        const int digits = Digits(row);
        out << "| " << row.what << " | " << row.logging << " | " << Number(row.value, digits);
        if (row.p99 > 0) out << ", " << Number(row.p99, digits);
        out << ' ' << row.unit << " | ";
        if (!row.bare.empty()) {
            out << row.bare << ": " << Number(row.bare_value, digits);
            if (row.bare_p99 > 0) out << ", " << Number(row.bare_p99, digits);
        }
        out << " | " << (row.ratio ? Number(*row.ratio, 3) : "") << " | "
            << (row.goal ? Number(*row.goal, 2) : "") << " | "
            << (row.goal ? (row.IsMissed() ? "missed" : "met") : "") << ' ' << row.note << " |\n";
    }
}

void PrintJson(const std::vector<Row>& rows, std::ostream& out) {
    auto figures = nlohmann::ordered_json::array();
    for (const Row& row : rows) {
        auto& figure = figures.emplace_back(nlohmann::ordered_json{{"what", row.what},
                                                                   {"bare", row.bare},
                                                                   {"logging", row.logging},
                                                                   {"unit", row.unit},
                                                                   {"value", row.value},
                                                                   {"p99", row.p99},
                                                                   {"bare_value", row.bare_value},
                                                                   {"bare_p99", row.bare_p99}});
        if (row.ratio) figure["ratio"] = *row.ratio;
        if (row.goal) {
            figure["goal"] = *row.goal;
            figure["missed"] = row.IsMissed();
        }
        figure["note"] = row.note;
    }
    out << figures.dump(2) << '\n';
}

}  // namespace bench
