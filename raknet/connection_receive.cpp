// The way in of a Connection: acknowledgements, data datagrams through the
// receive window, the reliable window and the split assembler, and the
// dispatch of complete payloads with the connected handshake.
#include <string>

#include "foundation/clock.h"
#include "foundation/fatal.h"
#include "raknet/connection.h"
#include "raknet/listener.h"
#include "raknet/packets/acknowledge_packet.h"
#include "raknet/packets/connected_packets.h"
#include "raknet/packets/flags.h"
#include "raknet/packets/offline_packets.h"

namespace ferrylink::raknet {

using foundation::ByteBuffer;
using foundation::Clock;

namespace {

constexpr uint8_t GAME_PAYLOAD_FIRST_ID = 0x80;
constexpr int32_t FILLER_ADDRESSES = 20;
constexpr uint32_t ACCEPTED_CAPACITY_IPV4 = 166;
constexpr uint32_t ACCEPTED_CAPACITY_IPV6 = 628;

}  // namespace

void Connection::receive(ByteBuffer buffer) {
    auto first = buffer.getInteger<uint8_t>(buffer.readerIndex());
    if (dropped_ || !first) {
        return;
    }
    resendTable_.earn(buffer.readableBytes());
    const uint8_t header = *first;
    if ((header & Flags::VALID) == 0) {
        // Some peers send these two bare, without a frame around them.
        if (state_ == State::CONNECTING) {
            if (header == NewIncomingConnection().id) {
                handleNewIncomingConnection(buffer, false);
            } else if (header == ConnectionRequest().id) {
                handleConnectionRequest(buffer);
            }
        }
        return;
    }
    if (header & Flags::ACK) {
        handleAck(buffer);
    } else if (header & Flags::NACK) {
        handleNack(buffer);
    } else {
        handleDatagram(buffer);
    }
}

void Connection::handleAck(ByteBuffer& buffer) {
    ACK ack;
    if (auto decoded = ack.decode(buffer); !decoded) {
        drop(decoded.error());
        return;
    }
    resendTable_.acknowledge(ack);
}

void Connection::handleNack(ByteBuffer& buffer) {
    NACK nack;
    if (auto decoded = nack.decode(buffer); !decoded) {
        drop(decoded.error());
        return;
    }
    for (int32_t number : resendTable_.nackedForResend(nack, tick_)) {
        resend(number, tick_);
    }
}

void Connection::handleDatagram(ByteBuffer& buffer) {
    lastUpdate_ = Clock::currentTimeMillis();
    halfOpen_ = false;
    Datagram datagram;
    if (auto decoded = datagram.decode(buffer); !decoded) {
        drop(decoded.error());
        return;
    }
    switch (receiveWindow_.arrive(datagram.sequenceNumber)) {
        case ReceiveWindow::Arrival::ignored:
            return;
        case ReceiveWindow::Arrival::overflow:
            drop("too many datagrams missing");
            return;
        case ReceiveWindow::Arrival::taken:
            break;
    }
    auto deliver = [this](EncapsulatedPacket& frame) {
        handleEncapsulated(frame);
        return !dropped_;
    };
    for (auto& frame : datagram.packets) {
        if (dropped_) {
            return;
        }
        reliableWindow_.receive(std::move(frame), deliver);
    }
}

void Connection::handleEncapsulated(EncapsulatedPacket& frame) {
    if (!frame.split) {
        if (frame.buffer) {
            dispatch(*frame.buffer, true);
        }
        return;
    }
    auto assembled = splitAssembler_.add(frame);
    if (!assembled) {
        drop(assembled.error());
    } else if (*assembled) {
        // The whole payload has no reliability of its own: straight to the dispatch.
        dispatch(**assembled, true);
    }
}

void Connection::dispatch(ByteBuffer& payload, bool framed) {
    if (dropped_) {
        return;  // what stood behind the fault in the same datagram
    }
    auto first = payload.getInteger<uint8_t>(payload.readerIndex());
    if (!first) {
        drop("empty payload");
        return;
    }
    const uint8_t id = *first;
    print("packet: " + std::to_string(id));

    if (id >= GAME_PAYLOAD_FIRST_ID) {
        if (state_ != State::CONNECTED) {
            return;
        }
        print("con: " + std::to_string(id));
        if (listener_ && listener_->connectionListener) {
            listener_->connectionListener->onEncapsulated(payload, address);
        }
        return;
    }
    if (state_ == State::CONNECTING) {
        if (id == NewIncomingConnection().id) {
            handleNewIncomingConnection(payload, framed);
        } else if (id == ConnectionRequest().id) {
            handleConnectionRequest(payload);
        }
        return;
    }
    if (id == ConnectedPing().id) {
        handleConnectedPing(payload);
    } else if (id == DisconnectNotification().id) {
        if (listener_) {
            listener_->removeConnection(shared_from_this(), "client disconnect");
        }
    }
}

void Connection::handleConnectionRequest(ByteBuffer& payload) {
    ConnectionRequest request;
    if (auto decoded = request.decode(payload); !decoded) {
        drop(decoded.error());
        return;
    }
    ConnectionRequestAccepted accepted;
    accepted.address = address;
    accepted.timestamp = request.timestamp;
    accepted.nExtraAdresses = FILLER_ADDRESSES;
    auto buffer = ByteBuffer::withCapacity(address.kind() == foundation::SocketAddress::Kind::v6
                                               ? ACCEPTED_CAPACITY_IPV6
                                               : ACCEPTED_CAPACITY_IPV4);
    accepted.encode(buffer);
    EncapsulatedPacket frame;
    frame.reliability = Reliability::RELIABLE;
    frame.buffer = std::move(buffer);
    // The state stays: a repeated request gets the same answer with the current time.
    addEncapsulatedToQueue(std::move(frame), Priority::IMMEDIATE);
}

void Connection::handleNewIncomingConnection(ByteBuffer& payload, bool framed) {
    NewIncomingConnection packet;
    if (auto decoded = packet.decode(payload); !decoded) {
        drop(decoded.error());
        return;
    }
    const auto port = packet.address->port();
    if (framed) {
        // The peer must name the port this server is bound on; the address text is of no interest.
        std::optional<foundation::SocketAddress> local;
        if (listener_ && listener_->channel) {
            local = listener_->channel->localAddress();
        }
        if (!local || local->port() != port) {
            return;
        }
    } else if (address.port() != port) {
        // The bare form is checked against the peer's own port instead.
        return;
    }
    state_ = State::CONNECTED;
    if (listener_ && listener_->connectionListener) {
        listener_->connectionListener->onOpenConnection(shared_from_this());
    } else if (!framed) {
        foundation::fatalFault("connection opened without a listener");
    }
}

void Connection::handleConnectedPing(ByteBuffer& payload) {
    ConnectedPing ping;
    if (auto decoded = ping.decode(payload); !decoded) {
        drop(decoded.error());
        return;
    }
    ConnectedPong pong;
    pong.clientTime = ping.clientTime;
    pong.serverTime = Clock::currentTimeMillis();
    auto buffer = ByteBuffer::withCapacity(17);
    pong.encode(buffer);
    EncapsulatedPacket frame;
    frame.reliability = Reliability::RELIABLE;
    frame.buffer = std::move(buffer);
    addEncapsulatedToQueue(std::move(frame), Priority::IMMEDIATE);
}

}  // namespace ferrylink::raknet
