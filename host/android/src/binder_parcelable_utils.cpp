#include <android/binder_parcelable_utils.h>

namespace ndk {

void AParcelableHolder::reset() {
    descriptor_.clear();
    value_.reset();
}

binder_status_t AParcelableHolder::readFromParcel(const AParcel*) {
    return STATUS_INVALID_OPERATION;
}

binder_status_t AParcelableHolder::writeToParcel(AParcel*) const {
    return STATUS_INVALID_OPERATION;
}

}  // namespace ndk
