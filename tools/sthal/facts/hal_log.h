#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// What only the HAL's own log tells. Its texts are fixed; the one table of them is in hal_log.cpp.
namespace sthal {

struct LogLine;

// A client's runtime state, as the HAL names it.
enum class ClientState {
    kModelUnloaded,
    kModelLoaded,
    kStartDetecting,
    kCallbackProcessing,
    kBuffering,
    kInternalForceDetected,
};
inline constexpr std::array kClientStates = {
        ClientState::kModelUnloaded,  ClientState::kModelLoaded,
        ClientState::kStartDetecting, ClientState::kCallbackProcessing,
        ClientState::kBuffering,      ClientState::kInternalForceDetected};
// "ModelUnloaded".
const char* Name(ClientState state);
std::optional<ClientState> ClientStateOf(std::string_view name);

struct ControlThreadStarted {};

struct SoundCardReported {
    bool online = false;
};

struct ClientChanged {
    int handle = 0;
    ClientState from = ClientState::kModelUnloaded;
    ClientState to = ClientState::kModelUnloaded;
};

// A client, the framework's or the HAL's own, is gone.
struct ClientRemoved {
    int handle = 0;
};

// The control thread read a detection record, or failed to.
struct RecordRead {};
struct RecordReadFailed {
    int status = 0;
};

// The control thread found the client that a record is for.
struct RecordClaimed {};

// The client's state allows no event.
struct EventRefused {
    ClientState state = ClientState::kModelUnloaded;
};

struct HalFact {
    int64_t ns = 0;
    int thread = 0;
    size_t line = 0;  // Of the log.
    std::variant<ControlThreadStarted, SoundCardReported, ClientChanged, ClientRemoved, RecordRead,
                 RecordReadFailed, RecordClaimed, EventRefused>
            what;

    // The fact's fields if it is of this kind, else null.
    template <typename Kind>
    const Kind* As() const {
        return std::get_if<Kind>(&what);
    }
};

// The fact that a line of the HAL's log states; none for a line that states nothing of these.
std::optional<HalFact> ReadHalLine(const LogLine& line);
// Those of a whole log, in its order.
std::vector<HalFact> ReadHalLog(std::span<const LogLine> log);

}  // namespace sthal
