#include "raknet/packets/wire.h"

#include <arpa/inet.h>

#include <array>
#include <charconv>
#include <limits>

#include "foundation/codecs.h"
#include "foundation/fatal.h"

namespace ferrylink::raknet {

using foundation::ByteBuffer;
using foundation::SocketAddress;

namespace {

// Both unreadable address forms stand for this one.
SocketAddress unspecifiedAddress() {
    static constexpr std::array<uint8_t, 4> any{0, 0, 0, 0};
    return SocketAddress::fromBytes(AF_INET, any, 19132);
}

constexpr uint16_t IPV6_FAMILY_ON_WIRE = 10;
// What follows the version byte of an IPv6 address: family, port, flow
// information, address, scope.
constexpr uint32_t IPV6_ADDRESS_BYTES = 2 + 2 + 4 + 16 + 4;

}  // namespace

std::optional<std::string> readString(ByteBuffer& buffer) {
    auto length = buffer.readInteger<int16_t>();
    if (!length) {
        return std::nullopt;
    }
    // A negative length gives nothing here too.
    auto bytes = buffer.readBytes(*length);
    if (!bytes) {
        return std::nullopt;
    }
    return foundation::repairUtf8(std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size()));
}

void writeString(ByteBuffer& buffer, std::string_view text) {
    if (text.size() > static_cast<size_t>(std::numeric_limits<int16_t>::max())) {
        foundation::fatalFault("string too long for a 16-bit length");
    }
    buffer.writeInteger(static_cast<int16_t>(text.size()));
    buffer.writeBytes(text);
}

std::optional<SocketAddress> readAddress(ByteBuffer& buffer) {
    auto version = buffer.readInteger<int8_t>();
    if (!version) {
        return unspecifiedAddress();
    }
    if (*version == 6) {
        if (buffer.readableBytes() < IPV6_ADDRESS_BYTES) {
            return std::nullopt;
        }
        buffer.moveReaderIndexForwardBy(2);  // the family, a constant of the protocol
        auto port = buffer.readInteger<uint16_t>();
        buffer.moveReaderIndexForwardBy(4);  // flow information
        auto bytes = buffer.readBytes(16);
        buffer.moveReaderIndexForwardBy(4);  // scope
        return SocketAddress::fromBytes(AF_INET6, *bytes, *port);
    }
    if (*version == 4) {
        auto bytes = buffer.readBytes(4);
        auto port = buffer.readInteger<uint16_t>();
        if (!bytes || !port) {
            return std::nullopt;
        }
        for (auto& byte : *bytes) {
            byte = static_cast<uint8_t>(~byte);
        }
        return SocketAddress::fromBytes(AF_INET, *bytes, *port);
    }
    // Only the version byte has been consumed: whatever follows is read from
    // the wrong place by the caller, as peers of this system expect.
    return unspecifiedAddress();
}

void writeAddress(ByteBuffer& buffer, const SocketAddress& address) {
    switch (address.kind()) {
        case SocketAddress::Kind::v4:
            writeIPv4(buffer, *address.ipAddress(), static_cast<uint16_t>(*address.port()));
            return;
        case SocketAddress::Kind::v6:
            buffer.writeInteger<uint8_t>(6);
            buffer.writeInteger<uint16_t>(IPV6_FAMILY_ON_WIRE);
            buffer.writeInteger(static_cast<uint16_t>(*address.port()));
            buffer.writeInteger<uint32_t>(0);  // flow information
            buffer.writeBytes(address.addressBytes());
            buffer.writeInteger<uint32_t>(0);  // scope
            return;
        case SocketAddress::Kind::unixDomainSocket:
            return;
    }
}

void writeIPv4(ByteBuffer& buffer, std::string_view text, uint16_t port) {
    buffer.writeInteger<uint8_t>(4);
    while (!text.empty()) {
        size_t dot = text.find('.');
        std::string_view piece = text.substr(0, dot);
        text = dot == std::string_view::npos ? std::string_view() : text.substr(dot + 1);
        if (piece.empty()) {
            continue;
        }
        if (piece.front() == '+') {
            piece.remove_prefix(1);
        }
        int64_t value = 0;
        auto [end, error] = std::from_chars(piece.data(), piece.data() + piece.size(), value);
        if (error != std::errc() || end != piece.data() + piece.size()) {
            foundation::fatalFault("not a dotted IPv4 address");
        }
        buffer.writeInteger(static_cast<uint8_t>(~value));
    }
    buffer.writeInteger(port);
}

std::optional<uint32_t> readU24(ByteBuffer& buffer) {
    // Read in place: this runs for every datagram and frame that arrives.
    auto bytes = buffer.readableView();
    if (bytes.size() < 3) {
        return std::nullopt;
    }
    buffer.moveReaderIndexForwardBy(3);
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16;
}

void writeU24(ByteBuffer& buffer, uint32_t value) {
    const uint8_t bytes[3] = {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8),
                              static_cast<uint8_t>(value >> 16)};
    buffer.writeBytes(std::span<const uint8_t>(bytes, 3));
}

}  // namespace ferrylink::raknet
