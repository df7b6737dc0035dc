#pragma once

#include <android-base/unique_fd.h>

#include <mutex>
#include <string>
#include <string_view>

namespace sthal {

/**
 * Standard output, as several threads share it with a line of progress and with a line that
 * somebody is typing. Text appears above either of them.
 *
 * Thread-safe, but for the editing, which is its one thread's.
 */
class Terminal {
  public:
    Terminal();
    ~Terminal() { EndProgress(); }

    // Whole lines, with their line feeds.
    void Print(std::string_view text);

    // Shows a line of progress in place of the last one. Nothing off a terminal, or while somebody
    // is typing.
    void ShowProgress(const std::string& text);
    void EndProgress();

    // Until the end of the editing, text is kept for its thread: `wake_fd` becomes readable, and
    // the thread prints what it takes.
    void BeginEditing();
    void EndEditing();
    int wake_fd() const { return wake_fd_.get(); }
    std::string TakePending();

  private:
    void Write(std::string_view text);

    const bool is_terminal_;
    const android::base::unique_fd wake_fd_;
    std::mutex lock_;
    // All below: under lock_.
    bool is_editing_ = false;
    std::string pending_;
    std::string progress_;
};

}  // namespace sthal
