#include "bridge/sim/simulated_console.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>

#include "bridge/packets/disconnect_packet.h"
#include "bridge/packets/level_chunk_packet.h"
#include "bridge/packets/move_player_packet.h"
#include "bridge/packets/network_settings_packet.h"
#include "bridge/packets/play_status_packet.h"
#include "bridge/packets/resource_pack_stack_packet.h"
#include "bridge/packets/resource_packs_info_packet.h"
#include "bridge/packets/start_game_packet.h"
#include "bridge/packets/transfer_packet.h"
#include "bridge/packets/version_groups.h"
#include "bridge/packets/web_token.h"
#include "bridge/packets/world_table_packets.h"
#include "bridge/resource_bundle.h"
#include "bridge/sim/console_link.h"
#include "bridge/world_resources.h"
#include "foundation/clock.h"
#include "foundation/socket_address.h"

namespace ferrylink::sim {

namespace {

using Bytes = std::vector<uint8_t>;
using SteadyClock = std::chrono::steady_clock;

// --- Small byte helpers, written apart from the code under test ------------------------

Bytes hex(std::string_view text) {
    Bytes bytes;
    int high = -1;
    for (char c : text) {
        int value;
        if (c >= '0' && c <= '9') {
            value = c - '0';
        } else if (c >= 'A' && c <= 'F') {
            value = c - 'A' + 10;
        } else if (c >= 'a' && c <= 'f') {
            value = c - 'a' + 10;
        } else {
            continue;
        }
        if (high < 0) {
            high = value;
        } else {
            bytes.push_back(static_cast<uint8_t>(high << 4 | value));
            high = -1;
        }
    }
    return bytes;
}

std::string hexText(std::span<const uint8_t> bytes, size_t limit = 48) {
    std::string text;
    char piece[4];
    for (size_t i = 0; i < bytes.size() && i < limit; ++i) {
        std::snprintf(piece, sizeof(piece), i == 0 ? "%02X" : " %02X", bytes[i]);
        text += piece;
    }
    if (bytes.size() > limit) {
        text += " ...";
    }
    return text;
}

// Not inlined: GCC 12 at -O3 sees a just-made vector's growth here, and in
// writeInt32, as writes past its end.
[[gnu::noinline]] void append(Bytes& to, std::span<const uint8_t> more) { to.insert(to.end(), more.begin(), more.end()); }

// The usual base-128 form, as a real client writes and reads it.
void writeVarInt(Bytes& to, uint64_t value) {
    while (value >= 0x80) {
        to.push_back(static_cast<uint8_t>(value | 0x80));
        value >>= 7;
    }
    to.push_back(static_cast<uint8_t>(value));
}

std::optional<uint64_t> readVarInt(std::span<const uint8_t> bytes, size_t& at) {
    uint64_t value = 0;
    for (int shift = 0; shift < 64; shift += 7) {
        if (at >= bytes.size()) {
            return std::nullopt;
        }
        uint8_t byte = bytes[at++];
        value |= static_cast<uint64_t>(byte & 0x7F) << shift;
        if ((byte & 0x80) == 0) {
            return value;
        }
    }
    return std::nullopt;
}

[[gnu::noinline]] void writeInt32(Bytes& to, int32_t value, bool bigEndian) {
    auto bits = static_cast<uint32_t>(value);
    for (int i = 0; i < 4; ++i) {
        int shift = bigEndian ? (3 - i) * 8 : i * 8;
        to.push_back(static_cast<uint8_t>(bits >> shift));
    }
}

std::optional<Bytes> rawDeflate(std::span<const uint8_t> input) {
    z_stream stream{};
    if (deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
        return std::nullopt;
    }
    Bytes output(deflateBound(&stream, static_cast<uLong>(input.size())) + 16);
    stream.next_in = const_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    stream.next_out = output.data();
    stream.avail_out = static_cast<uInt>(output.size());
    int status = deflate(&stream, Z_FINISH);
    output.resize(stream.total_out);
    deflateEnd(&stream);
    if (status != Z_STREAM_END) {
        return std::nullopt;
    }
    return output;
}

std::optional<Bytes> rawInflate(std::span<const uint8_t> input) {
    z_stream stream{};
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) {
        return std::nullopt;
    }
    Bytes output;
    stream.next_in = const_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    int status = Z_OK;
    std::array<uint8_t, 16384> block;
    while (status == Z_OK) {
        stream.next_out = block.data();
        stream.avail_out = static_cast<uInt>(block.size());
        status = inflate(&stream, Z_NO_FLUSH);
        output.insert(output.end(), block.begin(), block.end() - stream.avail_out);
    }
    inflateEnd(&stream);
    if (status != Z_STREAM_END) {
        return std::nullopt;
    }
    return output;
}

std::string base64Url(std::span<const uint8_t> bytes) {
    return bridge::encodeBase64Url(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::string base64Url(std::string_view text) { return bridge::encodeBase64Url(text); }

std::string base64(std::span<const uint8_t> bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(), static_cast<int>(bytes.size()));
    text.resize(static_cast<size_t>(length));
    return text;
}

// The console's own P-384 key, as a console that isn't signed in makes one:
// the public half goes in the token, the private half signs it.
class SigningKey {
public:
    SigningKey() : key_(EVP_EC_gen("secp384r1")) {}
    ~SigningKey() { EVP_PKEY_free(key_); }
    SigningKey(const SigningKey&) = delete;
    SigningKey& operator=(const SigningKey&) = delete;

    bool valid() const { return key_ != nullptr; }

    // The DER of the public key, base64 as tokens carry it.
    std::string publicKey() const {
        int length = i2d_PUBKEY(key_, nullptr);
        Bytes der(static_cast<size_t>(std::max(length, 0)));
        unsigned char* out = der.data();
        i2d_PUBKEY(key_, &out);
        return base64(der);
    }

    // An ES384 signature in the token form: r and s, 48 bytes each.
    Bytes sign(std::string_view text) const {
        Bytes raw(96, 0);
        EVP_MD_CTX* context = EVP_MD_CTX_new();
        size_t length = 0;
        Bytes der;
        if (EVP_DigestSignInit(context, nullptr, EVP_sha384(), nullptr, key_) == 1 &&
            EVP_DigestSign(context, nullptr, &length, reinterpret_cast<const unsigned char*>(text.data()), text.size()) == 1) {
            der.resize(length);
            if (EVP_DigestSign(context, der.data(), &length, reinterpret_cast<const unsigned char*>(text.data()),
                               text.size()) != 1) {
                length = 0;
            }
        }
        EVP_MD_CTX_free(context);
        const unsigned char* in = der.data();
        if (ECDSA_SIG* signature = d2i_ECDSA_SIG(nullptr, &in, static_cast<long>(length))) {
            const BIGNUM* r = nullptr;
            const BIGNUM* s = nullptr;
            ECDSA_SIG_get0(signature, &r, &s);
            BN_bn2binpad(r, raw.data(), 48);
            BN_bn2binpad(s, raw.data() + 48, 48);
            ECDSA_SIG_free(signature);
        }
        return raw;
    }

private:
    EVP_PKEY* key_;
};

Bytes randomBytes(size_t count) {
    static thread_local std::mt19937 generator{std::random_device{}()};
    Bytes bytes(count);
    for (auto& byte : bytes) {
        byte = static_cast<uint8_t>(generator());
    }
    return bytes;
}

// --- What the bridge must send ----------------------------------------------------------

// One expected byte, or any byte (the random world template id).
using Pattern = std::vector<std::optional<uint8_t>>;

Pattern exactly(const Bytes& bytes) { return Pattern(bytes.begin(), bytes.end()); }

// A packet as the bridge writes it, header and body, through the protocol's
// var-int writer: the layouts are the bridge's own, what is checked here is
// that they reach the console whole and in order.
Bytes bytesOf(const bridge::DataPacket& packet) {
    foundation::ByteBuffer buffer;
    bridge::PacketWriter out(buffer);
    packet.encodeHeader(out);
    packet.encode(out);
    auto view = buffer.readableView();
    return Bytes(view.begin(), view.end());
}

// The start-game record with its world template id, drawn anew for every
// record, left open.
Pattern startGamePattern(int32_t protocol) {
    bridge::StartGamePacket zeros(protocol);
    bridge::StartGamePacket ones(protocol);
    zeros.world.worldTemplateId = std::array<uint8_t, 16>{};
    ones.world.worldTemplateId.emplace();
    ones.world.worldTemplateId->fill(0xFF);
    Bytes a = bytesOf(zeros);
    Bytes b = bytesOf(ones);
    Pattern pattern;
    for (size_t i = 0; i < a.size(); ++i) {
        pattern.push_back(a[i] == b[i] ? std::optional<uint8_t>(a[i]) : std::nullopt);
    }
    return pattern;
}

// A table passed through from the bundle, behind the packet's header.
Pattern tablePattern(const bridge::DataPacket& packet, const Bytes& table) {
    foundation::ByteBuffer buffer;
    bridge::PacketWriter out(buffer);
    packet.encodeHeader(out);
    auto header = buffer.readableView();
    Bytes bytes(header.begin(), header.end());
    append(bytes, table);
    return exactly(bytes);
}

std::optional<Bytes> readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    return Bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

// The three tables the bridge passes through, as the bundle holds them.
struct Tables {
    Bytes palette;
    Bytes biomes;
    Bytes entities;
};

// Read once per folder and process, since a load generator runs a thousand
// consoles at once; nothing when a file is missing.
std::shared_ptr<const Tables> tablesIn(const std::filesystem::path& folder) {
    static std::mutex mutex;
    static std::map<std::filesystem::path, std::shared_ptr<const Tables>> read;
    std::lock_guard lock(mutex);
    if (auto known = read.find(folder); known != read.end()) {
        return known->second;
    }
    auto palette = readFile(folder / "required_block_states.nbt");
    auto biomes = readFile(folder / "biome_definitions.nbt");
    auto entities = readFile(folder / "entity_identifiers.nbt");
    if (!palette || !biomes || !entities) {
        return nullptr;
    }
    auto tables = std::make_shared<const Tables>(Tables{std::move(*palette), std::move(*biomes), std::move(*entities)});
    read.emplace(folder, tables);
    return tables;
}

// --- Game payloads in the order a client applies them -------------------------------------

// Reads the connection as a console does: whole frames from the joiner, and
// ordered ones handed out by their order index, not by their arrival (a split
// payload leaves the server at once and may overtake smaller ones queued
// before it).
class OrderedPayloads {
public:
    explicit OrderedPayloads(ConsoleLink& link) : link_(link) {}

    std::optional<Bytes> nextGamePayload(SteadyClock::time_point deadline) {
        while (ready_.empty()) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - SteadyClock::now());
            if (left.count() <= 0) {
                return std::nullopt;
            }
            auto datagram = link_.nextDatagram(left);
            if (!datagram) {
                return std::nullopt;
            }
            for (auto& frame : datagram->frames) {
                if (auto whole = joiner_.take(std::move(frame))) {
                    take(std::move(*whole));
                }
            }
        }
        Bytes payload = std::move(ready_.front());
        ready_.pop_front();
        return payload;
    }

private:
    void take(LinkFrame frame) {
        if (!isOrdered(frame.reliability)) {
            deliver(std::move(frame.payload));
            return;
        }
        waiting_[frame.orderIndex] = std::move(frame.payload);
        for (auto next = waiting_.find(nextOrder_); next != waiting_.end(); next = waiting_.find(nextOrder_)) {
            deliver(std::move(next->second));
            waiting_.erase(next);
            ++nextOrder_;
        }
    }

    void deliver(Bytes payload) {
        if (!payload.empty() && payload[0] == 0xFE) {
            ready_.push_back(std::move(payload));
            return;
        }
        // A console answers the bridge's pings as they come, also while it
        // reads a long world: the pong is what keeps the connection alive
        // for a bridge that hears nothing else from it.
        if (payload.size() >= 9 && payload[0] == 0x00) {
            Bytes pong{0x03};
            pong.insert(pong.end(), payload.begin() + 1, payload.begin() + 9);
            auto now = static_cast<uint64_t>(foundation::Clock::currentTimeMillis());
            for (int shift = 56; shift >= 0; shift -= 8) {
                pong.push_back(static_cast<uint8_t>(now >> shift));
            }
            link_.sendFrames({link_.frame(std::move(pong), 0)});
        }
    }

    ConsoleLink& link_;
    FrameJoiner joiner_;
    std::map<uint32_t, Bytes> waiting_;
    uint32_t nextOrder_ = 0;
    std::deque<Bytes> ready_;
};

// --- One join ---------------------------------------------------------------------------

class Join {
public:
    Join(const ConsoleOptions& options, ConsoleReport& report)
        : options_(options),
          report_(report),
          deadline_(SteadyClock::now() + options.timeout),
          protocol_(options.protocol),
          raknetVersion_(options.raknetVersion.value_or(options.protocol >= bridge::v554 ? 11 : 10)) {}

    // The whole join, then a disconnect when a connection stands.
    void run();

private:
    std::chrono::milliseconds left() const {
        auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - SteadyClock::now());
        return std::max(rest, std::chrono::milliseconds(1));
    }
    bool problem(std::string text) {
        report_.problems.push_back(std::move(text));
        return false;
    }

    bool loadTables();
    bool discover();
    // One batch of packets in the framing the console has reached.
    void sendBatch(const std::vector<Bytes>& packets);
    // The one packet of the next batch, header and body.
    std::optional<Bytes> receivePacket(const std::string& expecting);
    bool expect(const std::string& name, const Pattern& packet);
    bool expect(const std::string& name, const bridge::DataPacket& packet) { return expect(name, exactly(bytesOf(packet))); }
    Bytes loginPacket() const;
    Bytes packResponse(bool completed) const;
    bool finishWithTransfer();
    void walkThrough();

    const ConsoleOptions& options_;
    ConsoleReport& report_;
    SteadyClock::time_point deadline_;
    const int32_t protocol_;
    const uint8_t raknetVersion_;
    std::optional<ConsoleLink> link_;
    std::optional<OrderedPayloads> payloads_;
    bool connected_ = false;
    bool compressed_ = false;
    bool algorithmByte_ = false;
    std::shared_ptr<const Tables> tables_;
};

bool Join::loadTables() {
    std::filesystem::path folder = options_.bundleFolder;
    if (folder.empty()) {
        auto found = bridge::ResourceBundle::find(bridge::ResourceBundle::candidateFolders());
        if (!found) {
            return problem("no resource bundle to check the tables against");
        }
        folder = found->folder();
    }
    tables_ = tablesIn(folder);
    if (!tables_) {
        return problem("resource files missing in " + folder.string());
    }
    // The oldest start-game layout carries the palette; a bridge in this
    // process has loaded the same file already.
    if (!bridge::WorldResources::get(bridge::WorldResource::requiredBlockStates)) {
        bridge::WorldResources::set(bridge::WorldResource::requiredBlockStates, foundation::ByteBuffer(tables_->palette));
    }
    return true;
}

bool Join::discover() {
    std::optional<Bytes> pong;
    do {
        link_->sendUnconnectedPing(foundation::Clock::currentTimeMillis());
        pong = link_->nextOffline(0x1C, options_.resendAfter ? std::min(left(), *options_.resendAfter) : left());
    } while (!pong && options_.resendAfter && SteadyClock::now() < deadline_);
    // id, client time, server id, magic, then the advert behind its 16-bit length
    if (!pong || pong->size() < 35) {
        return problem("no UnconnectedPong to the LAN ping");
    }
    size_t length = static_cast<size_t>((*pong)[33]) << 8 | (*pong)[34];
    if (pong->size() < 35 + length) {
        return problem("UnconnectedPong shorter than its advert");
    }
    report_.advert.assign(pong->begin() + 35, pong->begin() + 35 + static_cast<std::ptrdiff_t>(length));
    if (!report_.advert.starts_with("MCPE;")) {
        return problem("advert doesn't start with MCPE;: " + report_.advert);
    }
    return true;
}

