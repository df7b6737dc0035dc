#include <android/binder_parcel.h>

binder_status_t AParcel::readScalar(bool* value) const {
    uint8_t byte = 0;
    const binder_status_t status = readScalar(&byte);
    if (status == STATUS_OK) *value = byte != 0;
    return status;
}

binder_status_t AParcel::writeBlock(std::span<const uint8_t> block) {
    if (block.size() > INT32_MAX) return STATUS_BAD_VALUE;
    writeScalar(static_cast<int32_t>(block.size()));
    bytes_.insert(bytes_.end(), block.begin(), block.end());
    return STATUS_OK;
}

binder_status_t AParcel::readBlock(std::span<const uint8_t>* block) const {
    const size_t start = position_;
    int32_t size = 0;
    const binder_status_t status = readScalar(&size);
    if (status != STATUS_OK) return status;
    if (size < 0 || static_cast<size_t>(size) > remaining()) {
        position_ = start;
        return size < 0 ? STATUS_BAD_VALUE : STATUS_NOT_ENOUGH_DATA;
    }
    *block = std::span(bytes_).subspan(position_, static_cast<size_t>(size));
    position_ += static_cast<size_t>(size);
    return STATUS_OK;
}
