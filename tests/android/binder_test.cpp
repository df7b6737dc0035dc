#include <aidl/android/hardware/soundtrigger3/BnSoundTriggerHwGlobalCallback.h>
#include <android/binder_auto_utils.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <utility>

namespace {

using ndk::ScopedAStatus;
using ndk::ScopedFileDescriptor;

bool IsOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1 || errno != EBADF;
}

ScopedFileDescriptor OpenNull() {
    return ScopedFileDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

TEST(ScopedFileDescriptorTest, EveryDescriptorHasOneOwnerThatClosesIt) {
    ScopedFileDescriptor first = OpenNull();
    const int fd = first.get();
    ASSERT_TRUE(IsOpen(fd));

    ScopedFileDescriptor copy = first.dup();
    const int copy_fd = copy.get();
    EXPECT_NE(fd, copy_fd);
    EXPECT_NE(0, fcntl(copy_fd, F_GETFD) & FD_CLOEXEC) << "a child process would inherit it";

    copy = std::move(first);
    EXPECT_FALSE(IsOpen(copy_fd)) << "the descriptor that was assigned over leaked";
    EXPECT_EQ(fd, copy.get());
    EXPECT_EQ(-1, first.get()) << "two owners: the second close hits somebody else's file";

    copy.set(fd);
    EXPECT_TRUE(IsOpen(fd)) << "setting the descriptor that is owned already closed it";
    { const ScopedFileDescriptor last = std::move(copy); }
    EXPECT_FALSE(IsOpen(fd));
    EXPECT_EQ(-1, copy.dup().get());
}

TEST(ScopedAStatusTest, ServiceErrorIsKeptApartFromTheExceptionAndDescribed) {
    const ScopedAStatus busy =
            ScopedAStatus::fromServiceSpecificErrorWithMessage(1, "no free model slot");
    EXPECT_FALSE(busy.isOk());
    EXPECT_EQ(EX_SERVICE_SPECIFIC, busy.getExceptionCode());
    EXPECT_EQ(1, busy.getServiceSpecificError());
    EXPECT_EQ("Status(-8, EX_SERVICE_SPECIFIC): '1: no free model slot'", busy.getDescription());

    const ScopedAStatus refused = ScopedAStatus::fromExceptionCode(EX_ILLEGAL_STATE);
    EXPECT_EQ(0, refused.getServiceSpecificError());
    EXPECT_EQ("Status(-5, EX_ILLEGAL_STATE): ''", refused.getDescription());
    EXPECT_TRUE(ScopedAStatus::ok().isOk());
}

class Listener : public aidl::android::hardware::soundtrigger3::BnSoundTriggerHwGlobalCallback {
  public:
    explicit Listener(bool* alive) : alive_(alive) { *alive_ = true; }
    ~Listener() override { *alive_ = false; }
    ScopedAStatus onResourcesAvailable() override { return ScopedAStatus::ok(); }

  private:
    bool* alive_;
};

TEST(SharedRefBaseTest, AllPointersAndTheBinderShareOneObject) {
    bool alive = false;
    std::shared_ptr<Listener> listener = ndk::SharedRefBase::make<Listener>(&alive);
    std::shared_ptr<Listener> again = listener->ref<Listener>();
    EXPECT_EQ(listener, again);
    EXPECT_FALSE(listener->isRemote());

    ndk::SpAIBinder binder = listener->asBinder();
    EXPECT_NE(nullptr, binder.get());
    EXPECT_EQ(binder, again->asBinder()) << "a service tells its clients apart by their binders";

    listener.reset();
    again.reset();
    EXPECT_TRUE(alive) << "the binder keeps its object";
    binder = {};
    EXPECT_FALSE(alive);
}

TEST(SharedRefBaseDeathTest, AnObjectThatWasNeverSharedEndsTheProcess) {
    EXPECT_DEATH(
            {
                bool alive = false;
                Listener on_the_stack(&alive);
            },
            "use SharedRefBase::make");
}

}  // namespace
