#pragma once

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/common/result.h"

// The form of a verb's arguments, which parsing, error texts, completion and help are all made of.
namespace sthal {

// A kind of value, named in capitals in a form.
struct ValueKind {
    const char* name;
    const char* description;           // "a time such as 2.5s": for error texts.
    std::vector<std::string> choices;  // The only values, if there are any here.
    // Whether a text is one; every text but an empty one is, if there is none.
    std::function<bool(std::string_view)> fits{};
    std::function<std::string(std::string_view)> explain{};  // "expected ...": what does not fit.
    // Of a value that takes the rest of the line: its words that may follow the given ones.
    std::function<std::vector<std::string>(std::span<const std::string>)> next_words{};
};

/**
 * What a command line gave for a form. A value has the name of the word before it, or of its kind
 * if there is none: "io", "MODEL". A word that was chosen or is a flag is there, and empty.
 */
class Values {
  public:
    bool Has(std::string_view name) const { return values_.contains(name); }
    std::string Get(std::string_view name, const std::string& otherwise = {}) const;
    double Number(std::string_view name, double otherwise = 0) const;
    // Of a TIME.
    double Seconds(std::string_view name, double otherwise = 0) const;
    void Set(std::string_view name, std::string value);

  private:
    std::map<std::string, std::string, std::less<>> values_;
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
 * must come in its place, what begins with a word of its own may come in any order at the end. A
 * word that is no choice belongs to the value after it, also without brackets.
 */
class Form {
  public:
    explicit Form(std::string_view text);

    // The values of a complete line, or "expected ..., found ...".
    host::Result<Values> Match(std::span<const std::string> words) const;
    // What may follow the given words; nothing when these are wrong.
    NextWords Next(std::span<const std::string> words) const;

  private:
    struct Item {
        std::vector<std::string> literals;  // One of them; with a kind, the word before the value.
        const ValueKind* kind = nullptr;
        bool is_optional = false;
        bool takes_rest = false;
    };
    // The way through the form, as far as the words go.
    struct Walk {
        std::span<const std::string> words;   // Those that are left.
        std::span<const std::string> rest{};  // Those that a kind has taken to the line's end.
        const ValueKind* rest_kind = nullptr;
        Values values{};
        NextWords next{};
        std::string error{};  // Of a wrong word; an unfinished line is none.
        bool is_complete = false;
    };

    Walk Follow(std::span<const std::string> words) const;
    static bool FollowItem(const Item& item, Walk& walk);
    static bool FollowValue(const Item& item, std::string_view name, Walk& walk);
    bool FollowOptions(Walk& walk) const;
    bool IsOption(std::string_view word) const;

    std::vector<Item> places_;   // In order.
    std::vector<Item> options_;  // In any order.
};

// The letters of a scenario's values' names.
inline constexpr std::string_view kNameLetters = "abcdefghijklmnopqrstuvwxyz_";
// The names and texts of a scenario's values.
using NamedTexts = std::map<std::string, std::string, std::less<>>;

/**
 * The words of a line: separated by blanks; '...' and "..." (with \" and \\) hold blanks; `#` at
 * the beginning of a word begins a comment.
 *
 * @param texts What `$NAME` stands for, also within quotes: a part of one word, whatever it holds.
 *              Where there are none, `$` stands for itself.
 * @return The words, or what is wrong.
 */
host::Result<std::vector<std::string>> SplitWords(std::string_view line,
                                                  const NamedTexts& texts = {});

// The line that SplitWords() makes these words of.
std::string JoinWords(std::span<const std::string> words);

// The name, of those in small letters, that was probably meant: the one with the fewest changes, if
// they are few.
std::optional<std::string> NearestMatch(std::string_view typed, std::span<const std::string> names);
// "; did you mean 'NAME'?", if one was.
std::string DidYouMean(std::string_view typed, std::span<const std::string> names);
// What is said of a name that no value has.
std::string UnknownValue(const std::string& found, const NamedTexts& texts);

// "2.5s", "2.5", "300ms" in seconds.
std::optional<double> ParseSeconds(std::string_view text);
// "200", "64K", "16M" in bytes.
std::optional<size_t> ParseBytes(std::string_view text);
// "-22", "-EINVAL", "0".
std::optional<int> ParseStatus(std::string_view text);

}  // namespace sthal
