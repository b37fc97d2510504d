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

#include "bridge/resource_bundle.h"
#include "foundation/clock.h"
#include "foundation/socket_address.h"
#include "support/raknet_peer.h"

namespace ferrylink::testing {

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

void append(Bytes& to, std::span<const uint8_t> more) { to.insert(to.end(), more.begin(), more.end()); }

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

void writeInt32(Bytes& to, int32_t value, bool bigEndian) {
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
    static constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string text;
    uint32_t bits = 0;
    int count = 0;
    for (uint8_t byte : bytes) {
        bits = bits << 8 | byte;
        count += 8;
        while (count >= 6) {
            count -= 6;
            text += alphabet[(bits >> count) & 0x3F];
        }
    }
    if (count > 0) {
        text += alphabet[(bits << (6 - count)) & 0x3F];
    }
    return text;
}

std::string base64Url(std::string_view text) {
    return base64Url(std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

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

// The ten start-game layouts, oldest first.
enum Layout { L408, L419, L428, L440, L465, L475, L503, L526, L534, L544 };
constexpr std::array<const char*, 10> layoutNames = {
    "StartGamePacket",     "StartGamePacket_419", "StartGamePacket_428", "StartGamePacket_440",
    "StartGamePacket_465", "StartGamePacket_475", "StartGamePacket_503", "StartGamePacket_526",
    "StartGamePacket_534", "StartGamePacket_544"};

Layout layoutFor(int32_t protocol) {
    constexpr std::array<int32_t, 9> lastOf = {408, 427, 439, 464, 474, 502, 525, 533, 542};
    for (size_t i = 0; i < lastOf.size(); ++i) {
        if (protocol <= lastOf[i]) {
            return static_cast<Layout>(i);
        }
    }
    return L544;
}

// The wire rows of the start-game record: bytes, and the layouts that have them.
struct Row {
    const char* bytes;
    Layout from;
    Layout until;
};
constexpr const char* palette = "palette";
constexpr const char* random16 = "random16";

constexpr Row startGameRows[] = {
    {"82 00", L408, L544},                                     // entityUniqueId
    {"81 00", L408, L544},                                     // entityRuntimeId
    {"82 00", L408, L544},                                     // playerGameMode
    {"00 00 00 00", L408, L544},                               // positionX
    {"00 00 84 42", L408, L428},                               // positionY 66
    {"00 00 00 00", L440, L544},                               // positionY 0
    {"00 00 00 00", L408, L544},                               // positionZ
    {"00 00 00 00 00 00 00 00", L408, L428},                   // pitch, yaw 0
    {"00 00 80 3F 00 00 80 3F", L440, L544},                   // pitch, yaw 1
    {"81 00", L408, L475},                                     // seed -1, var-int
    {"FF FF FF FF FF FF FF FF", L503, L544},                   // seed -1, 64 bits
    {"00 00 00", L408, L544},                                  // biomeType, biomeName
    {"84 00", L408, L428},                                     // dimension 2
    {"00", L440, L544},                                        // dimension 0
    {"82 00 00", L408, L544},                                  // generator, worldGameMode
    {"00", L534, L544},                                        // hardcore
    {"00 00 00 00 00 00 00 00 00", L408, L544},                // difficulty .. educationProductId
    {"00 00 00 00 00 00 00 00", L408, L544},                   // rainLevel, lightningLevel
    {"00 01 01 88 00 88 00 01 00 00", L408, L544},             // platformLocked .. gameRuleCount
    {"00 00 00 00 00", L419, L544},                            // experiments
    {"00 00 00", L408, L544},                                  // bonusChest, startWithMap, permission
    {"00 00 00 04", L408, L408},                               // serverChunkTickRadius, big-endian
    {"04 00 00 00", L419, L544},                               // serverChunkTickRadius
    {"00 00 00 00 00 00 01", L408, L544},                      // locks .. onlySpawnV1Villagers
    {"00 00", L544, L544},                                     // persona, customSkins
    {"81 00 2A", L408, L465},                                  // gameVersion "*"
    {"87 00 31 2E 31 37 2E 34 30", L475, L544},                // gameVersion "1.17.40"
    {"00 00 00 00 00 00 00 00 00", L408, L544},                // limitedWorld, newNether
    {"00 00", L465, L544},                                     // educationButtonName, educationLinkUri
    {"00 00", L544, L544},                                     // experimental override
    {"00", L408, L544},                                        // experimentalGameplay
    {"00", L408, L428},                                        // levelId ""
    {"85 00 77 6F 72 6C 64", L440, L544},                      // levelId "world"
    {"89 00 4C 41 4E 20 50 72 6F 78 79", L408, L544},          // worldName "LAN Proxy"
    {"00", L408, L428},                                        // templateContentId ""
    {"A4 00 30 30 30 30 30 30 30 30 2D 30 30 30 30 2D 30 30 30 30 2D 30 30 30 30 2D 30 30 30 30 30 30 30 30 30 30 30 "
     "30",
     L440, L544},                                              // templateContentId, nil UUID
    {"00 00", L408, L544},                                     // demoWorld, movementMode
    {"00 00", L428, L544},                                     // movementRewindSize, authoritative breaking
    {"00 00 00 00 00 00 00 00 00", L408, L544},                // currentTick, enchantmentSeed
    {palette, L408, L408},                                     // block palette
    {"00", L419, L544},                                        // blockPropertyCount
    {"00 00", L408, L544},                                     // itemTableCount, correlation id
    {"01", L408, L408},                                        // inventoryFlag 1
    {"00", L419, L544},                                        // inventoryFlag 0
    {"00", L440, L544},                                        // serverEngine
    {"0A 00 00", L526, L544},                                  // propertyData
    {"00 00 00 00 00 00 00 00", L475, L544},                   // blockRegistryChecksum
    {random16, L526, L544},                                    // worldTemplateId
    {"00", L544, L544},                                        // clientSideGeneration
};

Pattern startGameBody(Layout layout, const Bytes& paletteBytes) {
    Pattern body;
    for (const Row& row : startGameRows) {
        if (layout < row.from || layout > row.until) {
            continue;
        }
        std::string_view bytes = row.bytes;
        if (bytes == palette) {
            body.insert(body.end(), paletteBytes.begin(), paletteBytes.end());
        } else if (bytes == random16) {
            body.insert(body.end(), 16, std::nullopt);
        } else {
            for (uint8_t byte : hex(bytes)) {
                body.emplace_back(byte);
            }
        }
    }
    return body;
}

// The coordinates -3 to 2 as the bridge's var-int writer puts them.
Bytes chunkCoordinate(int32_t value) {
    switch (value) {
        case -3:
            return hex("85 00");
        case -2:
            return hex("83 00");
        case -1:
            return hex("81 00");
        case 0:
            return hex("00");
        case 1:
            return hex("82 00");
        default:
            return hex("84 00");
    }
}

Bytes chunkBody(int32_t chunkX, int32_t chunkZ) {
    Bytes body = chunkCoordinate(chunkX);
    append(body, chunkCoordinate(chunkZ));
    append(body, hex("00 00 82 82 00 0A 00 00"));
    body.insert(body.end(), 255, 0x00);
    return body;
}

// Header bytes of every packet the bridge sends, by the var-int writer of the
// bridge: ids below 128 in two bytes, 143 and 145 in three.
Bytes headerOf(uint8_t id) {
    switch (id) {
        case 2:
            return hex("82 00");
        case 5:
            return hex("85 00");
        case 6:
            return hex("86 00");
        case 7:
            return hex("87 00");
        case 11:
            return hex("8B 00");
        case 19:
            return hex("93 00");
        case 58:
            return hex("BA 00");
        case 85:
            return hex("D5 00");
        case 119:
            return hex("F7 00");
        case 122:
            return hex("FA 00");
        case 143:
            return hex("8F 81 00");
        case 145:
            return hex("91 81 00");
        default:
            return {};
    }
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

// Reads the connection as a console does: drops retransmitted copies, joins
// fragments, and hands out ordered frames by their order index, not by their
// arrival (a split payload leaves the server at once and may overtake smaller
// ones queued before it).
class OrderedPayloads {
public:
    explicit OrderedPayloads(RakNetPeer& peer) : peer_(peer) {}

    std::optional<Bytes> nextGamePayload(SteadyClock::time_point deadline) {
        while (ready_.empty()) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - SteadyClock::now());
            if (left.count() <= 0) {
                return std::nullopt;
            }
            auto datagram = peer_.nextDatagram(left);
            if (!datagram) {
                return std::nullopt;
            }
            for (auto& frame : datagram->frames) {
                take(std::move(frame));
            }
        }
        Bytes payload = std::move(ready_.front());
        ready_.pop_front();
        return payload;
    }

private:
    static bool isOrdered(int reliability) { return reliability == 3 || reliability == 7; }

    void take(PeerFrame frame) {
        if (frame.messageIndex && !seen_.insert(*frame.messageIndex).second) {
            return;
        }
        if (frame.split) {
            auto& parts = splits_[frame.splitId];
            parts[frame.splitIndex] = std::move(frame.payload);
            if (static_cast<int32_t>(parts.size()) != frame.splitCount) {
                return;
            }
            Bytes whole;
            for (auto& [index, part] : parts) {
                append(whole, part);
            }
            splits_.erase(frame.splitId);
            frame.payload = std::move(whole);
        }
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
        }
    }

    RakNetPeer& peer_;
    std::set<uint32_t> seen_;
    std::map<uint16_t, std::map<int32_t, Bytes>> splits_;
    std::map<uint32_t, Bytes> waiting_;
    uint32_t nextOrder_ = 0;
    std::deque<Bytes> ready_;
};

// --- One join ---------------------------------------------------------------------------

class Join {
public:
    Join(const ConsoleOptions& options, ConsoleReport& report)
        : options_(options), report_(report), deadline_(SteadyClock::now() + options.timeout) {}

    // The whole join, then a disconnect when a connection stands.
    void run();

private:
    struct Received {
        uint8_t id = 0;
        Bytes header;
        Bytes body;
    };

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
    void sendPacket(const Bytes& packet);
    std::optional<Received> receivePacket(const std::string& expecting);
    bool expect(const std::string& name, uint8_t id, const Pattern& body);
    Bytes loginPacket() const;
    bool finishWithTransfer();
    void walkThrough();

    const ConsoleOptions& options_;
    ConsoleReport& report_;
    SteadyClock::time_point deadline_;
    std::optional<RakNetPeer> peer_;
    std::optional<OrderedPayloads> payloads_;
    bool connected_ = false;
    bool compressed_ = false;
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
    return true;
}

bool Join::discover() {
    std::optional<Bytes> pong;
    do {
        peer_->sendUnconnectedPing(foundation::Clock::currentTimeMillis());
        pong = peer_->nextOffline(0x1C, options_.resendAfter ? std::min(left(), *options_.resendAfter) : left());
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

void Join::sendPacket(const Bytes& packet) {
    Bytes entries;
    writeVarInt(entries, packet.size());
    append(entries, packet);
    Bytes payload{0xFE};
    if (compressed_) {
        append(payload, rawDeflate(entries).value());
    } else {
        append(payload, entries);
    }
    peer_->sendPayload(payload);
}

std::optional<Join::Received> Join::receivePacket(const std::string& expecting) {
    auto payload = payloads_->nextGamePayload(deadline_);
    if (!payload) {
        problem("timed out waiting for " + expecting);
        return std::nullopt;
    }
    std::span<const uint8_t> body(payload->data() + 1, payload->size() - 1);
    Bytes content;
    if (compressed_) {
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
    size_t headerStart = at;
    auto header = readVarInt(content, at);
    if (!header) {
        problem("packet header cut short for " + expecting);
        return std::nullopt;
    }
    Received received;
    received.id = static_cast<uint8_t>(*header & 0xFF);
    received.header.assign(content.begin() + static_cast<std::ptrdiff_t>(headerStart),
                           content.begin() + static_cast<std::ptrdiff_t>(at));
    received.body.assign(content.begin() + static_cast<std::ptrdiff_t>(at), content.end());
    return received;
}

bool Join::expect(const std::string& name, uint8_t id, const Pattern& body) {
    auto received = receivePacket(name);
    if (!received) {
        return false;
    }
    report_.received.push_back(name);
    if (received->id != id) {
        return problem("expected " + name + " (id " + std::to_string(id) + "), got id " + std::to_string(received->id));
    }
    if (received->header != headerOf(id)) {
        return problem(name + " header is " + hexText(received->header) + ", not " + hexText(headerOf(id)));
    }
    if (received->body.size() != body.size()) {
        return problem(name + " body has " + std::to_string(received->body.size()) + " bytes, not " +
                       std::to_string(body.size()) + ": " + hexText(received->body));
    }
    for (size_t i = 0; i < body.size(); ++i) {
        if (body[i] && *body[i] != received->body[i]) {
            return problem(name + " body differs at byte " + std::to_string(i) + ": " + hexText(received->body));
        }
    }
    return true;
}

Bytes Join::loginPacket() const {
    int64_t now = foundation::Clock::currentTimeMillis() / 1000;
    SigningKey key;
    std::string publicKey = key.valid() ? key.publicKey() : base64(randomBytes(120));
    nlohmann::json header = {{"alg", "ES384"}, {"x5u", publicKey}};
    nlohmann::json claims = {
        {"extraData",
         {{"XUID", ""}, {"identity", "2c3e0f5a-8f0e-4b1a-9a57-4e4c2d8b7c11"}, {"displayName", options_.displayName}}},
        {"identityPublicKey", publicKey},
        {"nbf", now - 60},
        {"exp", now + 86400},
    };
    // Self-signed: no authority stands behind a console that isn't signed in.
    auto signedToken = [&key](const nlohmann::json& head, const nlohmann::json& body) {
        std::string content = base64Url(head.dump()) + "." + base64Url(body.dump());
        return content + "." + base64Url(key.sign(content));
    };
    std::string chain = nlohmann::json{{"chain", {signedToken(header, claims)}}}.dump();
    std::string clientData = signedToken(header, {{"DeviceOS", 7}, {"SkinId", "Standard_Custom"}});

    Bytes request;
    writeInt32(request, static_cast<int32_t>(chain.size()), false);
    request.insert(request.end(), chain.begin(), chain.end());
    writeInt32(request, static_cast<int32_t>(clientData.size()), false);
    request.insert(request.end(), clientData.begin(), clientData.end());

    Bytes packet;
    writeVarInt(packet, 1);
    writeInt32(packet, options_.protocol, true);
    writeVarInt(packet, request.size());
    append(packet, request);
    return packet;
}

bool Join::finishWithTransfer() {
    auto received = receivePacket("TransferPacket");
    if (!received) {
        return false;
    }
    size_t at = 0;
    auto length = readVarInt(received->body, at);
    if (received->id == 5) {
        report_.received.push_back("DisconnectPacket");
        if (received->body.empty() || received->body[0] != 0) {
            return problem("DisconnectPacket hides its window");
        }
        at = 1;
        length = readVarInt(received->body, at);
        if (!length || at + *length != received->body.size()) {
            return problem("DisconnectPacket message malformed: " + hexText(received->body));
        }
        report_.disconnectMessage.emplace(received->body.begin() + static_cast<std::ptrdiff_t>(at), received->body.end());
        return true;
    }
    report_.received.push_back("TransferPacket");
    report_.transferReadAt = SteadyClock::now();
    if (received->id != 85) {
        return problem("expected TransferPacket, got id " + std::to_string(received->id));
    }
    if (received->header != headerOf(85)) {
        return problem("TransferPacket header is " + hexText(received->header));
    }
    if (!length || at + *length + 2 != received->body.size()) {
        return problem("TransferPacket body malformed: " + hexText(received->body));
    }
    report_.transferAddress.emplace(received->body.begin() + static_cast<std::ptrdiff_t>(at),
                                    received->body.begin() + static_cast<std::ptrdiff_t>(at + *length));
    size_t port = at + *length;
    report_.transferPort = static_cast<uint16_t>(received->body[port] | received->body[port + 1] << 8);
    return true;
}

void Join::run() {
    walkThrough();
    if (connected_) {
        peer_->sendDisconnect();
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
    peer_.emplace(*server);
    peer_->resendAfter = options_.resendAfter;
    payloads_.emplace(*peer_);
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
    if (!peer_->connect(options_.mtu, options_.raknetVersion)) {
        problem("RakNet connection not accepted");
        return;
    }
    connected_ = true;

    const int32_t protocol = options_.protocol;
    if (options_.raknetVersion >= 11) {
        Bytes request;
        writeVarInt(request, 193);
        writeInt32(request, protocol, true);
        sendPacket(request);
        if (!expect("NetworkSettingsPacket", 143, exactly(hex("01 00 00 00 00 00 00 00 00 00")))) {
            return;
        }
    }
    compressed_ = true;

    sendPacket(login);
    if (!expect("PlayStatusPacket LOGIN_SUCCESS", 2, exactly(hex("00 00 00 00")))) {
        return;
    }
    bool newInfo = protocol > 440;
    if (!expect(newInfo ? "ResourcePacksInfoPacket_448" : "ResourcePacksInfoPacket_422", 6,
                exactly(Bytes(newInfo ? 7 : 6, 0x00)))) {
        return;
    }

    sendPacket(hex("08 03 00 00"));  // HAVE_ALL_PACKS, no pack ids
    bool newStack = protocol >= 409;
    if (!expect(newStack ? "ResourcePackStackPacket_419" : "ResourcePackStackPacket", 7,
                exactly(hex(newStack ? "00 00 00 81 00 2A 00 00 00 00 00" : "00 00 00 00 81 00 2A")))) {
        return;
    }

    sendPacket(hex("08 04 00 00"));  // COMPLETED
    Bytes move = hex("81 00");
    move.insert(move.end(), 28, 0x00);
    if (!expect("MovePlayerPacket", 19, exactly(move))) {
        return;
    }
    Layout layout = layoutFor(protocol);
    if (!expect(layoutNames[layout], 11, startGameBody(layout, tables_->palette))) {
        return;
    }
    if (protocol >= 409 && !expect("CreativeContentPacket", 145, exactly(hex("00")))) {
        return;
    }
    for (int32_t chunkX = -3; chunkX <= 2; ++chunkX) {
        for (int32_t chunkZ = -3; chunkZ <= 2; ++chunkZ) {
            std::string name = "LevelChunkPacket " + std::to_string(chunkX) + "," + std::to_string(chunkZ);
            if (!expect(name, 58, exactly(chunkBody(chunkX, chunkZ)))) {
                return;
            }
        }
    }
    if (!expect("BiomeDefinitionListPacket", 122, exactly(tables_->biomes)) ||
        !expect("AvailableEntityIdentifiersPacket", 119, exactly(tables_->entities)) ||
        !expect("PlayStatusPacket PLAYER_SPAWN", 2, exactly(hex("00 00 00 03")))) {
        return;
    }

    sendPacket(hex("71 01"));  // SetLocalPlayerAsInitialized, runtime entity 1
    finishWithTransfer();
}

}  // namespace

SimulatedConsole::SimulatedConsole(ConsoleOptions options) : options_(std::move(options)) {}

ConsoleReport SimulatedConsole::join() {
    ConsoleReport report;
    Join(options_, report).run();
    return report;
}

}  // namespace ferrylink::testing
