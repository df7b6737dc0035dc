#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** The results, table by table, in the order in which they came. */
class ResultTables {
  public:
    static ResultTables& Get();

    void Begin(const std::string& title, std::vector<std::string> columns);
    // Adds a row unless the table has it.
    void Add(std::vector<std::string> cells);
    void PrintMarkdown() const;

  private:
    struct Table {
        std::string title;
        std::vector<std::vector<std::string>> rows;  // The first one names the columns.
    };
    std::vector<Table> tables_;
};

std::string Milliseconds(std::chrono::milliseconds duration);

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
