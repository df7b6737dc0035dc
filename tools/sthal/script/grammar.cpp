#include "tools/sthal/script/grammar.h"

#include <android-base/strings.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <sstream>
#include <utility>

#include "tools/sthal/script/value_kinds.h"

namespace sthal {

namespace {

constexpr char kEndOfLine[] = "the end of the line";

std::vector<std::string> SplitAt(std::string_view text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream{std::string(text)};
    for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
    return parts;
}

bool Contains(const std::vector<std::string>& words, std::string_view word) {
    return std::ranges::find(words, word) != words.end();
}

bool IsKindName(std::string_view word) {
    return !word.empty() && word[0] >= 'A' && word[0] <= 'Z';
}

// "2.5" and "s" are one time.
bool IsUnit(std::string_view word) {
    return word == "s" || word == "ms";
}

bool Fits(const ValueKind& kind, std::string_view word) {
    if (!kind.choices.empty()) return Contains(kind.choices, word);
    return kind.fits ? kind.fits(word) : !word.empty();
}

std::string Expected(const NextWords& next, const std::string& found) {
    std::string text = "expected " + next.Describe() + ", found ";
    return text + (found == kEndOfLine ? found : "'" + found + "'");
}

// Changes that make one word of the other; a swap of neighbours counts once.
size_t Changes(std::string_view from, std::string_view to) {
    // rows[i][j]: from the first i characters to the first j.
    std::vector<std::vector<size_t>> rows(from.size() + 1, std::vector<size_t>(to.size() + 1));
    for (size_t i = 0; i <= from.size(); ++i) {
        for (size_t j = 0; j <= to.size(); ++j) {
            if (i == 0 || j == 0) {
                rows[i][j] = i + j;
                continue;
            }
            const size_t changed = from[i - 1] == to[j - 1] ? 0 : 1;
            rows[i][j] = std::min(
                    {rows[i - 1][j] + 1, rows[i][j - 1] + 1, rows[i - 1][j - 1] + changed});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
                rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
            }
        }
    }
    return rows[from.size()][to.size()];
}

bool IsBlank(char letter) {
    return letter == ' ' || letter == '\t' || letter == '\r';
}

}  // namespace

std::string Values::Get(std::string_view name, const std::string& otherwise) const {
    const auto found = values_.find(name);
    return found == values_.end() ? otherwise : found->second;
}

double Values::Number(std::string_view name, double otherwise) const {
    const auto found = values_.find(name);
    return found == values_.end() ? otherwise : std::strtod(found->second.c_str(), nullptr);
}

double Values::Seconds(std::string_view name, double otherwise) const {
    return ParseSeconds(Get(name)).value_or(otherwise);
}

void Values::Set(std::string_view name, std::string value) {
    values_.insert_or_assign(std::string(name), std::move(value));
}

std::string NextWords::Describe() const {
    std::vector<std::string> all;
    for (const std::string& literal : literals) all.push_back("'" + literal + "'");
    for (const ValueKind* kind : kinds) {
        const std::string choices = " (" + android::base::Join(kind->choices, ", ") + ")";
        all.push_back(kind->description + (kind->choices.empty() ? "" : choices));
    }
    if (all.empty()) return kEndOfLine;
    std::string text = all[0];
    for (size_t i = 1; i < all.size(); ++i) text += (i + 1 < all.size() ? ", " : " or ") + all[i];
    return text;
}

Form::Form(std::string_view text) {
    Item item;
    bool is_open = false;  // Within brackets.
    for (std::string word : SplitAt(text, ' ')) {
        if (word.starts_with('[')) {
            item.is_optional = is_open = true;
            word.erase(0, 1);
        }
        if (word.ends_with(']')) {
            is_open = false;
            word.pop_back();
        }
        item.takes_rest = word.ends_with("...");
        if (item.takes_rest) word.resize(word.size() - 3);
        if (IsKindName(word)) {
            item.kind = FindKind(word);
        } else {
            item.literals = SplitAt(word, '|');
        }
        const bool has_value = item.kind != nullptr;
        if (is_open || (!has_value && !item.is_optional && item.literals.size() == 1)) continue;
        const bool is_option = item.is_optional && !item.literals.empty();
        (is_option ? options_ : places_).push_back(std::exchange(item, {}));
    }
}

bool Form::IsOption(std::string_view word) const {
    return std::ranges::any_of(options_,
                               [word](const Item& item) { return Contains(item.literals, word); });
}

// Takes a value off the words. False, with the walk's error set, when it is none.
bool Form::FollowValue(const Item& item, std::string_view name, Walk& walk) {
    std::string value = walk.words[0];
    if (item.takes_rest) {
        walk.rest = walk.words;
        walk.rest_kind = item.kind;
        for (const std::string& word : walk.words.subspan(1)) value += " " + word;
    }
    if (!Fits(*item.kind, value)) {
        walk.error =
                item.kind->explain ? item.kind->explain(value) : Expected(walk.next, walk.words[0]);
        return false;
    }
    walk.words = walk.words.subspan(item.takes_rest ? walk.words.size() : 1);
    if (item.kind == FindKind("TIME") && !walk.words.empty() && IsUnit(walk.words[0])) {
        value += walk.words[0];
        walk.words = walk.words.subspan(1);
    }
    walk.values.Set(name, std::move(value));
    walk.next = {};
    return true;
}

