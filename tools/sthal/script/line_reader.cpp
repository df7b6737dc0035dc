#include "tools/sthal/script/line_reader.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace sthal {

std::optional<std::string> LineReader::Next() {
    // A signal that comes just before the wait would otherwise go unseen until the next one.
    constexpr int kLookAgainMs = 200;
    bool is_at_end = false;
    while (!is_stopped_()) {
        const size_t end = unread_.find('\n');
        if (end != std::string::npos || is_at_end) {
            if (unread_.empty()) return std::nullopt;
            std::string line = unread_.substr(0, end);
            unread_.erase(0, end == std::string::npos ? end : end + 1);
            return line;
        }
        pollfd input{.fd = fd_, .events = POLLIN, .revents = 0};
        if (poll(&input, 1, kLookAgainMs) <= 0) continue;
        char bytes[4096];
        const ssize_t count = read(fd_, bytes, sizeof(bytes));
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (count > 0) unread_.append(bytes, static_cast<size_t>(count));
        is_at_end = count <= 0;
    }
    return std::nullopt;
}

}  // namespace sthal
