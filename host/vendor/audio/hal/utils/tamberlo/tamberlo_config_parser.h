#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo {

struct TuningFile;

/** One block of tuning data. */
struct TuningBlock {
    uint32_t id;
    uint32_t size;        // Bytes at `data`.
    const uint8_t* data;  // Owned by the parser; never null, even if `size` is 0.
};

/**
 * Parses a tuning file and returns its blocks (docs/tuning_file.md has the layout).
 *
 * A file is kept as a whole or not at all: gains from a damaged file are worse than none. Not
 * thread-safe while it parses; afterwards any number of threads may ask for blocks.
 */
class TamberloConfigParser {
  public:
    /**
     * The component that uses a group of blocks. Files may hold other values; they are kept, too.
     */
    enum class Type : int {
        kPlayback = 1,
        kCapture = 2,
        kVoiceCall = 3,
        kSoundTrigger = 4,
    };

    /** The only file version whose blocks are kept. */
    const int expected_version = 1;

    TamberloConfigParser();
    ~TamberloConfigParser();
    TamberloConfigParser(const TamberloConfigParser&) = delete;
    TamberloConfigParser& operator=(const TamberloConfigParser&) = delete;

    /**
     * Parses a whole file image, keeps a copy of its blocks, and drops those of an earlier image.
     * The image may hold anything: a malformed one is refused with one ERROR line that says what is
     * wrong and where.
     *
     * @param buffer   The image; may be null when `size` is 0.
     * @param size     Bytes; negative counts as 0.
     * @param version  Set to the version that the file states; 0 when it is no tuning file at all.
     * @return Whether the blocks were kept, that is, whether the file is intact and has the
     *         expected version.
     */
    [[nodiscard]] bool ParseTuningBuffer(unsigned char* buffer, int size, int& version);

    /**
     * The blocks for one mode and type, in the order of the file; empty when there are none. They
     * stay valid until the next ParseTuningBuffer() or the parser's destruction.
     */
    [[nodiscard]] std::vector<TuningBlock> GetTuningDataVector(int mode, Type type) const;

  private:
    std::unique_ptr<TuningFile> file_;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo
