#include <android/binder_parcelable_utils.h>

namespace ndk {

void AParcelableHolder::reset() {
    descriptor_.clear();
    bytes_.clear();
}

binder_status_t AParcelableHolder::readFromParcel(const AParcel* parcel) {
    reset();
    parcelable_stability_t stability = STABILITY_LOCAL;
    std::span<const uint8_t> descriptor;
    std::span<const uint8_t> bytes;
    binder_status_t status = parcel->readScalar(&stability);
    if (status != STATUS_OK) return status;
    if (stability != stability_) return STATUS_BAD_VALUE;
    if ((status = parcel->readBlock(&descriptor)) != STATUS_OK) return status;
    if ((status = parcel->readBlock(&bytes)) != STATUS_OK) return status;
    descriptor_.assign(descriptor.begin(), descriptor.end());
    bytes_.assign(bytes.begin(), bytes.end());
    return STATUS_OK;
}

binder_status_t AParcelableHolder::writeToParcel(AParcel* parcel) const {
    parcel->writeScalar(stability_);
    const binder_status_t status = parcel->writeBlock(
            {reinterpret_cast<const uint8_t*>(descriptor_.data()), descriptor_.size()});
    return status == STATUS_OK ? parcel->writeBlock(bytes_) : status;
}

void AParcelableHolder::hostSetRaw(std::string_view descriptor, std::span<const uint8_t> bytes) {
    descriptor_ = descriptor;
    bytes_.assign(bytes.begin(), bytes.end());
}

}  // namespace ndk
