#include "audio/hal/utils/tamberlo/tamberlo_config_file.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <utility>

namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo {

namespace {

static_assert(std::endian::native == std::endian::little, "fields are copied, not byte-swapped");

constexpr std::array<uint8_t, 4> kMagic = {'Q', 'S', 'T', 'F'};
constexpr size_t kVersionOffset = 4;
constexpr size_t kLengthOffset = 8;
constexpr size_t kChecksumOffset = 12;
constexpr size_t kChecksummedFrom = 16;

constexpr std::array<uint32_t, 256> MakeChecksumTable() {
    std::array<uint32_t, 256> table = {};
    for (uint32_t byte = 0; byte < table.size(); ++byte) {
        uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) value = (value >> 1) ^ ((value & 1) * 0xEDB88320u);
        table[byte] = value;
    }
    return table;
}

// CRC-32 of IEEE 802.3.
uint32_t Checksum(std::span<const uint8_t> bytes) {
    static constexpr std::array<uint32_t, 256> kTable = MakeChecksumTable();
    uint32_t value = 0xFFFFFFFF;
    for (const uint8_t byte : bytes) value = (value >> 8) ^ kTable[(value ^ byte) & 0xFF];
    return ~value;
}

// Walks an image field by field. Whatever fails records the first error, with its place.
class Reader {
  public:
    explicit Reader(std::span<const uint8_t> image) : image_(image) {}

    [[nodiscard]] host::Result<TuningFile, TuningFileError> Read() {
        TuningFile file;
        if (ReadHeader() && ReadModes(&file)) return file;
        return ::android::base::unexpected(std::move(error_));
    }

  private:
    bool Fail(size_t offset, std::string what) {
        error_.offset = offset;
        error_.what = std::move(what);
        return false;
    }

    bool ReadU32(const char* field, uint32_t* value) {
        if (image_.size() - at_ < sizeof(*value)) {
            return Fail(at_, std::string("the file ends within its ") + field);
        }
        std::memcpy(value, image_.data() + at_, sizeof(*value));
        at_ += sizeof(*value);
        return true;
    }

    bool ReadHeader() {
        if (image_.size() < kMagic.size() ||
            !std::equal(kMagic.begin(), kMagic.end(), image_.begin())) {
            return Fail(0, "does not begin like a tuning file");
        }
        at_ = kVersionOffset;
        uint32_t version = 0;
        uint32_t length = 0;
        uint32_t checksum = 0;
        if (!ReadU32("version", &version)) return false;
        error_.version = version;
        // Nothing after the version may be taken for granted in a file of another version.
        if (version != kTuningFileVersion) {
            return Fail(kVersionOffset, "version " + std::to_string(version) + ", not " +
                                                std::to_string(kTuningFileVersion));
        }
        if (!ReadU32("length", &length) || !ReadU32("checksum", &checksum)) return false;
        if (length != image_.size()) {
            return Fail(kLengthOffset, "length " + std::to_string(length) + ", but the file has " +
                                               std::to_string(image_.size()) + " bytes");
        }
        if (length > kMaxTuningFileBytes) {
            return Fail(kLengthOffset, "longer than " + std::to_string(kMaxTuningFileBytes) +
                                               " bytes: " + std::to_string(length));
        }
        if (checksum != Checksum(image_.subspan(kChecksummedFrom))) {
            return Fail(kChecksumOffset, "the checksum does not match the content");
        }
        return true;
    }

    // Reads the key of one entry of `entries` and makes the entry. Keys ascend, so that one content
    // has one image and no key comes twice.
    template <typename Entries>
    typename Entries::mapped_type* ReadKey(const char* field, Entries* entries) {
        const size_t key_offset = at_;
        uint32_t key = 0;
        if (!ReadU32(field, &key)) return nullptr;
        if (!entries->empty() && key <= entries->rbegin()->first) {
            Fail(key_offset, std::string(field) + " " + std::to_string(key) + " after " +
                                     std::to_string(entries->rbegin()->first) +
                                     ", but they must ascend");
            return nullptr;
        }
        return &entries->try_emplace(entries->end(), key)->second;
    }

    // Counts are not trusted: nothing is reserved for them, and each entry takes up bytes of the
    // image, so that a count which is too high soon meets its end.
    bool ReadModes(TuningFile* file) {
        uint32_t modes = 0;
        if (!ReadU32("number of modes", &modes)) return false;
        for (; modes > 0; --modes) {
            TuningFileMode* mode = ReadKey("mode", &file->modes);
            if (mode == nullptr || !ReadTypes(mode)) return false;
        }
        return at_ == image_.size() || Fail(at_, "bytes after the last mode");
    }

    bool ReadTypes(TuningFileMode* mode) {
        uint32_t types = 0;
        if (!ReadU32("number of types", &types)) return false;
        for (; types > 0; --types) {
            std::vector<TuningFileBlock>* blocks = ReadKey("type", mode);
            if (blocks == nullptr || !ReadBlocks(blocks)) return false;
        }
        return true;
    }

    bool ReadBlocks(std::vector<TuningFileBlock>* blocks) {
        uint32_t count = 0;
        if (!ReadU32("number of blocks", &count)) return false;
        for (; count > 0; --count) {
            TuningFileBlock& block = blocks->emplace_back();
            if (!ReadU32("block id", &block.id)) return false;
            const size_t size_offset = at_;
            uint32_t size = 0;
            if (!ReadU32("block size", &size)) return false;
            if (size > image_.size() - at_) {
                return Fail(size_offset, "a block of " + std::to_string(size) +
                                                 " bytes, but only " +
                                                 std::to_string(image_.size() - at_) + " are left");
            }
            const auto data = image_.subspan(at_, size);
            block.data.assign(data.begin(), data.end());
            at_ += size;
        }
        return true;
    }

    const std::span<const uint8_t> image_;
    size_t at_ = 0;
    TuningFileError error_;
};

class Writer {
  public:
    void U32(size_t value) {
        const auto field = static_cast<uint32_t>(value);
        image_.resize(image_.size() + sizeof(field));
        std::memcpy(image_.data() + image_.size() - sizeof(field), &field, sizeof(field));
    }

    void Bytes(std::span<const uint8_t> bytes) {
        image_.insert(image_.end(), bytes.begin(), bytes.end());
    }

    void PatchU32(size_t offset, size_t value) {
        const auto field = static_cast<uint32_t>(value);
        std::memcpy(image_.data() + offset, &field, sizeof(field));
    }

    std::vector<uint8_t>& image() { return image_; }

  private:
    std::vector<uint8_t> image_;
};

}  // namespace

host::Result<TuningFile, TuningFileError> ReadTuningFile(std::span<const uint8_t> image) {
    return Reader(image).Read();
}

host::Result<std::vector<uint8_t>> WriteTuningFile(const TuningFile& file) {
    Writer writer;
    writer.Bytes(kMagic);
    writer.U32(kTuningFileVersion);
    writer.U32(0);  // Length and checksum follow below.
    writer.U32(0);
    writer.U32(file.modes.size());
    for (const auto& [mode, types] : file.modes) {
        writer.U32(mode);
        writer.U32(types.size());
        for (const auto& [type, blocks] : types) {
            writer.U32(type);
            writer.U32(blocks.size());
            for (const TuningFileBlock& block : blocks) {
                writer.U32(block.id);
                writer.U32(block.data.size());
                writer.Bytes(block.data);
            }
        }
    }
    std::vector<uint8_t>& image = writer.image();
    if (image.size() > kMaxTuningFileBytes) {
        return host::Error("makes a file of more than " + std::to_string(kMaxTuningFileBytes) +
                           " bytes");
    }
    writer.PatchU32(kLengthOffset, image.size());
    writer.PatchU32(kChecksumOffset, Checksum(std::span(image).subspan(kChecksummedFrom)));
    return std::move(image);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo
