#include "bridge/sim/console_link.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>

#include "foundation/clock.h"

namespace ferrylink::sim {

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint8_t MAGIC[16] = {0x00, 0xFF, 0xFF, 0x00, 0xFE, 0xFE, 0xFE, 0xFE,
                               0xFD, 0xFD, 0xFD, 0xFD, 0x12, 0x34, 0x56, 0x78};

bool isReliable(int kind) { return kind == 2 || kind == 3 || kind == 4 || kind == 6 || kind == 7; }
bool isSequenced(int kind) { return kind == 1 || kind == 4; }

// Little writer and reader over byte vectors, big-endian unless said.
struct Writer {
    std::vector<uint8_t> bytes;

    void u8(uint8_t value) { bytes.push_back(value); }
    void be(uint64_t value, int size) {
        for (int i = size - 1; i >= 0; --i) {
            bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
        }
    }
    void u24le(uint32_t value) {
        bytes.push_back(static_cast<uint8_t>(value));
        bytes.push_back(static_cast<uint8_t>(value >> 8));
        bytes.push_back(static_cast<uint8_t>(value >> 16));
    }
    void raw(std::span<const uint8_t> more) { bytes.insert(bytes.end(), more.begin(), more.end()); }
    void magic() { raw(MAGIC); }
};

struct Reader {
    std::span<const uint8_t> bytes;
    size_t at = 0;
    bool failed = false;

    bool has(size_t count) {
        if (at + count > bytes.size()) {
            failed = true;
        }
        return !failed;
    }
    uint64_t be(int size) {
        if (!has(static_cast<size_t>(size))) {
            return 0;
        }
        uint64_t value = 0;
        for (int i = 0; i < size; ++i) {
            value = value << 8 | bytes[at++];
        }
        return value;
    }
    uint32_t u24le() {
        if (!has(3)) {
            return 0;
        }
        uint32_t value = bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16;
        at += 3;
        return value;
    }
    std::vector<uint8_t> take(size_t count) {
        if (!has(count)) {
            return {};
        }
        std::vector<uint8_t> out(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                                 bytes.begin() + static_cast<std::ptrdiff_t>(at + count));
        at += count;
        return out;
    }
    size_t left() const { return bytes.size() - at; }
};

void writeFrame(Writer& out, const LinkFrame& frame) {
    out.u8(static_cast<uint8_t>(frame.reliability << 5 | (frame.split ? 0x10 : 0)));
    out.be(frame.payload.size() * 8, 2);
    if (isReliable(frame.reliability)) {
        out.u24le(frame.messageIndex.value_or(0));
    }
    if (isSequenced(frame.reliability)) {
        out.u24le(frame.sequenceIndex.value_or(0));
    }
    if (isOrdered(frame.reliability) || isSequenced(frame.reliability)) {
        out.u24le(frame.orderIndex);
        out.u8(frame.orderChannel);
    }
    if (frame.split) {
        out.be(static_cast<uint32_t>(frame.splitCount), 4);
        out.be(frame.splitId, 2);
        out.be(static_cast<uint32_t>(frame.splitIndex), 4);
    }
    out.raw(frame.payload);
}

}  // namespace

bool isOrdered(int reliability) { return reliability == 3 || reliability == 7; }

// --- Wire forms -----------------------------------------------------------------

std::vector<uint8_t> encodeDatagram(const LinkDatagram& datagram) {
    Writer out;
    out.u8(datagram.header);
    out.u24le(datagram.sequenceNumber);
    for (const auto& frame : datagram.frames) {
        writeFrame(out, frame);
    }
    return out.bytes;
}

