#include "tools/sthal/output/markup.h"

#include <cstdint>
#include <cstdio>

namespace sthal {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// The bytes of the well-formed UTF-8 sequence that `text` begins with; 0 when there is none
// (Unicode 15, table 3-7).
size_t SequenceLength(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t first = byte(0);
    if (first < 0x80) return 1;
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
    uint8_t least = 0x80;
    uint8_t most = 0xBF;
    if (first == 0xE0) least = 0xA0;
    if (first == 0xED) most = 0x9F;
    if (first == 0xF0) least = 0x90;
    if (first == 0xF4) most = 0x8F;
    if (byte(1) < least || byte(1) > most) return 0;
    for (size_t i = 2; i < length; ++i) {
        if (byte(i) < 0x80 || byte(i) > 0xBF) return 0;
    }
    return length;
}

// `escape` returns what stands for an ASCII character, or nothing where that stands for itself.
template <typename Escape>
std::string Escaped(std::string_view text, Escape escape) {
    std::string safe;
    while (!text.empty()) {
        const size_t length = SequenceLength(text);
        if (length == 0) {
            safe += kReplacement;
        } else if (length == 1) {
            const std::string instead = escape(text.front());
            safe += instead.empty() ? std::string(1, text.front()) : instead;
        } else {
            safe += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return safe;
}

bool IsControl(char c) {
    return (c >= 0 && c < 0x20) || c == 0x7F;
}

}  // namespace

std::string JsonText(std::string_view text) {
    return '"' +
           Escaped(text,
                   [](char c) -> std::string {
                       if (c == '"') return "\\\"";
                       if (c == '\\') return "\\\\";
                       if (!IsControl(c)) return {};
                       char code[8];
                       (void)std::snprintf(code, sizeof(code), "\\u%04x", static_cast<unsigned>(c));
                       return code;
                   }) +
           '"';
}

std::string HtmlText(std::string_view text) {
    return Escaped(text, [](char c) -> std::string {
        switch (c) {
            case '&':
                return "&amp;";
            case '<':
                return "&lt;";
            case '>':
                return "&gt;";
            case '"':
                return "&quot;";
            case '\'':
                return "&#39;";
            default:
                return IsControl(c) && c != '\n' && c != '\t' ? std::string(kReplacement) : "";
        }
    });
}

}  // namespace sthal
