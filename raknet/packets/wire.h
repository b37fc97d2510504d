#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/byte_buffer.h"
#include "foundation/socket_address.h"

// The small wire primitives that all packets of the transport share. Integers
// are big-endian apart from the 24-bit numbers of the online frames.
namespace ferrylink::raknet {

// A signed 16-bit length, then that many bytes as UTF-8 (invalid sequences
// repaired). Nothing when the length is negative or runs past the end.
std::optional<std::string> readString(foundation::ByteBuffer& buffer);
// A 16-bit UTF-8 byte count, then the bytes; more than 32767 bytes is a fatal fault.
void writeString(foundation::ByteBuffer& buffer, std::string_view text);

// One address: version 4 (7 bytes, address bytes complemented), version 6
// (29 bytes), anything else (or nothing left at all) gives 0.0.0.0:19132.
// Nothing when a version 4 or 6 address is cut short.
std::optional<foundation::SocketAddress> readAddress(foundation::ByteBuffer& buffer);
// Either family; a local-domain address writes nothing.
void writeAddress(foundation::ByteBuffer& buffer, const foundation::SocketAddress& address);
// The IPv4 form from a dotted text; a piece that isn't a number is a fatal fault.
void writeIPv4(foundation::ByteBuffer& buffer, std::string_view text, uint16_t port);

// Three bytes, little-endian; nothing on short input.
std::optional<uint32_t> readU24(foundation::ByteBuffer& buffer);
void writeU24(foundation::ByteBuffer& buffer, uint32_t value);

}  // namespace ferrylink::raknet