std::optional<LinkDatagram> parseDatagram(std::span<const uint8_t> bytes) {
    Reader in{bytes};
    LinkDatagram datagram;
    datagram.header = static_cast<uint8_t>(in.be(1));
    datagram.sequenceNumber = in.u24le();
    while (!in.failed && in.left() > 0) {
        LinkFrame frame;
        uint8_t flags = static_cast<uint8_t>(in.be(1));
        frame.reliability = flags >> 5;
        frame.split = (flags & 0x10) != 0;
        size_t length = (in.be(2) + 7) / 8;
        if (isReliable(frame.reliability)) {
            frame.messageIndex = in.u24le();
        }
        if (isSequenced(frame.reliability)) {
            frame.sequenceIndex = in.u24le();
        }
        if (isOrdered(frame.reliability) || isSequenced(frame.reliability)) {
            frame.orderIndex = in.u24le();
            frame.orderChannel = static_cast<uint8_t>(in.be(1));
        }
        if (frame.split) {
            frame.splitCount = static_cast<int32_t>(in.be(4));
            frame.splitId = static_cast<uint16_t>(in.be(2));
            frame.splitIndex = static_cast<int32_t>(in.be(4));
        }
        frame.payload = in.take(length);
        datagram.frames.push_back(std::move(frame));
    }
    if (in.failed) {
        return std::nullopt;
    }
    return datagram;
}

std::vector<uint8_t> encodeAcknowledgement(const LinkAcknowledgement& acknowledgement) {
    Writer out;
    out.u8(acknowledgement.negative ? 0xA0 : 0xC0);
    out.be(acknowledgement.ranges.size(), 2);
    for (auto [start, end] : acknowledgement.ranges) {
        if (start == end) {
            out.u8(1);
            out.u24le(start);
        } else {
            out.u8(0);
            out.u24le(start);
            out.u24le(end);
        }
    }
    return out.bytes;
}

std::optional<LinkAcknowledgement> parseAcknowledgement(std::span<const uint8_t> bytes) {
    Reader in{bytes};
    LinkAcknowledgement acknowledgement;
    uint8_t id = static_cast<uint8_t>(in.be(1));
    acknowledgement.negative = (id & 0x40) == 0;
    auto count = in.be(2);
    for (uint64_t i = 0; i < count && !in.failed; ++i) {
        if (in.be(1) == 0) {
            uint32_t start = in.u24le();
            uint32_t end = in.u24le();
            acknowledgement.ranges.emplace_back(start, end);
        } else {
            uint32_t number = in.u24le();
            acknowledgement.ranges.emplace_back(number, number);
        }
    }
    if (in.failed || in.left() != 0) {
        return std::nullopt;
    }
    return acknowledgement;
}

std::vector<uint8_t> encodeAddress(const foundation::SocketAddress& address) {
    Writer out;
    auto bytes = address.addressBytes();
    auto port = static_cast<uint16_t>(*address.port());
    if (address.kind() == foundation::SocketAddress::Kind::v6) {
        out.u8(6);
        out.be(10, 2);
        out.be(port, 2);
        out.be(0, 4);
        out.raw(bytes);
        out.be(0, 4);
    } else {
        out.u8(4);
        for (uint8_t byte : bytes) {
            out.u8(static_cast<uint8_t>(~byte));
        }
        out.be(port, 2);
    }
    return out.bytes;
}

std::vector<uint32_t> LinkAcknowledgement::numbers() const {
    std::vector<uint32_t> all;
    for (auto [start, end] : ranges) {
        for (uint64_t n = start; n <= end; ++n) {
            all.push_back(static_cast<uint32_t>(n));
        }
    }
    return all;
}

// --- Whole frames ------------------------------------------------------------------

std::optional<LinkFrame> FrameJoiner::take(LinkFrame frame) {
    if (frame.messageIndex && !seenMessageIndices_.insert(*frame.messageIndex).second) {
        return std::nullopt;  // a retransmitted copy
    }
    if (!frame.split) {
        return frame;
    }
    auto& parts = splits_[frame.splitId];
    parts[frame.splitIndex] = std::move(frame.payload);
    const bool complete = static_cast<int32_t>(parts.size()) == frame.splitCount && parts.begin()->first == 0 &&
                          parts.rbegin()->first == frame.splitCount - 1;
    if (!complete) {
        return std::nullopt;
    }
    frame.payload.clear();
    for (auto& [index, part] : parts) {
        frame.payload.insert(frame.payload.end(), part.begin(), part.end());
    }
    splits_.erase(frame.splitId);
    frame.split = false;
    return frame;
}

// --- The socket ----------------------------------------------------------------------