// Takes an item off the words. False when it is not there, with the walk's error set if something
// else is.
bool Form::FollowItem(const Item& item, Walk& walk) {
    std::string_view name = item.kind == nullptr ? "" : item.kind->name;
    if (!item.literals.empty()) {
        if (walk.next.literals.empty()) walk.next.literals = item.literals;
        if (walk.words.empty()) return false;
        if (!Contains(item.literals, walk.words[0])) {
            walk.error = Expected(walk.next, walk.words[0]);
            return false;
        }
        name = walk.words[0];
        walk.words = walk.words.subspan(1);
        walk.values.Set(name, "");
        walk.next = {};
    }
    if (item.kind == nullptr) return true;
    walk.next.kinds.push_back(item.kind);
    return !walk.words.empty() && FollowValue(item, name, walk);
}

bool Form::FollowOptions(Walk& walk) const {
    while (true) {
        for (const Item& item : options_) {
            if (!walk.values.Has(item.literals[0])) {
                walk.next.literals.push_back(item.literals[0]);
            }
        }
        if (walk.words.empty()) return true;
        const auto item = std::ranges::find_if(options_, [&](const Item& option) {
            return option.literals[0] == walk.words[0] && !walk.values.Has(walk.words[0]);
        });
        if (item == options_.end()) {
            walk.error = Expected(walk.next, walk.words[0]);
            return false;
        }
        if (!FollowItem(*item, walk)) return false;
    }
}

Form::Walk Form::Follow(std::span<const std::string> words) const {
    Walk walk{.words = words};
    for (const Item& item : places_) {
        if (item.is_optional && walk.words.empty()) {
            walk.next.kinds.push_back(item.kind);
            continue;
        }
        if (item.is_optional && IsOption(walk.words[0])) continue;
        if (!FollowItem(item, walk)) return walk;
    }
    walk.is_complete = FollowOptions(walk);
    return walk;
}

host::Result<Values> Form::Match(std::span<const std::string> words) const {
    Walk walk = Follow(words);
    if (!walk.error.empty()) return host::Error(walk.error);
    if (!walk.is_complete) return host::Error(Expected(walk.next, kEndOfLine));
    return std::move(walk.values);
}

NextWords Form::Next(std::span<const std::string> words) const {
    Walk walk = Follow(words);
    if (walk.rest_kind == nullptr) return walk.error.empty() ? walk.next : NextWords{};
    if (!walk.rest_kind->next_words) return {};
    return {.literals = walk.rest_kind->next_words(walk.rest), .kinds = {}};
}

host::Result<std::vector<std::string>> SplitWords(std::string_view line, const NamedTexts& texts) {
    std::vector<std::string> words;
    char quote = 0;
    bool is_in_word = false;
    for (size_t at = 0; at < line.size(); ++at) {
        const char letter = line[at];
        const std::string_view after = line.substr(at + 1);
        if (quote == 0 && IsBlank(letter)) {
            is_in_word = false;
            continue;
        }
        if (!is_in_word && letter == '#') break;
        const size_t name_size =
                letter == '$' && !texts.empty()
                        ? std::min(after.find_first_not_of(kNameLetters), after.size())
                        : 0;
        if (!std::exchange(is_in_word, true)) words.emplace_back();
        std::string& word = words.back();
        if (quote == 0 ? letter == '"' || letter == '\'' : letter == quote) {
            quote = quote == 0 ? letter : 0;
        } else if (quote == '"' && letter == '\\' && after.find_first_of("\"\\") == 0) {
            word += line[++at];
        } else if (name_size != 0) {
            const std::string name(after.substr(0, name_size));
            const auto text = texts.find(name);
            if (text == texts.end()) return host::Error(UnknownValue("$" + name, texts));
            word += text->second;
            at += name_size;
        } else {
            word += letter;
        }
    }
    if (quote == 0) return words;
    return host::Error("expected a closing quote, found the end of the line");
}

std::string JoinWords(std::span<const std::string> words) {
    std::string line;
    for (const std::string& word : words) {
        if (!line.empty()) line += ' ';
        if (!word.empty() && word.find_first_of(" \t\r\"'#") == std::string::npos) {
            line += word;
            continue;
        }
        line += '"';
        for (const char letter : word) {
            if (letter == '"' || letter == '\\') line += '\\';
            line += letter;
        }
        line += '"';
    }
    return line;
}

std::optional<std::string> NearestMatch(std::string_view typed,
                                        std::span<const std::string> names) {
    std::string word(typed);
    std::ranges::transform(word, word.begin(), [](unsigned char c) { return std::tolower(c); });
    std::optional<std::string> nearest;
    size_t fewest = std::max<size_t>(1, word.size() / 3) + 1;
    for (const std::string& name : names) {
        const size_t changes = Changes(word, name);
        if (changes >= fewest) continue;
        fewest = changes;
        nearest = name;
    }
    return nearest;
}

std::string DidYouMean(std::string_view typed, std::span<const std::string> names) {
    const auto nearest = NearestMatch(typed, names);
    return nearest ? "; did you mean '" + *nearest + "'?" : "";
}

std::string UnknownValue(const std::string& found, const NamedTexts& texts) {
    std::vector<std::string> names;
    for (const auto& [name, ignored] : texts) names.push_back(name);
    std::string text = "expected the name of a value";
    if (!names.empty()) text += " (" + android::base::Join(names, ", ") + ")";
    return text + ", found '" + found + "'" +
           DidYouMean(found.substr(found[0] == '$' ? 1 : 0), names);
}

}  // namespace sthal
