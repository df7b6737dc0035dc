#include <android/host/parcelable.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace ndk::host {

namespace {

std::string_view Trim(std::string_view text) {
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

}  // namespace

std::string_view TakeEntry(std::string_view* list) {
    const size_t comma = std::min(list->find(','), list->size());
    const std::string_view entry = list->substr(0, comma);
    list->remove_prefix(std::min(comma + 1, list->size()));
    return Trim(entry);
}

std::string EnumeratorName(std::string_view enumerators, int64_t value) {
    while (!enumerators.empty()) {
        const std::string_view entry = TakeEntry(&enumerators);
        const size_t equals = entry.find('=');
        if (equals == std::string_view::npos) continue;
        const std::string_view digits = Trim(entry.substr(equals + 1));
        int64_t number = 0;
        const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        if (parsed.ec == std::errc() && number == value) {
            return std::string(Trim(entry.substr(0, equals)));
        }
    }
    return std::to_string(value);
}

void AbortOnWrongTag() {
    std::fputs("bad access: the union holds a value of another tag\n", stderr);
    std::abort();
}

}  // namespace ndk::host
