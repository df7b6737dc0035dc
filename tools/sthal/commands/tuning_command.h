#pragma once

#include <string>

namespace CLI {
class App;
}

namespace sthal {

/** `sthal tuning show` and `sthal tuning build`: tuning files to text and back. */
class TuningCommand {
  public:
    explicit TuningCommand(CLI::App& app);

    // The exit status: 0, or 2 after a message when a file is wrong or cannot be had.
    int Run() const;

  private:
    int Show() const;
    int Build() const;

    bool show_ = false;
    bool build_ = false;
    std::string input_;
    std::string output_;
};

}  // namespace sthal
