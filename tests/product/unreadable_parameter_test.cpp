// On the PC only: there is no way on a phone to make a parameter that cannot be read.
#include <aidl/android/media/audio/common/Boolean.h>

#include "tests/product/hal_test.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {
namespace {

using ::aidl::android::media::audio::common::Boolean;

TEST_F(RunningHalTest, ParameterThatCannotBeReadIsNotTakenAndSwapsNothing) {
    SoundTriggerHal::VendorParameter fan;
    fan.id = "vendor.vexor.st.wireless.charger.with.fan";
    ASSERT_EQ(STATUS_OK, fan.ext.setParcelable(Boolean{.value = true}));
    Check(true, hal_->SetParameter(fan), "MicSwap(on)");

    fan.ext.hostSetUnreadable<Boolean>();
    Check(false, hal_->SetParameter(fan), "");

    ASSERT_EQ(STATUS_OK, fan.ext.setParcelable(Boolean{.value = true}));
    Check(true, hal_->SetParameter(fan), "");
}

}  // namespace
}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
