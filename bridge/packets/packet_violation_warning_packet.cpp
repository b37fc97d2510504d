#include "bridge/packets/packet_violation_warning_packet.h"

#include "foundation/codecs.h"
#include "foundation/fatal.h"

namespace ferrylink::bridge {

using Type = PacketViolationWarningPacket::PacketViolationType;
using Severity = PacketViolationWarningPacket::PacketViolationSeverity;

void PacketViolationWarningPacket::decode(foundation::ByteBuffer& buffer) {
    int64_t typeIndex = int64_t{foundation::forced(foundation::readSignedVarInt(buffer))} + 1;
    if (typeIndex < 0 || typeIndex > static_cast<int64_t>(Type::MALFORMED_PACKET)) {
        foundation::fatalFault();
    }
    type = static_cast<Type>(typeIndex);
    // No offset here, unlike the type.
    int64_t severityIndex = foundation::forced(foundation::readSignedVarInt(buffer));
    if (severityIndex < 0 || severityIndex > static_cast<int64_t>(Severity::TERMINATING_CONNECTION)) {
        foundation::fatalFault();
    }
    severity = static_cast<Severity>(severityIndex);
    id = foundation::forced(foundation::readSignedVarInt(buffer));
    content = foundation::forced(foundation::readVarString(buffer));
}

std::string_view caseName(Type type) {
    switch (type) {
        case Type::UNKNOWN:
            return "UNKNOWN";
        case Type::MALFORMED_PACKET:
            return "MALFORMED_PACKET";
    }
    foundation::fatalFault();
}

std::string_view caseName(Severity severity) {
    switch (severity) {
        case Severity::UNKNOWN:
            return "UNKNOWN";
        case Severity::WARNING:
            return "WARNING";
        case Severity::FINAL_WARNING:
            return "FINAL_WARNING";
        case Severity::TERMINATING_CONNECTION:
            return "TERMINATING_CONNECTION";
    }
    foundation::fatalFault();
}

}  // namespace ferrylink::bridge
