#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// The bare counterparts: the system calls that the job needs, on the same nodes, and nothing else.
// All of them end the process when a call fails: a figure of a failed call is worse than none.
namespace bench {

// One exchange on the command node: open, write, poll, read, close.
void BareCommand(uint16_t id);
void BareValueCommand(uint16_t id, uint32_t value);
void BareApProcessCommand(bool enable);

// A model through the model-data node: open, then a write and a write-model command per 16 KiB,
// close; then the load command.
void BareLoad(std::span<const uint8_t> model, uint16_t write_id, uint16_t load_id);

// Audio: open, poll and read until all is there, close.
void BareRead(const char* node, std::span<char> buffer);

}  // namespace bench
