#include <climits>

#include "tests/zyl/adapter_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {
namespace {

class NotificationTest : public AdapterTest {
  protected:
    static constexpr int kNotWritten = INT_MIN;

    struct Taken {
        int result = 0;
        int engine = kNotWritten;
        std::string payload = "older";

        bool operator==(const Taken&) const = default;
        friend void PrintTo(const Taken& taken, std::ostream* out) {
            *out << taken.result << ", engine " << taken.engine << ", payload " << taken.payload;
        }
    };

    Taken Read() {
        Taken taken;
        taken.result = adapter_->ReadDspNotification(&taken.engine, taken.payload);
        return taken;
    }

    // 40 bytes, those without a meaning set.
    static std::string Record(uint16_t id, std::string payload) {
        payload.resize(32);
        return "head" + std::string{static_cast<char>(id & 0xFF), static_cast<char>(id >> 8)} +
               "xx" + payload;
    }
};

TEST_F(NotificationTest, EveryKindOfRecordIsToldByItsId) {
    const std::string full(32, 'f');
    const ReplacedNode node(kNotificationDevice,
                            Record(241, "hotword text") + Record(259, "song") + Record(286, full) +
                                    Record(259, "") + Record(286, std::string("\0rest", 5)) +
                                    Record(240, "text") + Record(0xFFFF, full) +
                                    Record(241, "").substr(0, 39));
    ASSERT_LE(0, adapter_->GetNotificationFileDescriptor());

    EXPECT_EQ((Taken{0, 1, "older"}), Read()) << "a hotword has no text of its own";
    EXPECT_EQ((Taken{0, 2, "song"}), Read());
    EXPECT_EQ((Taken{0, 3, full}), Read()) << "without a NUL";
    EXPECT_EQ((Taken{0, 2, "older"}), Read()) << "without text";
    EXPECT_EQ((Taken{0, 3, "older"}), Read());
    EXPECT_THAT(log_.Take(), ElementsAre());
    EXPECT_EQ((Taken{0, 0, "older"}), Read());
    EXPECT_EQ((Taken{0, 0, "older"}), Read());
    EXPECT_EQ(Taken{}, Read()) << "39 bytes";
    EXPECT_EQ(Taken{}, Read()) << "no bytes";
    EXPECT_THAT(log_.Take(), ElementsAre(Line('W', "ReadDspNotification: Unknown cmd.id: 240"),
                                         Line('W', "ReadDspNotification: Unknown cmd.id: 65535"),
                                         Line('W', "ReadDspNotification: read unknown event."),
                                         Line('W', "ReadDspNotification: read unknown event.")));
}

TEST_F(NotificationTest, ReadThatFailsIsReportedUnlessItIsToBeRepeated) {
    ASSERT_LE(0, adapter_->GetNotificationFileDescriptor());
    EXPECT_EQ(Taken{}, Read()) << "there is no record";
    SetFaults({"on notification read errno=EINTR"});
    EXPECT_EQ(Taken{}, Read());
    EXPECT_THAT(log_.Take(), ElementsAre());

    SetFaults({"on notification read errno=EIO"});
    EXPECT_EQ(Taken{-EIO}, Read());
    board_->faults().Clear();
    board_->dsp().Crash();
    EXPECT_EQ(Taken{-ENODEV}, Read()) << "the HAL tells a restart by this";
    EXPECT_THAT(log_.Take(),
                ElementsAre(Line('E', "ReadDspNotification: Read failed Input/output error"),
                            Line('E', "ReadDspNotification: Read failed No such device")));
}

TEST_F(NotificationTest, DeviceStaysOpenUntilItIsReset) {
    const size_t descriptors = OpenDescriptors();
    EXPECT_EQ(Taken{-EINVAL}, Read()) << "before the descriptor was asked for";
    adapter_->ResetNotificationFileDescriptor();

    const int fd = adapter_->GetNotificationFileDescriptor();
    EXPECT_EQ(fd, adapter_->GetNotificationFileDescriptor());
    EXPECT_EQ(O_RDWR | O_NONBLOCK, fcntl(fd, F_GETFL) & (O_ACCMODE | O_NONBLOCK));
    adapter_->ResetNotificationFileDescriptor();
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(Taken{-EINVAL}, Read());

    Detect();
    EXPECT_EQ(kHotword, TakeDetection()) << "of the reopened device";
    adapter_.reset();
    EXPECT_EQ(descriptors, OpenDescriptors()) << "left open by the adapter's end";
}

TEST_F(NotificationTest, DeviceIsTriedTenTimesThenStaysAwayUntilTheReset) {
    SetFaults({"on notification open errno=ENOENT"});
    EXPECT_EQ(-1, adapter_->GetNotificationFileDescriptor());
    EXPECT_EQ(-1, adapter_->GetNotificationFileDescriptor());
    EXPECT_EQ(10U, board_->faults().Fired(0)) << "attempts in all";
    EXPECT_EQ(Taken{-EBADF}, Read());

    adapter_->ResetNotificationFileDescriptor();
    SetFaults({"on notification open times=9 errno=ENOENT"});
    EXPECT_LE(0, adapter_->GetNotificationFileDescriptor());
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
