#include "bridge/packets/batch_packet.h"

#include "bridge/packets/raw_deflate.h"
#include "bridge/server_link.h"
#include "foundation/codecs.h"
#include "foundation/fatal.h"

namespace ferrylink::bridge {

using foundation::ByteBuffer;
using foundation::forced;

BatchPacket::BatchPacket(CompressionAlgorithm compressionAlgorithm)
    : DataPacket(networkId), buf(ServerLink::freshBuffer()), compressionAlgorithm_(compressionAlgorithm) {}

void BatchPacket::addPacket(DataPacket& packet) {
    ByteBuffer entry = ServerLink::freshBuffer();
    if (!packet.encoded) {
        packet.encodeHeader(entry);
        packet.encode(entry);
        packet.encoded = true;
    }
    // The length goes through the protocol's var-int writer like every other
    // var-int: a length of 256 leaves as the lone byte 00, which the client
    // reads as an empty entry. Our peers expect exactly this form.
    foundation::writeVarInt(*buf, entry.readableBytes());
    buf->writeBuffer(entry);
}

std::vector<ByteBuffer> BatchPacket::getPackets() {
    std::vector<ByteBuffer> packets;
    ByteBuffer& content = *buf;
    while (content.readerIndex() < content.writerIndex()) {
        auto length = static_cast<uint32_t>(forced(foundation::readVarInt(content)));
        packets.push_back(forced(content.readSlice(length)));
    }
    return packets;
}

void BatchPacket::decode(ByteBuffer& buffer) {
    // Inflated or copied straight from where the datagram landed.
    auto body = buffer.readableView();
    if (compressionAlgorithm_ == CompressionAlgorithm::ZLIB) {
        buf = ByteBuffer(forced(inflateRaw(body)));
    } else {
        buf = ByteBuffer(body);
    }
    buffer.moveReaderIndexForwardBy(static_cast<int64_t>(body.size()));
}

void BatchPacket::encodeHeader(ByteBuffer& buffer) { buffer.writeInteger<uint8_t>(NetworkId); }

void BatchPacket::encode(ByteBuffer& buffer) {
    // Deflated or copied straight from the batch's own store.
    auto content = buf->readableView();
    if (compressionAlgorithm_ == CompressionAlgorithm::ZLIB) {
        buffer.writeBytes(forced(deflateRaw(content)));
    } else {
        buffer.writeBytes(content);
    }
    buf->moveReaderIndexForwardBy(static_cast<int64_t>(content.size()));
}

}  // namespace ferrylink::bridge
