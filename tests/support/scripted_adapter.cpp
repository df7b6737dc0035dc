#include "tests/support/scripted_adapter.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "tests/support/deadline.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

// --- the test's side ---

ScriptedAdapter::~ScriptedAdapter() {
    for (const Step& step : steps_) EXPECT_LE(step.times, 0) << "step not used up: " << step.call;
    EXPECT_EQ(0U, notifications_.size()) << "notifications left unread";
    if (notification_fd_ >= 0) close(notification_fd_);
}

void ScriptedAdapter::Script(Step step) {
    std::lock_guard lock(lock_);
    steps_.push_back(std::move(step));
}

void ScriptedAdapter::Notify(Notification notification) {
    std::lock_guard lock(lock_);
    notifications_.push_back(std::move(notification));
    if (notification_fd_ >= 0) (void)eventfd_write(notification_fd_, 1);
}

std::vector<std::string> ScriptedAdapter::Take() {
    std::lock_guard lock(lock_);
    return std::exchange(journal_, {});
}

std::string ScriptedAdapter::TakeCommands() {
    std::lock_guard lock(lock_);
    std::string line;
    std::erase_if(journal_, [&line](const std::string& call) {
        for (const char* other : {"Library", "Timestamp", "Read", "Watch", "Unwatch", "Notif"}) {
            if (call.starts_with(other)) return false;
        }
        line += (line.empty() ? "" : " ") + call;
        return true;
    });
    return line;
}

void ScriptedAdapter::WaitForCall(const std::string& call, size_t count) {
    std::unique_lock lock(lock_);
    const auto begins = [&](const std::string& text) { return text.starts_with(call); };
    EXPECT_TRUE(journal_changed_.wait_for(lock, kDeadline,
                                          [&] {
                                              return std::ranges::count_if(journal_, begins) >=
                                                     static_cast<ptrdiff_t>(count);
                                          }))
            << call << " did not come " << count
            << " times in time; journal: " << ::testing::PrintToString(journal_);
}

// --- the HAL's side ---

int ScriptedAdapter::Call(const std::string& name, const std::string& arguments) {
    const std::string text = name + "(" + arguments + ")";
    Step step;
    {
        std::lock_guard lock(lock_);
        const auto found = std::ranges::find_if(steps_, [&](Step& candidate) {
            return candidate.times != 0 && text.starts_with(candidate.call) &&
                   candidate.after-- <= 0;
        });
        if (found != steps_.end()) {
            EXPECT_NE(kNever, found->times) << "must not come: " << text;
            if (found->times > 0) --found->times;
            step = *found;
        }
        journal_.push_back(text);
        journal_changed_.notify_all();
    }
    if (step.during) step.during();
    return step.result;
}

int ScriptedAdapter::Locked(const char* name, const std::string& arguments) {
    EXPECT_EQ(0, calls_under_hal_lock_++) << name << " runs beside another call";
    const int result = Call(name, arguments);
    --calls_under_hal_lock_;
    return result;
}

int ScriptedAdapter::ForEngine(const char* name, int engine, const std::string& more) {
    const int result = Locked(name, std::to_string(engine) + more);
    return result == 0 && (engine < 1 || engine > 3) ? -EINVAL : result;
}

int ScriptedAdapter::LoadSoundModelToDsp(int engine, int size, const char* data) {
    const std::string bytes(data, static_cast<size_t>(size));  // To the last, as the download does.
    return ForEngine("Load", engine, "," + std::to_string(size) + "," + bytes.substr(0, 16));
}

std::optional<LibraryArchitecture> ScriptedAdapter::GetLibraryArchitecture() {
    if (Call("Library", "") != 0) return std::nullopt;
    return library;
}

int64_t ScriptedAdapter::ReadDspTimestamp(int engine) {
    (void)Call("Timestamp", std::to_string(engine));
    return engine == 1 ? timestamp_ns.load() : 0;
}

int ScriptedAdapter::ReadDspBuffer(int engine, char* buffer, unsigned size, int channels) {
    const int result = Call("Read", std::to_string(engine) + "," + std::to_string(size) + "," +
                                            std::to_string(channels));
    if (result != 0) return result;
    const bool is_hotword = engine == 1;
    const unsigned most = !is_hotword ? 2049 : channels == 1 ? 2048 : 4096;
    if (engine < 1 || engine > 3 || size > most) return -EINVAL;
    const unsigned written = is_hotword && channels != 1 ? size : 2048;
    for (unsigned k = 0; k < written; ++k) buffer[k] = static_cast<char>(k % 251);
    return static_cast<int>(is_hotword ? size : size / 2 * 2);
}

int ScriptedAdapter::GetNotificationFileDescriptor() {
    if (const int result = Locked("Watch"); result != 0) return result;
    std::lock_guard lock(lock_);
    // Notifications wait in the DSP, not in the descriptor: a new one shows the same.
    if (notification_fd_ < 0) {
        notification_fd_ = eventfd(static_cast<unsigned>(notifications_.size()),
                                   EFD_SEMAPHORE | EFD_NONBLOCK | EFD_CLOEXEC);
    }
    return notification_fd_;
}

void ScriptedAdapter::ResetNotificationFileDescriptor() {
    std::unique_lock lock(lock_);
    if (notification_fd_ >= 0) close(std::exchange(notification_fd_, -1));
    lock.unlock();
    (void)Locked("Unwatch");
}

int ScriptedAdapter::ReadDspNotification(int* engine, std::string& payload) {
    if (const int result = Locked("Notification"); result != 0) return result;
    std::lock_guard lock(lock_);
    eventfd_t one = 0;
    if (notification_fd_ < 0 || eventfd_read(notification_fd_, &one) != 0) {
        ADD_FAILURE() << "a notification was read that does not wait";
        return -EINVAL;
    }
    const Notification notification = std::move(notifications_.front());
    notifications_.pop_front();
    if (notification.result < 0) return notification.result;
    if (!notification.is_torn) *engine = notification.engine;
    if (notification.payload) payload = *notification.payload;
    return 0;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
