#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

// What all fuzzers are made with: the input, the properties, the log.

namespace vendor::quarno::brindlecove::audio::hal {
namespace soundtrigger::zyl {}
namespace utils {}
}  // namespace vendor::quarno::brindlecove::audio::hal

namespace fuzz {

namespace soundtrigger = ::vendor::quarno::brindlecove::audio::hal::soundtrigger;
namespace zyl = soundtrigger::zyl;
namespace utils = ::vendor::quarno::brindlecove::audio::hal::utils;

using Bytes = std::vector<uint8_t>;

/** The input of one run, taken from its front. Behind its end there are zeros. */
class Input {
  public:
    explicit Input(Bytes bytes) : bytes_(std::move(bytes)) {}

    bool empty() const { return at_ == bytes_.size(); }

    template <typename T>
    T Take() {
        T value{};
        const Bytes bytes = TakeBytes(sizeof(value));
        std::copy(bytes.begin(), bytes.end(), reinterpret_cast<uint8_t*>(&value));
        return value;
    }

    /** `count` bytes, or all that are left. */
    Bytes TakeBytes(size_t count) {
        const auto from = bytes_.begin() + static_cast<ptrdiff_t>(at_);
        count = std::min(count, bytes_.size() - at_);
        at_ += count;
        return {from, from + static_cast<ptrdiff_t>(count)};
    }

    /** A text behind its length in one byte. */
    std::string TakeText() {
        const Bytes bytes = TakeBytes(Take<uint8_t>());
        return {bytes.begin(), bytes.end()};
    }

  private:
    Bytes bytes_;
    size_t at_ = 0;
};

/** The first bytes of `bytes` as a T; what is missing counts as 0. */
template <typename T>
T As(const Bytes& bytes) {
    return Input(bytes).Take<T>();
}

/** The inverse: numbers and structs as they are in memory, texts and vectors as their bytes. */
template <typename... Parts>
Bytes Join(const Parts&... parts) {
    Bytes joined;
    const auto add = [&joined](const auto& part) {
        if constexpr (requires { part.size(); }) {
            joined.insert(joined.end(), part.begin(), part.end());
        } else {
            const auto* const bytes = reinterpret_cast<const uint8_t*>(&part);
            joined.insert(joined.end(), bytes, bytes + sizeof(part));
        }
    };
    (add(parts), ...);
    return joined;
}

constexpr uint8_t U8(int value) {
    return static_cast<uint8_t>(value);
}

/** What Input::TakeText() takes. */
inline Bytes Text(const std::string& text) {
    return Join(U8(static_cast<int>(text.size())), text);
}

/** A property of the code under test: where it does not hold, the run is a finding. */
void Require(bool holds, const char* property);

/** ERROR lines that have been logged since the process began. */
int ErrorLines();

// Each fuzzer has its own of these two.

/** One run on one input, whose bytes it says the meaning of. Nothing of it outlives the call. */
void Run(Input input);

/** The inputs to begin with, by name: one for what mutation would take long to find. */
std::map<std::string, Bytes> Seeds();

}  // namespace fuzz
