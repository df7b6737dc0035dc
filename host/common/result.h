#pragma once

#include <android-base/expected.h>

#include <string>

// How functions of the host side and of the tools report an error.
namespace host {

/**
 * A value, or a sentence for the person at the terminal: what is wrong and what can be done.
 *
 *     host::Result<Sound> ReadWav(const std::string& path);
 *     const auto sound = ReadWav(path);
 *     if (!sound.ok()) return host::Error(sound.error());
 *
 * The compiler warns of one that nobody looks at: NODISCARD_EXPECTED is defined for all who use
 * android_base. `Result<void>` for what has no value. An error with fields of its own, such as a
 * line number, is the second parameter.
 */
template <typename T, typename E = std::string>
using Result = ::android::base::expected<T, E>;

using Error = ::android::base::unexpected<std::string>;

}  // namespace host
