#include "benchmarks/bare.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "audio/hal/aidl/soundtrigger/zyl/zyl_wire.h"

namespace bench {

namespace {

namespace wire = ::vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl;

void Require(bool ok, const char* what) {
    if (ok) return;
    (void)std::fprintf(stderr, "bench: bare %s failed: %s\n", what, strerror(errno));
    std::exit(1);
}

template <typename Payload>
void Exchange(Payload& command) {
    const int fd = open(wire::kCommandDevice, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    Require(fd >= 0, "open");
    Require(write(fd, &command, sizeof(command)) == sizeof(command), "write");
    pollfd wait{.fd = fd, .events = POLLIN, .revents = 0};
    Require(poll(&wait, 1, 200) == 1, "poll");
    Require(read(fd, &command, sizeof(command)) == sizeof(command), "read");
    (void)close(fd);
}

template <typename Payload>
Payload Make(uint16_t id) {
    Payload command{};
    command.header.size = sizeof(Payload);
    command.header.id = id;
    return command;
}

}  // namespace

void BareCommand(uint16_t id) {
    wire::CommandHeader command{};
    command.size = sizeof(command);
    command.id = id;
    Exchange(command);
}

void BareValueCommand(uint16_t id, uint32_t value) {
    auto command = Make<wire::ValuePayload>(id);
    command.value = value;
    Exchange(command);
}

void BareApProcessCommand(bool enable) {
    auto command = Make<wire::ApProcessPayload>(wire::CMD_AUDIO_INPUT_SET_AP_PROCESS_WITH_DOCK);
    command.enabled = enable ? 1 : 0;
    Exchange(command);
}

void BareLoad(std::span<const uint8_t> model, uint16_t write_id, uint16_t load_id) {
    const int fd = open(wire::kModelDataDevice, O_WRONLY | O_CLOEXEC);
    Require(fd >= 0, "open");
    for (size_t offset = 0; offset < model.size(); offset += wire::kModelChunkBytes) {
        const size_t chunk = std::min<size_t>(model.size() - offset, wire::kModelChunkBytes);
        Require(write(fd, model.data() + offset, chunk) == static_cast<ssize_t>(chunk), "write");
        auto command = Make<wire::WriteModelPayload>(write_id);
        command.offset = static_cast<uint32_t>(offset);
        Exchange(command);
    }
    (void)close(fd);
    BareCommand(load_id);
}

void BareRead(const char* node, std::span<char> buffer) {
    const int fd = open(node, O_RDONLY | O_CLOEXEC);
    Require(fd >= 0, "open");
    for (size_t got = 0; got < buffer.size();) {
        pollfd wait{.fd = fd, .events = POLLIN, .revents = 0};
        Require(poll(&wait, 1, 1000) == 1, "poll");
        const ssize_t count = read(fd, buffer.data() + got, buffer.size() - got);
        Require(count > 0, "read");
        got += static_cast<size_t>(count);
    }
    (void)close(fd);
}

}  // namespace bench
