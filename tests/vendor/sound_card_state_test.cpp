#include "audio/hal/utils/soundcardstate/sound_card_state.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace monitor = ::vendor::quarno::brindlecove::audio::hal::utils::soundcardstate;

struct Recorder : monitor::SoundCardStateListener {
    void OnSoundCardStateChanged(bool online) override { heard.push_back(online); }

    std::vector<bool> heard;
};

TEST(SoundCardStateTest, ListenerIsRegisteredOnceAndCanReturn) {
    monitor::SoundCardState state;
    Recorder listener;

    EXPECT_FALSE(state.RegisterListener(nullptr));
    EXPECT_TRUE(state.RegisterListener(&listener));
    EXPECT_FALSE(state.RegisterListener(&listener));
    state.Report(true);
    state.UnregisterListener(&listener);
    state.Report(false);
    EXPECT_FALSE(state.IsOnline());
    EXPECT_TRUE(state.RegisterListener(&listener));
    state.Report(true);

    EXPECT_EQ((std::vector<bool>{true, true}), listener.heard);
}

bool IsAsleep(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string stat;
    std::getline(file, stat);
    return stat.find(") S ") != std::string::npos;
}

// Stays in its first callback until both other threads wait for its end, or one has not waited.
struct Lingering : monitor::SoundCardStateListener {
    explicit Lingering(monitor::SoundCardState* reporter) : state(reporter) {}

    void OnSoundCardStateChanged(bool online) override {
        if (gone) called_after_leaving = true;
        if (called.exchange(true)) return;
        while (!overtaken && !called_after_leaving && !(IsAsleep(next) && IsAsleep(leaving))) {
            overtaken = state->IsOnline() != online;
            if (gone) called_after_leaving = true;
        }
    }

    monitor::SoundCardState* const state;
    std::atomic<bool> called = false;
    std::atomic<pid_t> next = 0;     // The thread that makes the next report.
    std::atomic<pid_t> leaving = 0;  // The one that takes this listener away.
    std::atomic<bool> gone = false;
    std::atomic<bool> overtaken = false;
    std::atomic<bool> called_after_leaving = false;
};

TEST(SoundCardStateTest, RunningReportIsWaitedForByTheNextOneAndByAListenerThatLeaves) {
    monitor::SoundCardState state;
    Recorder first;
    Lingering leaving(&state);
    Recorder last;
    ASSERT_TRUE(state.RegisterListener(&first));
    ASSERT_TRUE(state.RegisterListener(&leaving));
    ASSERT_TRUE(state.RegisterListener(&last));

    std::thread up([&state] { state.Report(true); });
    while (!leaving.called) std::this_thread::yield();
    std::thread down([&] {
        leaving.next = gettid();
        state.Report(false);
    });
    leaving.leaving = gettid();
    state.UnregisterListener(&leaving);
    leaving.gone = true;
    up.join();
    down.join();

    EXPECT_FALSE(leaving.overtaken);
    EXPECT_FALSE(leaving.called_after_leaving);
    EXPECT_EQ((std::vector<bool>{true, false}), first.heard);
    EXPECT_EQ(first.heard, last.heard);
}

}  // namespace