void Join::sendBatch(const std::vector<Bytes>& packets) {
    Bytes entries;
    for (const auto& packet : packets) {
        writeVarInt(entries, packet.size());
        append(entries, packet);
    }
    Bytes payload{0xFE};
    if (compressed_) {
        if (algorithmByte_) {
            payload.push_back(0x00);
        }
        append(payload, rawDeflate(entries).value());
    } else {
        append(payload, entries);
    }
    link_->sendPayload(payload);
}

std::optional<Bytes> Join::receivePacket(const std::string& expecting) {
    auto payload = payloads_->nextGamePayload(deadline_);
    if (!payload) {
        problem("timed out waiting for " + expecting);
        return std::nullopt;
    }
    std::span<const uint8_t> body(payload->data() + 1, payload->size() - 1);
    bool deflated = compressed_;
    if (compressed_ && algorithmByte_) {
        if (body.empty() || (body[0] != 0x00 && body[0] != 0xFF)) {
            problem("batch for " + expecting + " doesn't name its compression: " + hexText(body));
            return std::nullopt;
        }
        deflated = body[0] == 0x00;
        body = body.subspan(1);
    }
    Bytes content;
    if (deflated) {
        auto inflated = rawInflate(body);
        if (!inflated) {
            problem("batch for " + expecting + " isn't a raw DEFLATE stream: " + hexText(body));
            return std::nullopt;
        }
        content = std::move(*inflated);
    } else {
        content.assign(body.begin(), body.end());
    }
    size_t at = 0;
    auto length = readVarInt(content, at);
    if (!length || at + *length != content.size()) {
        problem("batch for " + expecting + " doesn't hold exactly one packet: " + hexText(content));
        return std::nullopt;
    }
    return Bytes(content.begin() + static_cast<std::ptrdiff_t>(at), content.end());
}

bool Join::expect(const std::string& name, const Pattern& packet) {
    auto received = receivePacket(name);
    if (!received) {
        return false;
    }
    report_.received.push_back(name);
    if (received->size() != packet.size()) {
        return problem(name + " has " + std::to_string(received->size()) + " bytes, not " +
                       std::to_string(packet.size()) + ": " + hexText(*received));
    }
    for (size_t i = 0; i < packet.size(); ++i) {
        if (packet[i] && *packet[i] != (*received)[i]) {
            return problem(name + " differs at byte " + std::to_string(i) + ": " + hexText(*received));
        }
    }
    return true;
}

