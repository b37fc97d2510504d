#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "bridge/compression_algorithm.h"
#include "bridge/packets/data_packet.h"
#include "foundation/expected.h"

namespace ferrylink::bridge {

// The 0xFE frame around game packets: a run of entries, each a packet behind
// its varint length, deflated as a whole when the client compresses, and
// from v649 on led by a byte that names the compression.
//
// Sending: addPacket each packet, write the id byte to the frame, encode.
// Receiving: skip the frame's first byte, decode the rest, getPackets. Bytes
// that make no sense fail with the reason, for the session to act on.
class BatchPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 0xFE;
    // What one batch may inflate to. The largest packet a client sends on its
    // way in is its login, whose skin and tokens come to a few hundred KiB;
    // anything past this is not a game client.
    static constexpr size_t inflateLimit = 4 * 1024 * 1024;

    // The buffer comes from the current server's channel (fatal without one).
    explicit BatchPacket(BatchFraming framing);

    // Kept for the wire model; nothing reads them.
    int compressionLevel = 0;
    bool allowBeforeLogin = true;
    // The entries of the batch, uncompressed.
    std::optional<foundation::ByteBuffer> buf;

    // Encodes `packet` (header, then body) and appends it behind its length.
    // A packet that was encoded already adds an empty entry.
    void addPacket(DataPacket& packet);
    // The entries of `buf`, one slice a packet, in order. An entry of length 0
    // gives an empty slice; one that runs past the end fails.
    foundation::Expected<std::vector<foundation::ByteBuffer>> getPackets();

    // Takes all readable bytes of `body` (the frame behind its first byte)
    // into `buf`, inflating them as the framing says.
    foundation::Expected<void> decode(foundation::ByteBuffer& body);
    // One plain byte, not a varint.
    void encodeHeader(PacketWriter& out) const override;
    // Appends the content of `buf`, compressed as the framing says.
    void encode(PacketWriter& out) const override;

private:
    BatchFraming framing_;
};

}  // namespace ferrylink::bridge
