#include "audio/hal/utils/tamberlo/tamberlo_tuning_text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstring>
#include <limits>
#include <span>
#include <utility>
#include <vector>

#include "audio/hal/utils/tamberlo/tamberlo_config_parser.h"

namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo {

namespace {

struct NamedNumber {
    uint32_t number;
    std::string_view name;
};

constexpr uint32_t TypeNumber(TamberloConfigParser::Type type) {
    return static_cast<uint32_t>(type);
}

constexpr std::array kModes = {
        NamedNumber{0, "default"},
        NamedNumber{86, "docked"},
};

constexpr std::array kTypes = {
        NamedNumber{TypeNumber(TamberloConfigParser::Type::kPlayback), "playback"},
        NamedNumber{TypeNumber(TamberloConfigParser::Type::kCapture), "capture"},
        NamedNumber{TypeNumber(TamberloConfigParser::Type::kVoiceCall), "voice-call"},
        NamedNumber{TypeNumber(TamberloConfigParser::Type::kSoundTrigger), "sound-trigger"},
};

constexpr std::array kParameters = {
        NamedNumber{275, "hotword-eraser-pre-gain"},   NamedNumber{277, "hotword-eraser-post-gain"},
        NamedNumber{279, "hotword-non-eraser-gain"},   NamedNumber{297, "chre-gain"},
        NamedNumber{299, "hotword-cleaner-post-gain"}, NamedNumber{345, "chre-src-aec-timeout"},
        NamedNumber{346, "chre-src-pdm-gain"},         NamedNumber{347, "chre-src-aec-gain"},
};

constexpr size_t kBytesPerLine = 16;

// A parameter inside a block: id and value length (32 bits each), then the value.
constexpr size_t kRecordHeaderBytes = 8;
constexpr uint32_t kValueBytes = 4;

std::string_view NameOf(std::span<const NamedNumber> known, uint32_t number) {
    for (const NamedNumber& entry : known) {
        if (entry.number == number) return entry.name;
    }
    return {};
}

std::optional<uint32_t> NumberOf(std::span<const NamedNumber> known, std::string_view name) {
    for (const NamedNumber& entry : known) {
        if (entry.name == name) return entry.number;
    }
    return std::nullopt;
}

// The whole of `text` as a number of type T; hexadecimal without a prefix for base 16.
template <typename T>
std::optional<T> ParseNumber(std::string_view text, int base) {
    T number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base);
    if (error != std::errc() || stop != end) return std::nullopt;
    return number;
}

std::optional<uint32_t> ParseU32(std::string_view text) {
    if (text.starts_with("0x")) return ParseNumber<uint32_t>(text.substr(2), 16);
    return ParseNumber<uint32_t>(text, 10);
}

// A parameter's value: signed in decimal, its bits in hexadecimal.
std::optional<uint32_t> ParseValue(std::string_view text) {
    if (text.starts_with("0x")) return ParseU32(text);
    const auto number = ParseNumber<int32_t>(text, 10);
    if (!number) return std::nullopt;
    return std::bit_cast<uint32_t>(*number);
}

uint32_t GetU32(std::span<const uint8_t> bytes, size_t offset) {
    uint32_t value = 0;
    std::memcpy(&value, bytes.data() + offset, sizeof(value));
    return value;
}

void AppendU32(std::vector<uint8_t>* bytes, uint32_t value) {
    const auto raw = std::bit_cast<std::array<uint8_t, sizeof(value)>>(value);
    bytes->insert(bytes->end(), raw.begin(), raw.end());
}

// --- printing -----------------------------------------------------------------------------------

void PrintHeading(const char* indentation, const char* keyword, uint32_t number,
                  std::string_view name, std::string* text) {
    *text += indentation;
    *text += keyword;
    *text += " " + std::to_string(number);
    if (!name.empty()) (*text += " ") += name;
}

void PrintBytes(std::span<const uint8_t> bytes, std::string* text) {
    static constexpr char kDigits[] = "0123456789abcdef";
    for (size_t at = 0; at < bytes.size(); at += kBytesPerLine) {
        *text += "      bytes";
        for (const uint8_t byte : bytes.subspan(at, std::min(kBytesPerLine, bytes.size() - at))) {
            *text += {' ', kDigits[byte >> 4], kDigits[byte & 0xF]};
        }
        *text += "\n";
    }
}

// Prints parameters for as long as they have the usual form, and what they are made of otherwise.
void PrintParameters(std::span<const uint8_t> data, std::string* text) {
    while (data.size() >= kRecordHeaderBytes) {
        const uint32_t length = GetU32(data, sizeof(uint32_t));
        if (length > data.size() - kRecordHeaderBytes) break;
        const auto record = data.first(kRecordHeaderBytes + length);
        if (length == kValueBytes) {
            const uint32_t id = GetU32(record, 0);
            const uint32_t value = GetU32(record, kRecordHeaderBytes);
            PrintHeading("      ", "param", id, TuningParameterName(id), text);
            *text += " = " + std::to_string(std::bit_cast<int32_t>(value)) + "\n";
        } else {
            PrintBytes(record, text);
        }
        data = data.subspan(record.size());
    }
    PrintBytes(data, text);
}

// What the sound trigger HAL stops at in a block's data; nothing when it takes all of it.
std::optional<std::string> FirstProblem(std::span<const uint8_t> data) {
    for (size_t at = 0; at < data.size();) {
        const std::string place = "byte " + std::to_string(at) + ": ";
        const size_t left = data.size() - at;
        if (left < kRecordHeaderBytes + kValueBytes) {
            return place + "a record of " + std::to_string(left) + " bytes, which has no value";
        }
        const uint32_t id = GetU32(data, at);
        const uint32_t length = GetU32(data, at + sizeof(uint32_t));
        if (length < kValueBytes || length > left - kRecordHeaderBytes) {
            return place + "a value of " + std::to_string(length) + " bytes, where " +
                   std::to_string(kValueBytes) + " to " +
                   std::to_string(left - kRecordHeaderBytes) + " can be";
        }
        if (NameOf(kParameters, id).empty()) {
            return place + "unknown parameter " + std::to_string(id);
        }
        at += kRecordHeaderBytes + length;
    }
    return std::nullopt;
}

// --- reading ------------------------------------------------------------------------------------

using Words = std::vector<std::string_view>;

// An equals sign is a word of its own, with or without blanks around it; # starts a comment.
Words SplitLine(std::string_view line) {
    Words words;
    line = line.substr(0, line.find('#'));
    while (true) {
        const size_t begin = line.find_first_not_of(" \t\r");
        if (begin == std::string_view::npos) return words;
        line.remove_prefix(begin);
        const size_t end =
                line.front() == '=' ? 1 : std::min(line.find_first_of(" \t\r="), line.size());
        words.push_back(line.substr(0, end));
        line.remove_prefix(end);
    }
}

class TextReader {
  public:
    // Takes one line in. The error says what is wrong with it.
    host::Result<void> Take(const Words& words) {
        if (words.empty()) return {};
        const std::string_view keyword = words.front();
        const auto arguments = std::span(words).subspan(1);
        if (keyword == "mode") return TakeMode(arguments);
        if (keyword == "type") return TakeType(arguments);
        if (keyword == "block") return TakeBlock(arguments);
        if (keyword == "param") return TakeParameter(arguments);
        if (keyword == "bytes") return TakeBytes(arguments);
        return host::Error("unknown keyword " + std::string(keyword));
    }

    TuningFile file;

  private:
    using Arguments = std::span<const std::string_view>;

    // A number, its name, or both in this order.
    static std::optional<uint32_t> Resolve(Arguments words, std::span<const NamedNumber> known) {
        if (words.empty() || words.size() > 2) return std::nullopt;
        const auto named = NumberOf(known, words.back());
        if (words.size() == 1 && named) return named;
        const auto number = ParseU32(words.front());
        if (words.size() == 2 && named != number) return std::nullopt;
        return number;
    }

    host::Result<void> TakeMode(Arguments words) {
        const auto number = Resolve(words, kModes);
        if (!number) return host::Error("a mode needs its number, its name, or both");
        const auto [entry, added] = file.modes.try_emplace(*number);
        if (!added) return host::Error("mode " + std::to_string(*number) + " was there before");
        mode_ = &entry->second;
        blocks_ = nullptr;
        block_ = nullptr;
        return {};
    }

    host::Result<void> TakeType(Arguments words) {
        if (mode_ == nullptr) return host::Error("a type belongs below a mode");
        const auto number = Resolve(words, kTypes);
        if (!number) return host::Error("a type needs its number, its name, or both");
        const auto [entry, added] = mode_->try_emplace(*number);
        if (!added) return host::Error("type " + std::to_string(*number) + " was there before");
        blocks_ = &entry->second;
        block_ = nullptr;
        return {};
    }

    host::Result<void> TakeBlock(Arguments words) {
        if (blocks_ == nullptr) return host::Error("a block belongs below a type");
        const auto id = Resolve(words, {});
        if (!id) return host::Error("a block needs its id");
        block_ = &blocks_->emplace_back(TuningFileBlock{.id = *id, .data = {}});
        return {};
    }

    host::Result<void> TakeParameter(Arguments words) {
        if (block_ == nullptr) return host::Error("a param belongs below a block");
        if (words.size() < 3 || words[words.size() - 2] != "=") {
            return host::Error("a param is written: param 297 chre-gain = -3");
        }
        const auto named = words.first(words.size() - 2);
        const auto id = Resolve(named, kParameters);
        if (!id && named.size() == 2) {
            return host::Error(std::string(named[0]) + " and " + std::string(named[1]) +
                               " are not the same parameter");
        }
        if (!id) return host::Error("a param needs its id, its name, or both");
        const auto value = ParseValue(words.back());
        if (!value) return host::Error("not a 32-bit value: " + std::string(words.back()));
        AppendU32(&block_->data, *id);
        AppendU32(&block_->data, kValueBytes);
        AppendU32(&block_->data, *value);
        return {};
    }

    host::Result<void> TakeBytes(Arguments words) {
        if (block_ == nullptr) return host::Error("bytes belong below a block");
        for (const std::string_view word : words) {
            const auto byte = ParseNumber<uint8_t>(word, 16);
            if (word.size() != 2 || !byte)
                return host::Error("not two hexadecimal digits: " + std::string(word));
            block_->data.push_back(*byte);
        }
        return {};
    }

    TuningFileMode* mode_ = nullptr;
    std::vector<TuningFileBlock>* blocks_ = nullptr;
    TuningFileBlock* block_ = nullptr;
};

}  // namespace