ConsoleLink::ConsoleLink(foundation::SocketAddress server) : server_(std::move(server)) {
    const bool v6 = server_.kind() == foundation::SocketAddress::Kind::v6;
    fd_ = ::socket(v6 ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd_ < 0) {
        throw std::system_error(errno, std::generic_category(), "socket");
    }
    int result;
    if (v6) {
        sockaddr_in6 local{};
        local.sin6_family = AF_INET6;
        local.sin6_addr = in6addr_loopback;
        result = ::bind(fd_, reinterpret_cast<sockaddr*>(&local), sizeof(local));
    } else {
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        result = ::bind(fd_, reinterpret_cast<sockaddr*>(&local), sizeof(local));
    }
    if (result != 0) {
        int error = errno;
        ::close(fd_);
        throw std::system_error(error, std::generic_category(), "bind");
    }
}

ConsoleLink::~ConsoleLink() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

foundation::SocketAddress ConsoleLink::localAddress() const {
    sockaddr_storage storage{};
    socklen_t length = sizeof(storage);
    ::getsockname(fd_, reinterpret_cast<sockaddr*>(&storage), &length);
    return foundation::SocketAddress::fromSockaddr(reinterpret_cast<sockaddr*>(&storage), length);
}

uint16_t ConsoleLink::localPort() const { return static_cast<uint16_t>(*localAddress().port()); }

void ConsoleLink::sendRaw(std::span<const uint8_t> bytes) {
    ::sendto(fd_, bytes.data(), bytes.size(), 0, server_.sockaddrPointer(), server_.sockaddrLength());
}

// --- Reading ---------------------------------------------------------------------------

bool ConsoleLink::pump(std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (true) {
        auto wait = timeout;
        if (resendAfter) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            wait = std::clamp(left, std::chrono::milliseconds(0), *resendAfter);
        }
        pollfd waiting{fd_, POLLIN, 0};
        int ready = ::poll(&waiting, 1, static_cast<int>(wait.count()));
        if (resendAfter) {
            resendOverdue();
        }
        if (ready > 0) {
            break;
        }
        if (!resendAfter || Clock::now() >= deadline) {
            return false;
        }
    }
    // Everything that has come is read in one go and its data datagrams are
    // acknowledged together, in one ACK of ranges, as a console's RakNet does
    // on its update rather than once per datagram.
    size_t read = 0;
    for (int flags = 0; read < MAX_READ_AT_ONCE; flags = MSG_DONTWAIT) {
        ssize_t received = ::recv(fd_, receiveBuffer_.get(), RECEIVE_BUFFER_SIZE, flags);
        if (received < 0) {
            break;
        }
        ++read;
        file(std::vector<uint8_t>(receiveBuffer_.get(), receiveBuffer_.get() + received));
    }
    sendPendingAcks();
    return read > 0;
}

void ConsoleLink::sendPendingAcks() {
    if (pendingAcks_.empty()) {
        return;
    }
    std::sort(pendingAcks_.begin(), pendingAcks_.end());
    LinkAcknowledgement ack;
    for (uint32_t number : pendingAcks_) {
        if (!ack.ranges.empty() && number <= ack.ranges.back().second + 1) {
            ack.ranges.back().second = std::max(ack.ranges.back().second, number);
        } else {
            ack.ranges.emplace_back(number, number);
        }
    }
    pendingAcks_.clear();
    sendRaw(encodeAcknowledgement(ack));
}

void ConsoleLink::file(std::vector<uint8_t> bytes) {
    onRead(bytes);
    if (bytes.empty()) {
        return;
    }
    const uint8_t header = bytes[0];
    if ((header & 0x80) == 0) {
        offline_.push_back(std::move(bytes));
        return;
    }
    if (header & 0x40 || header & 0x20) {
        if (auto acknowledgement = parseAcknowledgement(bytes)) {
            if (resendAfter && !acknowledgement->negative) {
                for (auto [start, end] : acknowledgement->ranges) {
                    if (start <= end) {
                        unacknowledged_.erase(unacknowledged_.lower_bound(start), unacknowledged_.upper_bound(end));
                    }
                }
            }
            onAcknowledgement(*acknowledgement);
        }
        return;
    }
    auto datagram = parseDatagram(bytes);
    if (!datagram) {
        return;
    }
    if (autoAck) {
        pendingAcks_.push_back(datagram->sequenceNumber);
    }
    onDatagram(*datagram);
    datagrams_.push_back(std::move(*datagram));
}

