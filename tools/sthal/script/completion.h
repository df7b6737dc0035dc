#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/sthal/script/session.h"

namespace sthal {

// What the word being typed may be completed to.
struct Completion {
    std::vector<std::string> words;  // Those that begin like it, in order.
    bool wants_file = false;         // It may also be the name of a file.
};

/**
 * @param before  The line up to the word being typed.
 * @param begin   What there is of the word.
 */
Completion Complete(std::string_view before, std::string_view begin, const Session& session);

}  // namespace sthal
