#include "bridge/packets/packet_violation_warning_packet.h"

#include "foundation/codecs.h"
#include "foundation/fatal.h"

namespace ferrylink::bridge {

using Type = PacketViolationWarningPacket::PacketViolationType;
using Severity = PacketViolationWarningPacket::PacketViolationSeverity;

foundation::Expected<PacketViolationWarningPacket> PacketViolationWarningPacket::decode(foundation::ByteBuffer& body) {
    auto type = foundation::readSignedVarInt(body);
    auto severity = foundation::readSignedVarInt(body);
    auto id = foundation::readSignedVarInt(body);
    auto content = foundation::readVarString(body);
    if (!type || !severity || !id || !content) {
        return foundation::unexpected("packet violation warning cut short");
    }
    // The type is one below its case, the severity as it stands.
    int64_t typeIndex = int64_t{*type} + 1;
    int64_t severityIndex = *severity;
    if (typeIndex < 0 || typeIndex > static_cast<int64_t>(Type::MALFORMED_PACKET) || severityIndex < 0 ||
        severityIndex > static_cast<int64_t>(Severity::TERMINATING_CONNECTION)) {
        return foundation::unexpected("packet violation warning of an unknown kind");
    }
    return PacketViolationWarningPacket{static_cast<Type>(typeIndex), static_cast<Severity>(severityIndex), *id,
                                        std::move(*content)};
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
