#pragma once

#include <functional>
#include <optional>
#include <string>

namespace sthal {

/** The lines of a descriptor, as they come. Used by one thread. */
class LineReader {
  public:
    // `is_stopped` is asked before each line, and while one is waited for: every 200 ms, and
    // whenever a signal comes. That is why this is not std::getline(), which a signal does not end.
    LineReader(int fd, std::function<bool()> is_stopped)
        : fd_(fd), is_stopped_(std::move(is_stopped)) {}

    // The next line, without its line feed; none at the end, or when stopped.
    std::optional<std::string> Next();

  private:
    const int fd_;
    const std::function<bool()> is_stopped_;
    std::string unread_;
};

}  // namespace sthal