std::optional<std::vector<uint8_t>> ConsoleLink::nextOffline(uint8_t id, std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (true) {
        auto found = std::find_if(offline_.begin(), offline_.end(),
                                  [id](const std::vector<uint8_t>& bytes) { return bytes[0] == id; });
        if (found != offline_.end()) {
            auto bytes = std::move(*found);
            offline_.erase(found);
            return bytes;
        }
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0 || !pump(left)) {
            return std::nullopt;
        }
    }
}

std::optional<LinkDatagram> ConsoleLink::nextDatagram(std::chrono::milliseconds timeout) {
    return take(datagrams_, timeout);
}

// --- Offline and the handshake ---------------------------------------------------------

void ConsoleLink::sendUnconnectedPing(int64_t clientTime, int64_t clientId) {
    Writer out;
    out.u8(0x01);
    out.be(static_cast<uint64_t>(clientTime), 8);
    out.magic();
    out.be(static_cast<uint64_t>(clientId), 8);
    sendRaw(out.bytes);
}

void ConsoleLink::sendOpenConnectionRequest1(uint8_t protocolVersion, size_t datagramLength) {
    Writer out;
    out.u8(0x05);
    out.magic();
    out.u8(protocolVersion);
    out.bytes.resize(std::max(datagramLength, out.bytes.size()), 0);
    sendRaw(out.bytes);
}

void ConsoleLink::sendOpenConnectionRequest2(uint16_t mtu, int64_t clientId) {
    Writer out;
    out.u8(0x07);
    out.magic();
    out.raw(encodeAddress(server_));
    out.be(mtu, 2);
    out.be(static_cast<uint64_t>(clientId), 8);
    sendRaw(out.bytes);
}

void ConsoleLink::sendConnectionRequest(int64_t timestamp, int64_t clientId) {
    Writer out;
    out.u8(0x09);
    out.be(static_cast<uint64_t>(clientId), 8);
    out.be(static_cast<uint64_t>(timestamp), 8);
    out.u8(0);  // no security
    sendFrames({frame(out.bytes)});
}

void ConsoleLink::sendNewIncomingConnection(std::optional<uint16_t> port, int extraAddresses) {
    auto named = server_;
    if (port) {
        named = foundation::SocketAddress::fromBytes(server_.protocol(), server_.addressBytes(), *port);
    }
    Writer out;
    out.u8(0x13);
    out.raw(encodeAddress(named));
    for (int i = 0; i < extraAddresses; ++i) {
        out.raw(encodeAddress(foundation::SocketAddress::makeResolving("0.0.0.0", 0)));
    }
    out.be(static_cast<uint64_t>(foundation::Clock::currentTimeMillis()), 8);
    out.be(static_cast<uint64_t>(foundation::Clock::currentTimeMillis()), 8);
    sendFrames({frame(out.bytes)});
}

void ConsoleLink::sendDisconnect() { sendFrames({frame({0x15})}); }

std::optional<std::vector<uint8_t>> ConsoleLink::askOffline(uint8_t id, const std::function<void()>& send) {
    const auto deadline = Clock::now() + DEFAULT_TIMEOUT;
    while (true) {
        send();
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        auto reply = nextOffline(id, resendAfter ? std::min(left, *resendAfter) : left);
        if (reply || !resendAfter || Clock::now() >= deadline) {
            return reply;
        }
    }
}

bool ConsoleLink::accepted() const {
    return std::any_of(datagrams_.begin(), datagrams_.end(), [](const LinkDatagram& datagram) {
        return std::any_of(datagram.frames.begin(), datagram.frames.end(), [](const LinkFrame& frame) {
            return !frame.split && !frame.payload.empty() && frame.payload[0] == 0x10;
        });
    });
}

