#pragma once

#include <optional>
#include <vector>

#include "bridge/compression_algorithm.h"
#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// The 0xFE frame around game packets: a run of entries, each a packet behind
// its var-int length, raw-deflated as a whole when the client compresses.
//
// Sending: addPacket each packet, write the id byte to the frame, encode.
// Receiving: skip the frame's first byte, decode the rest, getPackets.
// Every malformed input here is a fatal fault of the process.
class BatchPacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 0xFE;

    // `compressionAlgorithm` is the client's, deciding both directions. The
    // buffer comes from the current server's channel (fatal without one).
    explicit BatchPacket(CompressionAlgorithm compressionAlgorithm);

    // Kept for the wire model; nothing reads them.
    int compressionLevel = 0;
    bool allowBeforeLogin = true;
    // The entries of the batch, uncompressed.
    std::optional<foundation::ByteBuffer> buf;

    // Encodes `packet` (header, then body) and appends it behind its length.
    // A packet that was encoded already adds an empty entry.
    void addPacket(DataPacket& packet);
    // The entries of `buf`, one slice a packet, in order. A length running
    // past the end is a fatal fault; an entry of length 0 gives an empty slice.
    std::vector<foundation::ByteBuffer> getPackets();

    // Takes all readable bytes of `buffer` (the frame behind its first byte),
    // inflating them under ZLIB, into `buf`.
    void decode(foundation::ByteBuffer& buffer) override;
    // One plain byte, not a var-int.
    void encodeHeader(foundation::ByteBuffer& buffer) override;
    // Appends the content of `buf`, deflated under ZLIB, to `buffer`.
    void encode(foundation::ByteBuffer& buffer) override;

private:
    CompressionAlgorithm compressionAlgorithm_;
};

}  // namespace ferrylink::bridge
