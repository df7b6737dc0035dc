#include "host/virtual_dsp/nodes/fault_text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <sstream>
#include <utility>
#include <vector>

namespace virtual_dsp {
namespace {

using Kind = FaultEffect::Kind;

constexpr std::array<std::pair<FaultOperation, const char*>, 5> kOperations = {{
        {FaultOperation::kOpen, "open"},
        {FaultOperation::kRead, "read"},
        {FaultOperation::kWrite, "write"},
        {FaultOperation::kPoll, "poll"},
        {FaultOperation::kReply, "reply"},
}};

constexpr std::array<std::pair<Kind, const char*>, 6> kEffects = {{
        {Kind::kErrno, "errno"},
        {Kind::kShort, "short"},
        {Kind::kTorn, "torn"},
        {Kind::kDelay, "delay"},
        {Kind::kHang, "hang"},
        {Kind::kReady, "ready"},
}};

template <typename Table, typename Key>
const char* NameOf(const Table& table, Key key) {
    for (const auto& [entry, name] : table) {
        if (entry == key) return name;
    }
    return "?";
}

template <typename Number>
std::optional<Number> ToNumber(std::string_view text) {
    Number number{};
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (problem != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::optional<int> ErrnoOf(std::string_view name) {
    constexpr int kHighestErrno = 133;
    for (int number = 1; number <= kHighestErrno; ++number) {
        const char* known = strerrorname_np(number);
        if (known != nullptr && name == known) return number;
    }
    return std::nullopt;
}

// Reads one line. Every step returns false after it has put into `expected` what it looked for.
class LineParser {
  public:
    explicit LineParser(std::string_view line) {
        std::istringstream stream{std::string(line.substr(0, line.find('#')))};
        for (std::string word; stream >> word;) words_.push_back(word);
    }

    bool IsEmpty() const { return words_.empty(); }
    const std::string& expected() const { return expected_; }

    bool ParseInto(FaultScript& script) {
        if (words_[0] == "seed") return Seed(script.seed);
        if (words_[0] != "on") return Expect("'on' or 'seed'", words_[0]);
        FaultRule rule;
        if (!Target(rule)) return false;
        for (size_t i = 3; i < words_.size(); ++i) {
            if (!Setting(words_[i], rule)) return false;
        }
        if (!has_effect_) return Expect("an effect: " + EffectList(), "the end of the line");
        if (!FitsTogether(rule)) return false;
        script.rules.push_back(rule);
        return true;
    }

  private:
    bool Expect(const std::string& what, std::string_view found) {
        expected_ = "expected " + what + ", found " + std::string(found);
        return false;
    }

    static std::string EffectList() {
        return "errno=NAME, short=BYTES, torn=BYTES, delay=MS, hang or ready";
    }

    bool Seed(uint64_t& seed) {
        const auto number = words_.size() == 2 ? ToNumber<uint64_t>(words_[1]) : std::nullopt;
        if (!number) return Expect("one number after 'seed'", words_.back());
        seed = *number;
        return true;
    }

    bool Target(FaultRule& rule) {
        const std::string node = words_.size() > 1 ? words_[1] : "the end of the line";
        const std::string operation = words_.size() > 2 ? words_[2] : "the end of the line";
        std::string choices;
        bool found = false;
        for (const NodeInfo& info : kNodes) {
            choices += (choices.empty() ? "" : ", ") + std::string(info.name);
            if (node != info.name) continue;
            rule.node = info.id;
            found = true;
        }
        if (!found) return Expect("a node (" + choices + ")", node);
        for (const auto& [entry, name] : kOperations) {
            if (operation != name) continue;
            rule.operation = entry;
            return true;
        }
        return Expect("open, read, write, poll or reply", operation);
    }

    bool Setting(const std::string& word, FaultRule& rule) {
        const size_t equals = word.find('=');
        const std::string key = word.substr(0, equals);
        const std::string value = equals == std::string::npos ? "" : word.substr(equals + 1);
        if (key == "id") return Number(word, value, rule.command_id.emplace());
        if (key == "after") return Number(word, value, rule.after);
        if (key == "times") return Number(word, value, rule.times.emplace());
        if (key == "chance") return Chance(word, value, rule.chance);
        if (key == "at") return Number(word, value, rule.effect.at.emplace(), 0);
        for (const auto& [kind, name] : kEffects) {
            if (key == name) return Effect(kind, word, value, rule.effect);
        }
        return Expect("id=, after=, times=, chance=, at= or an effect (" + EffectList() + ")",
                      word);
    }

    template <typename T>
    bool Number(const std::string& word, const std::string& value, T& out,
                int64_t least = std::numeric_limits<T>::min()) {
        const auto number = ToNumber<T>(value);
        if (!number || static_cast<int64_t>(*number) < least) {
            return Expect("a number in range after '='", word);
        }
        out = *number;
        return true;
    }

    bool Chance(const std::string& word, const std::string& value, double& out) {
        const auto number = ToNumber<double>(value);
        if (!number || !(*number >= 0.0 && *number <= 1.0)) {
            return Expect("a probability from 0 to 1", word);
        }
        out = *number;
        return true;
    }

    bool Effect(Kind kind, const std::string& word, const std::string& value, FaultEffect& effect) {
        if (has_effect_) return Expect("one effect only", word);
        has_effect_ = true;
        effect.kind = kind;
        switch (kind) {
            case Kind::kErrno: {
                const auto number = ErrnoOf(value);
                if (!number) return Expect("the name of an error, such as EIO", word);
                // To the kernel this one means "never ask for this operation again".
                if (*number == ENOSYS) return Expect("an error other than ENOSYS", word);
                effect.value = *number;
                return true;
            }
            case Kind::kShort:
                return Number(word, value, effect.value);
            case Kind::kTorn:
            case Kind::kDelay:
                return Number(word, value, effect.value, 0);
            case Kind::kHang:
            case Kind::kReady:
                return value.empty() || Expect("no value after '" + std::string(word) + "'", word);
        }
        return false;
    }

    // What can be written down but cannot happen.
    bool FitsTogether(const FaultRule& rule) {
        const Kind kind = rule.effect.kind;
        const bool is_poll = rule.operation == FaultOperation::kPoll;
        const bool changes_bytes = kind == Kind::kShort || kind == Kind::kTorn;
        const bool is_command = rule.node == NodeId::kCommand;
        if (rule.operation == FaultOperation::kReply && !is_command) {
            return Expect("'reply' with the node 'command' only", InfoOf(rule.node).name);
        }
        if (rule.command_id && (!is_command || rule.operation == FaultOperation::kOpen)) {
            return Expect("'id=' with the node 'command', after its open, only",
                          InfoOf(rule.node).name);
        }
        if (kind == Kind::kReady && !is_poll) {
            return Expect("'ready' with 'poll' only", NameOf(kOperations, rule.operation));
        }
        if (changes_bytes && (is_poll || rule.operation == FaultOperation::kOpen)) {
            return Expect("'short' and 'torn' with read, write and reply only",
                          NameOf(kOperations, rule.operation));
        }
        if (rule.effect.at && kind != Kind::kTorn) {
            return Expect("'at=' with 'torn' only", NameOf(kEffects, kind));
        }
        return true;
    }

    std::vector<std::string> words_;
    std::string expected_;
    bool has_effect_ = false;
};

std::string PrintEffect(const FaultEffect& effect) {
    std::string text = NameOf(kEffects, effect.kind);
    if (effect.kind == Kind::kHang || effect.kind == Kind::kReady) return text;
    if (effect.kind == Kind::kErrno) return text + "=" + strerrorname_np(effect.value);
    text += "=" + std::to_string(effect.value);
    if (effect.at) text += " at=" + std::to_string(*effect.at);
    return text;
}

}  // namespace

std::optional<FaultScript> ParseFaults(std::string_view text, std::string* error) {
    FaultScript script;
    int number = 1;
    for (size_t begin = 0; begin <= text.size(); ++number) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        LineParser line(text.substr(begin, end - begin));
        if (!line.IsEmpty() && !line.ParseInto(script)) {
            *error = "line " + std::to_string(number) + ": " + line.expected();
            return std::nullopt;
        }
        begin = end + 1;
    }
    return script;
}

std::string PrintFault(const FaultRule& rule) {
    std::string text =
            std::string("on ") + InfoOf(rule.node).name + " " + NameOf(kOperations, rule.operation);
    if (rule.command_id) text += " id=" + std::to_string(*rule.command_id);
    if (rule.after != 0) text += " after=" + std::to_string(rule.after);
    if (rule.times) text += " times=" + std::to_string(*rule.times);
    if (rule.chance != 1.0) {
        std::array<char, 32> digits{};
        // The shortest text that reads back as the same number.
        const auto end = std::to_chars(digits.begin(), digits.end(), rule.chance).ptr;
        text += " chance=" + std::string(digits.data(), end);
    }
    return text + " " + PrintEffect(rule.effect);
}

std::string PrintFaults(const FaultScript& script) {
    std::string text;
    if (script.seed != 0) text += "seed " + std::to_string(script.seed) + "\n";
    for (const FaultRule& rule : script.rules) text += PrintFault(rule) + "\n";
    return text;
}

}  // namespace virtual_dsp