// The login of a console that isn't signed in: its own key signs a chain of
// one token with an empty XUID, inside the envelope of its protocol; from
// v944 on a token of claims names it, with no chain at all.
Bytes Join::loginPacket() const {
    int64_t now = foundation::Clock::currentTimeMillis() / 1000;
    SigningKey key;
    std::string publicKey = key.valid() ? key.publicKey() : base64(randomBytes(120));
    nlohmann::json header = {{"alg", "ES384"}, {"x5u", publicKey}};
    auto signedToken = [&key](const nlohmann::json& head, const nlohmann::json& body) {
        std::string content = base64Url(head.dump()) + "." + base64Url(body.dump());
        return content + "." + base64Url(key.sign(content));
    };
    nlohmann::json claims = {
        {"extraData",
         {{"XUID", ""}, {"identity", "2c3e0f5a-8f0e-4b1a-9a57-4e4c2d8b7c11"}, {"displayName", options_.displayName}}},
        {"identityPublicKey", publicKey},
        {"nbf", now - 60},
        {"exp", now + 86400},
    };
    std::string chain = nlohmann::json{{"chain", {signedToken(header, claims)}}}.dump();
    std::string identity = chain;
    if (protocol_ >= bridge::v944) {
        nlohmann::json token = {{"xname", options_.displayName}, {"xid", ""}, {"cpk", publicKey}, {"exp", now + 86400}};
        identity = nlohmann::json{{"AuthenticationType", 0}, {"Certificate", ""}, {"Token", signedToken(header, token)}}.dump();
    } else if (protocol_ >= bridge::v818) {
        identity = nlohmann::json{{"AuthenticationType", 2}, {"Certificate", chain}, {"Token", ""}}.dump();
    }
    std::string clientData = signedToken(
        header, {{"DeviceOS", 7}, {"SkinId", "Standard_Custom"}, {"ThirdPartyName", options_.displayName}});

    Bytes request;
    writeInt32(request, static_cast<int32_t>(identity.size()), false);
    request.insert(request.end(), identity.begin(), identity.end());
    writeInt32(request, static_cast<int32_t>(clientData.size()), false);
    request.insert(request.end(), clientData.begin(), clientData.end());

    Bytes packet;
    writeVarInt(packet, 1);
    writeInt32(packet, protocol_, true);
    writeVarInt(packet, request.size());
    append(packet, request);
    return packet;
}

// HAVE_ALL_PACKS or COMPLETED, with no pack ids; from v2168 the numbers start
// one lower, a name follows and the list is gone.
Bytes Join::packResponse(bool completed) const {
    if (protocol_ >= bridge::v2168) {
        return hex(completed ? "08 03 00" : "08 02 00");
    }
    return hex(completed ? "08 04 00 00" : "08 03 00 00");
}

bool Join::finishWithTransfer() {
    auto received = receivePacket("TransferPacket");
    if (!received) {
        return false;
    }
    size_t at = 0;
    auto header = readVarInt(*received, at);
    if (header && *header == bridge::DisconnectPacket::networkId) {
        report_.received.push_back("DisconnectPacket");
        // Behind the reason, from v622 on, the flag that shows the window.
        at += protocol_ >= bridge::v622 ? 1 : 0;
        if (at >= received->size() || (*received)[at] != 0) {
            return problem("DisconnectPacket hides its window");
        }
        ++at;
        auto length = readVarInt(*received, at);
        if (!length || at + *length > received->size()) {
            return problem("DisconnectPacket message malformed: " + hexText(*received));
        }
        report_.disconnectMessage.emplace(received->begin() + static_cast<std::ptrdiff_t>(at),
                                          received->begin() + static_cast<std::ptrdiff_t>(at + *length));
        return true;
    }
    report_.received.push_back("TransferPacket");
    report_.transferReadAt = SteadyClock::now();
    if (!header || *header != bridge::TransferPacket::networkId) {
        return problem("expected TransferPacket, got " + hexText(*received));
    }
    auto length = readVarInt(*received, at);
    if (!length || at + *length + 2 > received->size()) {
        return problem("TransferPacket body malformed: " + hexText(*received));
    }
    std::string address(received->begin() + static_cast<std::ptrdiff_t>(at),
                        received->begin() + static_cast<std::ptrdiff_t>(at + *length));
    size_t port = at + *length;
    auto portNumber = static_cast<uint16_t>((*received)[port] | (*received)[port + 1] << 8);
    // The whole packet as the bridge must write it for this protocol.
    if (*received != bytesOf(bridge::TransferPacket(protocol_, address, portNumber))) {
        return problem("TransferPacket doesn't have the layout of protocol " + std::to_string(protocol_) + ": " +
                       hexText(*received));
    }
    report_.transferAddress = address;
    report_.transferPort = portNumber;
    return true;
}

void Join::run() {
    walkThrough();
    if (connected_) {
        link_->sendDisconnect();
    }
}