std::string_view TuningParameterName(uint32_t id) {
    return NameOf(kParameters, id);
}

std::optional<uint32_t> TuningParameterId(std::string_view name) {
    return NumberOf(kParameters, name);
}

std::vector<std::string> SoundTriggerProblems(const TuningFile& file) {
    std::vector<std::string> problems;
    for (const auto& [mode, types] : file.modes) {
        const auto blocks = types.find(TypeNumber(TamberloConfigParser::Type::kSoundTrigger));
        if (blocks == types.end()) continue;
        int number = 0;
        for (const TuningFileBlock& block : blocks->second) {
            ++number;
            const auto problem = FirstProblem(block.data);
            if (!problem) continue;
            problems.push_back("mode " + std::to_string(mode) + ", sound trigger block " +
                               std::to_string(number) + " (id " + std::to_string(block.id) + "), " +
                               *problem);
        }
    }
    return problems;
}

std::string TuningFileToText(const TuningFile& file) {
    std::string text;
    for (const auto& [mode, types] : file.modes) {
        PrintHeading("", "mode", mode, NameOf(kModes, mode), &text);
        text += "\n";
        for (const auto& [type, blocks] : types) {
            PrintHeading("  ", "type", type, NameOf(kTypes, type), &text);
            text += "\n";
            for (const TuningFileBlock& block : blocks) {
                PrintHeading("    ", "block", block.id, {}, &text);
                text += "\n";
                // The other types' blocks have forms of their own.
                if (type == TypeNumber(TamberloConfigParser::Type::kSoundTrigger)) {
                    PrintParameters(block.data, &text);
                } else {
                    PrintBytes(block.data, &text);
                }
            }
        }
    }
    return text;
}

host::Result<TuningFile, TuningTextError> TuningFileFromText(std::string_view text) {
    TextReader reader;
    for (int line = 1; !text.empty(); ++line) {
        const size_t end = std::min(text.find('\n'), text.size());
        if (auto taken = reader.Take(SplitLine(text.substr(0, end))); !taken.ok()) {
            return ::android::base::unexpected(TuningTextError{line, std::move(taken.error())});
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return std::move(reader.file);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo
