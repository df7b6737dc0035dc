#include "tools/sthal/script/grammar.h"

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

// What stands between quotes, which begin at `at`; false when they are not closed.
bool TakeQuoted(std::string_view line, size_t& at, std::string& word) {
    const char quote = line[at++];
    for (; at < line.size(); ++at) {
        if (line[at] == quote) {
            ++at;
            return true;
        }
        const bool is_escape = quote == '"' && line[at] == '\\' && at + 1 < line.size() &&
                               (line[at + 1] == '"' || line[at + 1] == '\\');
        word += line[is_escape ? ++at : at];
    }
    return false;
}

}  // namespace

std::string Values::Get(std::string_view option, const std::string& otherwise) const {
    const auto found = options.find(option);
    return found == options.end() ? otherwise : found->second;
}

double Values::Number(std::string_view option, double otherwise) const {
    const auto found = options.find(option);
    return found == options.end() ? otherwise : std::strtod(found->second.c_str(), nullptr);
}

std::string NextWords::Describe() const {
    std::vector<std::string> all;
    for (const std::string& literal : literals) all.push_back("'" + literal + "'");
    for (const ValueKind* kind : kinds) {
        std::string text = kind->description;
        for (const std::string& choice : kind->choices) {
            text += (&choice == &kind->choices.front() ? " (" : ", ") + choice;
        }
        all.push_back(kind->choices.empty() ? text : text + ")");
    }
    if (all.empty()) return kEndOfLine;
    std::string text = all[0];
    for (size_t i = 1; i < all.size(); ++i) text += (i + 1 < all.size() ? ", " : " or ") + all[i];
    return text;
}

Form::Form(std::string_view text) {
    const std::vector<std::string> words = SplitAt(text, ' ');
    for (size_t i = 0; i < words.size(); ++i) {
        std::string word = words[i];
        Item item;
        item.is_optional = word.starts_with('[');
        if (item.is_optional) word.erase(0, 1);
        bool is_open = item.is_optional;
        const auto close = [&] {
            if (word.ends_with(']')) {
                word.pop_back();
                is_open = false;
            }
            item.takes_rest = word.ends_with("...");
            if (item.takes_rest) word.resize(word.size() - 3);
        };
        close();
        if (IsKindName(word)) {
            item.kind = FindKind(word);
        } else {
            item.literals = SplitAt(word, '|');
        }
        if (is_open) {
            word = words[++i];
            close();
            item.kind = FindKind(word);
        }
        const bool is_option = item.is_optional && !item.literals.empty();
        (is_option ? options_ : places_).push_back(std::move(item));
    }
}

bool Form::IsOption(std::string_view word) const {
    return std::ranges::any_of(options_,
                               [word](const Item& item) { return Contains(item.literals, word); });
}

// Takes one value off `words`. False, with the walk's error set, when the first one is none.
bool Form::FollowValue(const Item& item, std::span<const std::string>& words, Walk& walk,
                       std::string* value) const {
    *value = words[0];
    if (item.takes_rest) {
        for (const std::string& word : words.subspan(1)) *value += " " + word;
    }
    const bool is_literal = item.kind == nullptr;
    const bool fits = is_literal ? Contains(item.literals, *value) : Fits(*item.kind, *value);
    if (!fits) {
        walk.error = !is_literal && item.kind->explain ? item.kind->explain(*value)
                                                       : Expected(walk.next, words[0]);
        return false;
    }
    words = words.subspan(item.takes_rest ? words.size() : 1);
    if (!is_literal && item.kind == FindKind("TIME") && !words.empty() && IsUnit(words[0])) {
        *value += words[0];
        words = words.subspan(1);
    }
    return true;
}

bool Form::FollowOptions(std::span<const std::string> words, Walk& walk) const {
    while (true) {
        for (const Item& item : options_) {
            if (!walk.values.Has(item.literals[0])) {
                walk.next.literals.push_back(item.literals[0]);
            }
        }
        if (words.empty()) return true;
        const auto item = std::ranges::find_if(
                options_, [&](const Item& option) { return option.literals[0] == words[0]; });
        if (item == options_.end() || walk.values.Has(words[0])) {
            walk.error = Expected(walk.next, words[0]);
            return false;
        }
        std::string& value = walk.values.options[words[0]];
        words = words.subspan(1);
        walk.next = {};
        if (item->kind == nullptr) continue;
        walk.next.kinds.push_back(item->kind);
        if (words.empty()) return false;
        if (!FollowValue(*item, words, walk, &value)) return false;
        walk.next = {};
    }
}

Form::Walk Form::Follow(std::span<const std::string> words) const {
    Walk walk;
    for (const Item& item : places_) {
        if (item.kind != nullptr) {
            walk.next.kinds.push_back(item.kind);
        } else {
            walk.next.literals = item.literals;
        }
        if (words.empty()) {
            if (item.is_optional) continue;
            return walk;
        }
        if (item.is_optional && IsOption(words[0])) {
            walk.next = {};
            continue;
        }
        std::string value;
        if (!FollowValue(item, words, walk, &value)) return walk;
        if (item.is_optional) walk.values.options[item.kind->name] = value;
        if (!item.is_optional) walk.values.words.push_back(value);
        walk.next = {};
    }
    walk.is_complete = FollowOptions(words, walk);
    return walk;
}

audio::Result<Values> Form::Match(std::span<const std::string> words) const {
    using Matched = audio::Result<Values>;
    Walk walk = Follow(words);
    if (!walk.error.empty()) return Matched::Error(walk.error);
    if (!walk.is_complete) return Matched::Error(Expected(walk.next, kEndOfLine));
    return Matched::Of(std::move(walk.values));
}

NextWords Form::Next(std::span<const std::string> words) const {
    Walk walk = Follow(words);
    return walk.error.empty() ? walk.next : NextWords{};
}

audio::Result<std::vector<std::string>> SplitWords(std::string_view line) {
    using Split = audio::Result<std::vector<std::string>>;
    std::vector<std::string> words;
    for (size_t at = 0;;) {
        at = line.find_first_not_of(" \t\r", at);
        if (at == std::string_view::npos || line[at] == '#') return Split::Of(std::move(words));
        std::string& word = words.emplace_back();
        while (at < line.size() && std::string_view(" \t\r").find(line[at]) == line.npos) {
            if (line[at] != '"' && line[at] != '\'') {
                word += line[at++];
            } else if (!TakeQuoted(line, at, word)) {
                return Split::Error("expected a closing quote, found the end of the line");
            }
        }
    }
}

std::optional<std::string> NearestMatch(std::string_view typed,
                                        std::span<const std::string> names) {
    std::string word(typed);
    std::ranges::transform(word, word.begin(), [](unsigned char c) { return std::tolower(c); });
    std::optional<std::string> nearest;
    size_t fewest = std::max<size_t>(1, word.size() / 3) + 1;
    for (const std::string& name : names) {
        // Changes from the first i characters of `word` to the first j of `name`; `before` holds
        // the rows i - 1 and i - 2, for a swap of neighbours counts once.
        std::vector<std::vector<size_t>> rows(word.size() + 1,
                                              std::vector<size_t>(name.size() + 1));
        for (size_t i = 0; i <= word.size(); ++i) {
            for (size_t j = 0; j <= name.size(); ++j) {
                if (i == 0 || j == 0) {
                    rows[i][j] = i + j;
                    continue;
                }
                const size_t changed = word[i - 1] == name[j - 1] ? 0 : 1;
                rows[i][j] = std::min(
                        {rows[i - 1][j] + 1, rows[i][j - 1] + 1, rows[i - 1][j - 1] + changed});
                if (i > 1 && j > 1 && word[i - 1] == name[j - 2] && word[i - 2] == name[j - 1]) {
                    rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
                }
            }
        }
        const size_t changes = rows[word.size()][name.size()];
        if (changes >= fewest) continue;
        fewest = changes;
        nearest = name;
    }
    return nearest;
}

}  // namespace sthal
