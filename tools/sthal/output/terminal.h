#pragma once

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

#include <mutex>
#include <string>
#include <string_view>

namespace sthal {

/**
 * Standard output. Several threads print to it; text appears above the line of progress, and above
 * the line that somebody is typing.
 *
 * Thread-safe; BeginEditing() and EndEditing() are for one thread.
 */
class Terminal {
  public:
    Terminal();
    ~Terminal() { EndProgress(); }

    // Whole lines, with their line feeds.
    void Print(std::string_view text) EXCLUDES(lock_);

    // Shows a line of progress in place of the last one. Nothing off a terminal, or while somebody
    // is typing.
    void ShowProgress(const std::string& text) EXCLUDES(lock_);
    void EndProgress() EXCLUDES(lock_);

    // Until the end of the editing, text is kept for its thread: `wake_fd` becomes readable, and
    // the thread prints what it takes.
    void BeginEditing() EXCLUDES(lock_);
    void EndEditing() EXCLUDES(lock_);
    int wake_fd() const { return wake_fd_.get(); }
    std::string TakePending() EXCLUDES(lock_);

  private:
    void Write(std::string_view text) REQUIRES(lock_);

    const bool is_terminal_;
    const android::base::unique_fd wake_fd_;
    std::mutex lock_;
    bool is_editing_ GUARDED_BY(lock_) = false;
    std::string pending_ GUARDED_BY(lock_);
    std::string progress_ GUARDED_BY(lock_);
};

}  // namespace sthal