bool ConsoleLink::connect(uint16_t mtu, uint8_t protocolVersion) {
    auto reply1 = askOffline(0x06, [&] { sendOpenConnectionRequest1(protocolVersion, mtu); });
    if (!reply1 || reply1->size() < 25) {
        return false;
    }
    Reader reader{*reply1, 17};
    serverId_ = static_cast<int64_t>(reader.be(8));
    if (!askOffline(0x08, [&] { sendOpenConnectionRequest2(mtu); })) {
        return false;
    }
    sendConnectionRequest(foundation::Clock::currentTimeMillis());
    // ConnectionRequestAccepted is short enough never to be split.
    const auto deadline = Clock::now() + DEFAULT_TIMEOUT;
    while (!accepted()) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0 || !pump(left)) {
            return false;
        }
    }
    sendNewIncomingConnection();
    return true;
}

// --- Frames out ---------------------------------------------------------------------------

LinkFrame ConsoleLink::frame(std::vector<uint8_t> payload, int reliability) {
    LinkFrame made;
    made.reliability = reliability;
    made.payload = std::move(payload);
    if (isReliable(reliability)) {
        made.messageIndex = nextMessageIndex_++;
    }
    if (isSequenced(reliability)) {
        made.sequenceIndex = 0;
    }
    if (isOrdered(reliability) || isSequenced(reliability)) {
        made.orderIndex = isOrdered(reliability) ? nextOrderIndex_++ : nextOrderIndex_;
    }
    return made;
}

std::vector<LinkFrame> ConsoleLink::fragments(const std::vector<uint8_t>& payload, size_t fragmentSize,
                                              int reliability) {
    std::vector<LinkFrame> made;
    const uint32_t orderIndex = isOrdered(reliability) ? nextOrderIndex_++ : nextOrderIndex_;
    const uint16_t splitId = nextSplitId_++;
    const size_t count = (payload.size() + fragmentSize - 1) / fragmentSize;
    for (size_t index = 0; index < count; ++index) {
        LinkFrame piece;
        piece.reliability = reliability;
        if (isReliable(reliability)) {
            piece.messageIndex = nextMessageIndex_++;
        }
        piece.orderIndex = orderIndex;
        piece.split = true;
        piece.splitCount = static_cast<int32_t>(count);
        piece.splitId = splitId;
        piece.splitIndex = static_cast<int32_t>(index);
        auto begin = payload.begin() + static_cast<std::ptrdiff_t>(index * fragmentSize);
        auto end = payload.begin() + static_cast<std::ptrdiff_t>(std::min(payload.size(), (index + 1) * fragmentSize));
        piece.payload.assign(begin, end);
        made.push_back(std::move(piece));
    }
    return made;
}

uint32_t ConsoleLink::sendFrames(const std::vector<LinkFrame>& frames) {
    return sendFramesAs(nextSequenceNumber_, frames);
}

uint32_t ConsoleLink::sendFramesAs(uint32_t sequenceNumber, const std::vector<LinkFrame>& frames) {
    nextSequenceNumber_ = std::max(nextSequenceNumber_, sequenceNumber + 1);
    LinkDatagram datagram;
    datagram.sequenceNumber = sequenceNumber;
    datagram.frames = frames;
    sendRaw(encodeDatagram(datagram));
    if (resendAfter) {
        unacknowledged_[sequenceNumber] = Unacknowledged{frames, Clock::now()};
    }
    return sequenceNumber;
}

void ConsoleLink::resendOverdue() {
    const auto now = Clock::now();
    std::vector<std::vector<LinkFrame>> overdue;
    for (auto entry = unacknowledged_.begin(); entry != unacknowledged_.end();) {
        if (now - entry->second.sentAt < *resendAfter) {
            ++entry;
            continue;
        }
        overdue.push_back(std::move(entry->second.frames));
        entry = unacknowledged_.erase(entry);
    }
    for (const auto& frames : overdue) {
        sendFrames(frames);
    }
}

void ConsoleLink::sendPayload(const std::vector<uint8_t>& payload, size_t fragmentSize) {
    if (payload.size() <= fragmentSize) {
        sendFrames({frame(payload)});
        return;
    }
    for (auto& piece : fragments(payload, fragmentSize)) {
        sendFrames({piece});
    }
}

}  // namespace ferrylink::sim
