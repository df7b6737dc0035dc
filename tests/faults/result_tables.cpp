#include "tests/faults/result_tables.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

ResultTables& ResultTables::Get() {
    static ResultTables tables;
    return tables;
}

void ResultTables::Begin(const std::string& title, std::vector<std::string> columns) {
    tables_.push_back({title, {std::move(columns)}});
}

void ResultTables::Add(std::vector<std::string> cells) {
    auto& rows = tables_.back().rows;
    if (std::ranges::find(rows, cells) == rows.end()) rows.push_back(std::move(cells));
}

void ResultTables::PrintMarkdown() const {
    for (const Table& table : tables_) {
        printf("\n### %s\n\n", table.title.c_str());
        for (size_t i = 0; i < table.rows.size(); ++i) {
            for (const std::string& cell : table.rows[i]) printf("| %s ", cell.c_str());
            printf("|\n");
            if (i > 0) continue;
            for (size_t k = 0; k < table.rows[0].size(); ++k) printf("|---");
            printf("|\n");
        }
    }
}

std::string Milliseconds(std::chrono::milliseconds duration) {
    return std::to_string(duration.count()) + " ms";
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
