#pragma once

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/audio/sound.h"

// The form of a verb's arguments, which parsing, error texts, completion and help are all made of.
namespace sthal {

// A kind of value, named in capitals in a form.
struct ValueKind {
    const char* name;
    const char* description;           // "a time such as 2.5s": for error texts.
    std::vector<std::string> choices;  // The only values, if there are any here.
    std::function<bool(std::string_view)>
            fits{};  // Every text but an empty one does, if there is none.
    std::function<std::string(std::string_view)> explain{};  // "expected ...": what does not fit.
};

// What a command line gave for a form.
struct Values {
    std::vector<std::string> words;  // Those that are always there, choices included, in order.
    std::map<std::string, std::string, std::less<>> options;  // Of a flag, an empty text.

    const std::string& operator[](size_t index) const { return words[index]; }
    bool Has(std::string_view option) const { return options.contains(option); }
    std::string Get(std::string_view option, const std::string& otherwise = {}) const;
    double Number(std::string_view option, double otherwise) const;
};

// What could come next in an unfinished line.
struct NextWords {
    std::vector<std::string> literals;
    std::vector<const ValueKind*> kinds;

    // "'wav', 'size' or a time such as 2.5s".
    std::string Describe() const;
};

/**
 * The form of a verb's arguments, in the way that help shows it:
 *
 *     keyphrase|generic NAME [wav FILE] [size BYTES] [quiet]
 *
 * Words in small letters stand for themselves, `|` between them for a choice; words in capitals are
 * values; `TEXT...` takes the rest of the line. Brackets hold what may be left out: a value alone
 * must come in its place, what begins with a word of its own may come in any order at the end.
 */
class Form {
  public:
    explicit Form(std::string_view text);

    // The values of a complete line, or "expected ..., found ...".
    audio::Result<Values> Match(std::span<const std::string> words) const;
    // What may follow the given words; nothing when these are wrong.
    NextWords Next(std::span<const std::string> words) const;

  private:
    struct Item {
        std::vector<std::string> literals;  // One of them; with a kind, the word before the value.
        const ValueKind* kind = nullptr;
        bool is_optional = false;
        bool takes_rest = false;
    };
    struct Walk {
        Values values;
        NextWords next;
        std::string error;  // Of a wrong word; an unfinished line is none.
        bool is_complete = false;
    };

    Walk Follow(std::span<const std::string> words) const;
    bool FollowValue(const Item& item, std::span<const std::string>& words, Walk& walk,
                     std::string* value) const;
    bool FollowOptions(std::span<const std::string> words, Walk& walk) const;
    bool IsOption(std::string_view word) const;

    std::vector<Item> places_;   // In order.
    std::vector<Item> options_;  // In any order.
};

/**
 * The words of a line: separated by blanks; '...' and "..." (with \" and \\) hold blanks; `#` at
 * the beginning of a word begins a comment.
 *
 * @return The words, or what is wrong.
 */
audio::Result<std::vector<std::string>> SplitWords(std::string_view line);

// The name, of those in small letters, that was probably meant: the one with the fewest changes, if
// they are few.
std::optional<std::string> NearestMatch(std::string_view typed, std::span<const std::string> names);

// "2.5s", "2.5", "300ms" in seconds.
std::optional<double> ParseSeconds(std::string_view text);
// "200", "64K", "16M" in bytes.
std::optional<size_t> ParseBytes(std::string_view text);
// "-22", "-EINVAL", "0".
std::optional<int> ParseStatus(std::string_view text);

}  // namespace sthal
