// The read loop of a paired control connection: bytes to commands.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

namespace Veldrift {

// Reads exactly as many bytes as the buffer has; false if the connection ends before.
using ExactRead = std::function<bool(std::span<std::byte>)>;

// One command; the payload lives only during the call, and holds its length byte where the message
// has one. Without payload: an empty span.
using CommandHandler = std::function<void(uint8_t opcode, std::span<const std::byte> payload)>;

// Reads commands and hands them to `handler` (an empty one drops them) until the connection ends,
// a byte is no opcode, a payload is cut off, or `running` falls; what ended it is logged. Nothing
// is ever answered: a bad byte costs the phone its connection.
void RunControlReadLoop(const ExactRead& read, const CommandHandler& handler,
                        const std::atomic<bool>& running);

}  // namespace Veldrift
