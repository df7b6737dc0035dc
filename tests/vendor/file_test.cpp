#include "audio/hal/utils/file/file.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::vendor::quarno::brindlecove::audio::hal::utils::File;

char late_path[64];
std::atomic<int> signals_left = 0;

class FileTest : public ::testing::Test {
  protected:
    FileTest() {
        char pattern[] = "/tmp/file_test.XXXXXX";
        folder_ = mkdtemp(pattern);
        fifo_ = folder_ + "/fifo";
        mkfifo(fifo_.c_str(), S_IRUSR | S_IWUSR);
        (folder_ + "/late").copy(late_path, sizeof(late_path) - 1);
    }
    ~FileTest() override {
        signals_left = 0;
        Interrupt(0);
        unlink(fifo_.c_str());
        unlink(late_path);
        rmdir(folder_.c_str());
    }

    // Interrupts system calls every 5 ms, `count` times; the last signal makes the file late_path.
    static void Interrupt(int count) {
        signals_left = count;
        struct sigaction action = {};  // Without SA_RESTART.
        action.sa_handler = [](int) {
            if (--signals_left == 0) (void)close(creat(late_path, S_IRUSR));
            if (signals_left <= 0) setitimer(ITIMER_REAL, &kNever, nullptr);
        };
        sigaction(SIGALRM, &action, nullptr);
        const itimerval often = {{.tv_sec = 0, .tv_usec = 5000}, {.tv_sec = 0, .tv_usec = 5000}};
        setitimer(ITIMER_REAL, count > 0 ? &often : &kNever, nullptr);
    }

    static constexpr itimerval kNever = {};
    std::string folder_;
    std::string fifo_;
};

TEST_F(FileTest, SignalsNeitherEndNorProlongAWait) {
    File file(fifo_.c_str(), O_RDWR | O_NONBLOCK);
    ASSERT_EQ(0, file.Open());
    Interrupt(10'000);  // For 50 s.

    const auto start = steady_clock::now();
    EXPECT_EQ(-ETIMEDOUT, file.PollIn(100));

    EXPECT_GE(steady_clock::now() - start, milliseconds(100)) << "a signal cut the wait short";
    EXPECT_GT(signals_left, 0) << "each signal started the wait anew";
}

TEST_F(FileTest, HangUpIsAnErrorOnlyOnceTheDataIsRead) {
    File reader(fifo_.c_str(), O_RDONLY | O_NONBLOCK);
    File writer(fifo_.c_str(), O_WRONLY);
    ASSERT_EQ(0, reader.Open());
    ASSERT_EQ(0, writer.Open());
    ASSERT_EQ(3, writer.Write("abc", 3));
    writer.Close();

    char buffer[8];
    EXPECT_EQ(0, reader.PollIn(1000));
    EXPECT_EQ(3, reader.Read(buffer, sizeof(buffer)));
    EXPECT_EQ(-EIO, reader.PollIn(10'000));
    reader.Close();
    EXPECT_EQ(-EBADF, reader.PollIn(-1)) << "poll() would wait for ever here";
}

TEST_F(FileTest, OpenIsRepeatedUntilTheFileAppearsWithWaitsOnlyInBetween) {
    constexpr int kMinute = 60'000'000;
    File late(late_path, O_RDONLY);
    File too_long(std::string(File::kPathBytes, 'a').c_str(), O_RDONLY);

    EXPECT_EQ(-ENOENT, late.Open(1, kMinute));
    EXPECT_EQ(-ENAMETOOLONG, too_long.Open(10, kMinute));
    Interrupt(10'000);
    const auto start = steady_clock::now();
    EXPECT_EQ(-ENOENT, late.Open(3, 40'000));
    EXPECT_GE(steady_clock::now() - start, milliseconds(80)) << "a signal cut a wait short";

    Interrupt(2);
    EXPECT_EQ(0, late.Open(10'000, 5000)) << "the file is there after two signals";
}

TEST_F(FileTest, DescriptorIsNeitherInheritedNorLostNorPaidForWithMemory) {
    const char* path = fifo_.c_str();
    const size_t memory_before = mallinfo2().uordblks;
    File file(path, O_RDWR | O_NONBLOCK);
    const int first_open = file.Open();
    const int first_fd = file.fd();
    const int second_open = file.Open();
    const size_t memory_after = mallinfo2().uordblks;

    EXPECT_EQ(0, first_open);
    EXPECT_EQ(0, second_open);
    EXPECT_EQ(first_fd, file.fd()) << "the first descriptor was still open";
    EXPECT_EQ(FD_CLOEXEC, fcntl(file.fd(), F_GETFD));
    EXPECT_EQ(memory_before, memory_after);
}

}  // namespace
