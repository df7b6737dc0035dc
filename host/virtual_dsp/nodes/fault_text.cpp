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

host::Error Expected(const std::string& what, std::string_view found) {
    return host::Error("expected " + what + ", found " + std::string(found));
}

// Reads one line.
class LineParser {
  public:
    explicit LineParser(std::string_view line) {
        std::istringstream stream{std::string(line.substr(0, line.find('#')))};
        for (std::string word; stream >> word;) words_.push_back(word);
    }

    bool IsEmpty() const { return words_.empty(); }
    bool IsSeed() const { return !IsEmpty() && words_[0] == "seed"; }

    host::Result<uint64_t> Seed() {
        const auto number = words_.size() == 2 ? ToNumber<uint64_t>(words_[1]) : std::nullopt;
        if (!number) return Expected("one number after 'seed'", words_.back());
        return *number;
    }

    host::Result<FaultRule> Rule() {
        if (IsEmpty()) return Expected("'on'", "the end of the line");
        if (words_[0] != "on") return Expected("'on' or 'seed'", words_[0]);
        FaultRule rule;
        if (auto target = Target(rule); !target.ok()) return host::Error(target.error());
        for (size_t i = 3; i < words_.size(); ++i) {
            if (auto set = Setting(words_[i], rule); !set.ok()) return host::Error(set.error());
        }
        if (!has_effect_) return Expected("an effect: " + EffectList(), "the end of the line");
        if (auto fits = FitsTogether(rule); !fits.ok()) return host::Error(fits.error());
        return rule;
    }

  private:
    using Step = host::Result<void>;

    static std::string EffectList() {
        return "errno=NAME, short=BYTES, torn=BYTES, delay=MS, hang or ready";
    }

    Step Target(FaultRule& rule) {
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
        if (!found) return Expected("a node (" + choices + ")", node);
        for (const auto& [entry, name] : kOperations) {
            if (operation != name) continue;
            rule.operation = entry;
            return {};
        }
        return Expected("open, read, write, poll or reply", operation);
    }

    Step Setting(const std::string& word, FaultRule& rule) {
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
        return Expected("id=, after=, times=, chance=, at= or an effect (" + EffectList() + ")",
                        word);
    }

    template <typename T>
    Step Number(const std::string& word, const std::string& value, T& out,
                int64_t least = std::numeric_limits<T>::min()) {
        const auto number = ToNumber<T>(value);
        if (!number || static_cast<int64_t>(*number) < least) {
            return Expected("a number in range after '='", word);
        }
        out = *number;
        return {};
    }

    Step Chance(const std::string& word, const std::string& value, double& out) {
        const auto number = ToNumber<double>(value);
        if (!number || !(*number >= 0.0 && *number <= 1.0)) {
            return Expected("a probability from 0 to 1", word);
        }
        out = *number;
        return {};
    }

    Step Effect(Kind kind, const std::string& word, const std::string& value, FaultEffect& effect) {
        if (has_effect_) return Expected("one effect only", word);
        has_effect_ = true;
        effect.kind = kind;
        switch (kind) {
            case Kind::kErrno: {
                const auto number = ErrnoOf(value);
                if (!number) return Expected("the name of an error, such as EIO", word);
                // To the kernel this one means "never ask for this operation again".
                if (*number == ENOSYS) return Expected("an error other than ENOSYS", word);
                effect.value = *number;
                return {};
            }
            case Kind::kShort:
                return Number(word, value, effect.value);
            case Kind::kTorn:
            case Kind::kDelay:
                return Number(word, value, effect.value, 0);
            case Kind::kHang:
            case Kind::kReady:
                if (!value.empty()) {
                    return Expected("no value after '" + std::string(word) + "'", word);
                }
                return {};
        }
        return {};
    }

    // What can be written down but cannot happen.
    Step FitsTogether(const FaultRule& rule) {
        const Kind kind = rule.effect.kind;
        const bool is_poll = rule.operation == FaultOperation::kPoll;
        const bool changes_bytes = kind == Kind::kShort || kind == Kind::kTorn;
        const bool is_command = rule.node == NodeId::kCommand;
        if (rule.operation == FaultOperation::kReply && !is_command) {
            return Expected("'reply' with the node 'command' only", InfoOf(rule.node).name);
        }
        if (rule.command_id && (!is_command || rule.operation == FaultOperation::kOpen)) {
            return Expected("'id=' with the node 'command', after its open, only",
                            InfoOf(rule.node).name);
        }
        if (kind == Kind::kReady && !is_poll) {
            return Expected("'ready' with 'poll' only", NameOf(kOperations, rule.operation));
        }
        if (changes_bytes && (is_poll || rule.operation == FaultOperation::kOpen)) {
            return Expected("'short' and 'torn' with read, write and reply only",
                            NameOf(kOperations, rule.operation));
        }
        if (rule.effect.at && kind != Kind::kTorn) {
            return Expected("'at=' with 'torn' only", NameOf(kEffects, kind));
        }
        return {};
    }

    std::vector<std::string> words_;
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

host::Result<FaultRule> ParseFault(std::string_view line) {
    return LineParser(line).Rule();
}

host::Result<FaultScript> ParseFaults(std::string_view text) {
    FaultScript script;
    int number = 1;
    const auto at_line = [&number](const std::string& error) {
        return host::Error("line " + std::to_string(number) + ": " + error);
    };
    for (size_t begin = 0; begin <= text.size(); ++number) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        LineParser line(text.substr(begin, end - begin));
        begin = end + 1;
        if (line.IsSeed()) {
            const auto seed = line.Seed();
            if (!seed.ok()) return at_line(seed.error());
            script.seed = *seed;
        } else if (!line.IsEmpty()) {
            const auto rule = line.Rule();
            if (!rule.ok()) return at_line(rule.error());
            script.rules.push_back(*rule);
        }
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

std::vector<std::string> NextFaultWords(size_t words) {
    std::vector<std::string> next;
    if (words == 0) {
        for (const NodeInfo& info : kNodes) next.emplace_back(info.name);
        return next;
    }
    if (words == 1) {
        for (const auto& [operation, name] : kOperations) next.emplace_back(name);
        return next;
    }
    next = {"id=", "after=", "times=", "chance=", "at="};
    for (const auto& [kind, name] : kEffects) {
        const bool has_value = kind != Kind::kHang && kind != Kind::kReady;
        next.push_back(name + std::string(has_value ? "=" : ""));
    }
    return next;
}

std::optional<int> ErrnoOf(std::string_view name) {
    constexpr int kHighestErrno = 133;
    for (int number = 1; number <= kHighestErrno; ++number) {
        const char* known = strerrorname_np(number);
        if (known != nullptr && name == known) return number;
    }
    return std::nullopt;
}

}  // namespace virtual_dsp
