#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "foundation/byte_buffer.h"
#include "foundation/expected.h"

namespace ferrylink::bridge {

// The client's complaint about a packet it could not read.
struct PacketViolationWarningPacket {
    static constexpr uint8_t networkId = 156;

    enum class PacketViolationType : int64_t {
        UNKNOWN = 0,
        MALFORMED_PACKET = 1,
    };
    enum class PacketViolationSeverity : int64_t {
        UNKNOWN = 0,
        WARNING = 1,
        FINAL_WARNING = 2,
        TERMINATING_CONNECTION = 3,
    };

    PacketViolationType type = PacketViolationType::UNKNOWN;
    PacketViolationSeverity severity = PacketViolationSeverity::UNKNOWN;
    int32_t id = 0;
    std::string content;

    // The type is read one below its case (-1 is UNKNOWN), the severity as it
    // stands; a value outside either list, or bytes cut short, fail.
    static foundation::Expected<PacketViolationWarningPacket> decode(foundation::ByteBuffer& body);
};

std::string_view caseName(PacketViolationWarningPacket::PacketViolationType type);
std::string_view caseName(PacketViolationWarningPacket::PacketViolationSeverity severity);

}  // namespace ferrylink::bridge
