#include "tools/sthal/output/terminal.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <utility>

namespace sthal {

namespace {

constexpr char kEraseLine[] = "\r\033[K";

}  // namespace

Terminal::Terminal()
    : is_terminal_(isatty(STDOUT_FILENO) == 1), wake_fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void Terminal::Write(std::string_view text) {
    (void)std::fwrite(text.data(), 1, text.size(), stdout);
    (void)std::fflush(stdout);
}

void Terminal::Print(std::string_view text) {
    std::lock_guard lock(lock_);
    if (is_editing_) {
        pending_ += text;
        (void)eventfd_write(wake_fd_.get(), 1);
        return;
    }
    if (progress_.empty()) {
        Write(text);
    } else {
        Write(kEraseLine + std::string(text) + progress_);
    }
}

void Terminal::ShowProgress(const std::string& text) {
    std::lock_guard lock(lock_);
    if (!is_terminal_ || is_editing_ || text == progress_) return;
    progress_ = text;
    Write(kEraseLine + progress_);
}

void Terminal::EndProgress() {
    std::lock_guard lock(lock_);
    if (progress_.empty()) return;
    progress_.clear();
    Write(kEraseLine);
}

void Terminal::BeginEditing() {
    EndProgress();
    std::lock_guard lock(lock_);
    is_editing_ = true;
}

void Terminal::EndEditing() {
    std::lock_guard lock(lock_);
    is_editing_ = false;
    Write(std::exchange(pending_, {}));
}

std::string Terminal::TakePending() {
    std::lock_guard lock(lock_);
    eventfd_t count = 0;
    (void)eventfd_read(wake_fd_.get(), &count);
    return std::exchange(pending_, {});
}

}  // namespace sthal
