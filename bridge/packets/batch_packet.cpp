#include "bridge/packets/batch_packet.h"

#include <cstdio>

#include "bridge/packets/deflate_cache.h"
#include "bridge/packets/raw_deflate.h"
#include "bridge/server_link.h"
#include "foundation/codecs.h"
#include "foundation/fatal.h"

namespace ferrylink::bridge {

using foundation::ByteBuffer;
using foundation::Expected;
using foundation::unexpected;

namespace {
// The byte behind 0xFE from v649 on.
constexpr uint8_t rawDeflateAlgorithm = 0x00;
constexpr uint8_t snappyAlgorithm = 0x01;
constexpr uint8_t noCompression = 0xFF;
}  // namespace

BatchPacket::BatchPacket(BatchFraming framing)
    : DataPacket(networkId), buf(ServerLink::freshBuffer()), framing_(framing) {}

void BatchPacket::addPacket(DataPacket& packet) {
    ByteBuffer entry = ServerLink::freshBuffer();
    if (!packet.encoded) {
        PacketWriter out(entry);
        packet.encodeHeader(out);
        packet.encode(out);
        packet.encoded = true;
    }
    // The length goes through the protocol's var-int writer like every other
    // var-int: a length of 256 leaves as the lone byte 00, which the client
    // reads as an empty entry. Our peers expect exactly this form.
    foundation::writeVarInt(*buf, entry.readableBytes());
    buf->writeBuffer(entry);
}

Expected<std::vector<ByteBuffer>> BatchPacket::getPackets() {
    std::vector<ByteBuffer> packets;
    ByteBuffer& content = *buf;
    while (content.readerIndex() < content.writerIndex()) {
        auto length = foundation::readVarInt(content);
        auto packet = length ? content.readSlice(static_cast<uint32_t>(*length)) : std::nullopt;
        if (!packet) {
            return unexpected("batch entry runs past the end");
        }
        packets.push_back(std::move(*packet));
    }
    return packets;
}

Expected<void> BatchPacket::decode(ByteBuffer& body) {
    // Inflated or copied straight from where the datagram landed.
    auto bytes = body.readableView();
    body.moveReaderIndexForwardBy(static_cast<int64_t>(bytes.size()));
    bool deflated = framing_.compression == CompressionAlgorithm::ZLIB;
    if (deflated && framing_.algorithmByte) {
        if (bytes.empty()) {
            return unexpected("batch without its compression byte");
        }
        uint8_t algorithm = bytes.front();
        bytes = bytes.subspan(1);
        if (algorithm == snappyAlgorithm) {
            return unexpected("batch compressed with Snappy");
        }
        if (algorithm != rawDeflateAlgorithm && algorithm != noCompression) {
            char reason[48];
            std::snprintf(reason, sizeof reason, "batch names an unknown compression %02X", algorithm);
            return unexpected(reason);
        }
        deflated = algorithm == rawDeflateAlgorithm;
    }
    if (!deflated) {
        buf = ByteBuffer(bytes);
        return {};
    }
    auto inflated = inflateRaw(bytes, inflateLimit);
    if (inflated) {
        buf = ByteBuffer(*inflated);
    } else if (!framing_.algorithmByte) {
        buf = ByteBuffer(bytes);
    } else {
        return unexpected("batch does not inflate");
    }
    return {};
}

void BatchPacket::encodeHeader(PacketWriter& out) const { out.u8(NetworkId); }

void BatchPacket::encode(PacketWriter& out) const {
    // Deflated or copied straight from the batch's own store.
    auto content = buf->readableView();
    if (framing_.compression == CompressionAlgorithm::NONE) {
        out.bytes(content);
        return;
    }
    if (framing_.algorithmByte) {
        out.u8(rawDeflateAlgorithm);
    }
    auto deflated = DeflateCache::forThisThread().deflate(content);
    if (!deflated) {
        foundation::fatalFault();
    }
    out.bytes(*deflated);
}

}  // namespace ferrylink::bridge