void Join::walkThrough() {
    if (!loadTables()) {
        return;
    }
    std::optional<foundation::SocketAddress> server;
    try {
        server = foundation::SocketAddress::makeResolving(options_.host, options_.port);
    } catch (const std::exception& error) {
        problem(std::string("can't resolve the bridge: ") + error.what());
        return;
    }
    link_.emplace(*server);
    link_->resendAfter = options_.resendAfter;
    payloads_.emplace(*link_);
    if (!discover()) {
        return;
    }
    // Built ahead of the connection, so the time from the first request to
    // the hand-over is the bridge's and not the key generation's.
    const Bytes login = loginPacket();
    if (options_.beforeConnect) {
        options_.beforeConnect();
    }
    report_.connectSentAt = SteadyClock::now();
    if (!link_->connect(options_.mtu, raknetVersion_)) {
        problem("RakNet connection not accepted");
        return;
    }
    connected_ = true;

    const int32_t protocol = protocol_;
    if (raknetVersion_ >= 11) {
        Bytes request = hex("C1 01");  // RequestNetworkSettings, the protocol big-endian
        writeInt32(request, protocol, true);
        sendBatch({request});
        if (!expect("NetworkSettingsPacket", bridge::NetworkSettingsPacket())) {
            return;
        }
        algorithmByte_ = protocol >= bridge::v649;
    }
    compressed_ = true;

    // Newer consoles say right behind their login that they keep no chunk cache.
    if (protocol >= bridge::v567) {
        sendBatch({login, hex("81 01 00")});
    } else {
        sendBatch({login});
    }
    if (!expect("PlayStatusPacket LOGIN_SUCCESS", bridge::PlayStatusPacket(bridge::PlayStatusPacket::Status::LOGIN_SUCCESS)) ||
        !expect("ResourcePacksInfoPacket", bridge::ResourcePacksInfoPacket(protocol))) {
        return;
    }

    sendBatch({packResponse(false)});
    if (!expect("ResourcePackStackPacket", bridge::ResourcePackStackPacket(protocol))) {
        return;
    }
    if (protocol >= bridge::v944) {
        sendBatch({hex("D4 02")});  // ResourcePacksReadyForValidation
    }

    sendBatch({packResponse(true)});
    if (!expect("MovePlayerPacket", bridge::MovePlayerPacket(protocol)) ||
        !expect("StartGamePacket", startGamePattern(protocol))) {
        return;
    }
    sendBatch({hex("45 10 10")});  // RequestChunkRadius 8
    if (protocol >= bridge::v776 && !expect("ItemRegistryPacket", bridge::ItemRegistryPacket())) {
        return;
    }
    if (protocol >= bridge::v419 && !expect("CreativeContentPacket", bridge::CreativeContentPacket(protocol))) {
        return;
    }
    for (int32_t chunkX = -3; chunkX <= 2; ++chunkX) {
        for (int32_t chunkZ = -3; chunkZ <= 2; ++chunkZ) {
            std::string name = "LevelChunkPacket " + std::to_string(chunkX) + "," + std::to_string(chunkZ);
            if (!expect(name, bridge::LevelChunkPacket(protocol, chunkX, chunkZ))) {
                return;
            }
        }
    }
    bridge::BiomeDefinitionListPacket biomes(protocol);
    bool biomeTable = protocol < bridge::v800;
    if (!expect("BiomeDefinitionListPacket", biomeTable ? tablePattern(biomes, tables_->biomes) : exactly(bytesOf(biomes))) ||
        !expect("AvailableEntityIdentifiersPacket", tablePattern(bridge::AvailableEntityIdentifiersPacket(), tables_->entities)) ||
        !expect("PlayStatusPacket PLAYER_SPAWN", bridge::PlayStatusPacket(bridge::PlayStatusPacket::Status::PLAYER_SPAWN))) {
        return;
    }

    sendBatch({hex("71 01")});  // SetLocalPlayerAsInitialized, runtime entity 1
    finishWithTransfer();
}

}  // namespace

SimulatedConsole::SimulatedConsole(ConsoleOptions options) : options_(std::move(options)) {}

ConsoleReport SimulatedConsole::join() {
    ConsoleReport report;
    Join(options_, report).run();
    return report;
}

}  // namespace ferrylink::sim
