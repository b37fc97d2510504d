// Every decoder that a peer or a user reaches, one libFuzzer target each, in
// one program called by the target's name (fuzz_login links to it). Targets of
// a connection split the input into datagrams at each "||". A crash, a
// sanitizer report or a fatal fault is a finding.
#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <filesystem>
#include <future>
#include <memory>

#include "app/backend_records.h"
#include "app/web/json_http.h"
#include "backend/records.h"
#include "bridge/packets/batch_packet.h"
#include "bridge/packets/client_signal_packets.h"
#include "bridge/packets/login_packet.h"
#include "bridge/packets/packet_violation_warning_packet.h"
#include "bridge/packets/resource_pack_client_response_packet.h"
#include "bridge/packets/web_token.h"
#include "bridge/server_link.h"
#include "foundation/clock.h"
#include "foundation/event_loop.h"
#include "raknet/connection.h"
#include "raknet/listener.h"
#include "raknet/packets/acknowledge_packet.h"
#include "raknet/packets/connected_packets.h"
#include "raknet/packets/datagram.h"
#include "raknet/packets/offline_packets.h"
#include "raknet/server_info.h"

namespace ferrylink::fuzz {

namespace {

using foundation::ByteBuffer;
using Bytes = std::span<const uint8_t>;
using nlohmann::json;

std::string_view text(Bytes input) { return {reinterpret_cast<const char*>(input.data()), input.size()}; }

template <typename Visit>
void forEachDatagram(Bytes input, Visit visit) {
    std::string_view rest = text(input);
    // A listener reads 64 datagrams per wake-up; fewer keeps one input in one read.
    for (int count = 0; count < 32; ++count) {
        size_t marker = rest.find("||");
        auto datagram = rest.substr(0, marker);
        visit(Bytes(reinterpret_cast<const uint8_t*>(datagram.data()), datagram.size()));
        if (marker == std::string_view::npos) {
            return;
        }
        rest.remove_prefix(marker + 2);
    }
}

class Quiet : public raknet::Printer, public raknet::ConnectionListener, public bridge::ServerLink {
public:
    void print(const std::string&) override {}
    void print(std::string_view) override {}
    foundation::ByteBufferAllocator channelAllocator() override { return {}; }
    void onEncapsulated(ByteBuffer, const foundation::SocketAddress&) override {}
    void onCloseConnection(const foundation::SocketAddress&, const std::string&) override {}
    void onOpenConnection(const std::shared_ptr<raknet::Connection>&) override {}
};

const std::shared_ptr<Quiet>& quiet() {
    static auto instance = [] {
        auto made = std::make_shared<Quiet>();
        bridge::ServerLink::install(made);
        return made;
    }();
    return instance;
}

template <typename... Packets>
void decodeEach(Bytes input) {
    ((void)[&] {
        ByteBuffer buffer(input);
        (void)Packets().decode(buffer);
    }(), ...);
}

template <auto decode, typename... Context>
void decodeBody(Bytes input, Context... context) {
    ByteBuffer body(input);
    (void)decode(body, context...);
}

void raknetPackets(Bytes input) {
    using namespace raknet;
    decodeEach<UnconnectedPing, UnconnectedPong, OpenConnectionRequest1, OpenConnectionRequest2, ConnectedPing,
               ConnectionRequest, NewIncomingConnection, Datagram, ACK>(input);
}

// A connected peer of a listener that has no socket: everything it would send
// is encoded and dropped.
void raknetConnection(Bytes input) {
    static auto listener = [] {
        auto made = std::make_shared<raknet::Listener>();
        made->printer = quiet();
        made->connectionListener = quiet();
        return made;
    }();
    static const auto peer = foundation::SocketAddress::makeResolving("127.0.0.1", 19133);
    // Half-open at first, as after the offline requests; the seeds bring the handshake.
    auto connection = std::make_shared<raknet::Connection>(listener, 1372, peer, 11);
    forEachDatagram(input, [&](Bytes datagram) {
        connection->receive(ByteBuffer(datagram));
        connection->update(foundation::Clock::currentTimeMillis());
    });
}

// A real listener on 127.0.0.1, sent the datagrams from one loopback socket.
class LoopbackListener {
public:
    LoopbackListener() {
        listener_->printer = quiet();
        auto advert = std::make_shared<raknet::ServerInfo>("Ferrylink", "Join me!", 560, "1.19.50", 0, 99, "Creative", 0);
        if (!listener_->bind(quiet(), advert, "127.0.0.1", 0, group_)) {
            std::abort();
        }
        to_.sin_family = AF_INET;
        to_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        to_.sin_port = htons(static_cast<uint16_t>(listener_->channel->localAddress()->port().value_or(0)));
        socket_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    }

    void feed(Bytes input) {
        forEachDatagram(input, [&](Bytes datagram) {
            ::sendto(socket_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to_), sizeof to_);
        });
        // Loopback delivers at once, and the loop reads what is waiting before
        // it runs tasks: this one runs after the datagrams, and empties the
        // table so that every input meets a listener without peers.
        std::promise<void> done;
        listener_->channel->eventLoop()->execute([&] {
            auto table = listener_->connections();
            for (const auto& entry : table) {
                listener_->dropConnection(entry.second, "fuzz");
            }
            done.set_value();
        });
        done.get_future().wait();
        uint8_t reply[2048];
        while (::recv(socket_, reply, sizeof reply, 0) > 0) {
        }
    }

private:
    std::shared_ptr<foundation::MultiThreadedEventLoopGroup> group_ =
        std::make_shared<foundation::MultiThreadedEventLoopGroup>(1);
    std::shared_ptr<raknet::Listener> listener_ = std::make_shared<raknet::Listener>();
    sockaddr_in to_{};
    int socket_ = -1;
};

void raknetListener(Bytes input) {
    // Never destroyed: the loop thread must outlive every input.
    static auto* server = new LoopbackListener();
    server->feed(input);
}

void serverInfo(Bytes input) { (void)raknet::ServerInfo::parse(text(input)); }

void batch(Bytes input) {
    quiet();
    using bridge::CompressionAlgorithm;
    for (auto framing : {bridge::BatchFraming{}, bridge::BatchFraming{CompressionAlgorithm::ZLIB, false},
                         bridge::BatchFraming{CompressionAlgorithm::ZLIB, true}}) {
        bridge::BatchPacket packet(framing);
        ByteBuffer body(input);
        if (packet.decode(body)) {
            (void)packet.getPackets();
        }
    }
}

void login(Bytes input) {
    quiet();
    decodeBody<bridge::LoginPacket::decode>(input);
}

void webToken(Bytes input) { (void)bridge::WebToken::decode(std::string(text(input))); }

void clientPackets(Bytes input) {
    decodeBody<bridge::RequestNetworkSettingsPacket::decode>(input);
    decodeBody<bridge::SetLocalPlayerAsInitializedPacket::decode>(input);
    decodeBody<bridge::PacketViolationWarningPacket::decode>(input);
    decodeBody<bridge::ResourcePackClientResponsePacket::decode>(input, 560);
    decodeBody<bridge::ResourcePackClientResponsePacket::decode>(input, 2168);
}

// The bodies of the app's page server and of the backend's /postLog, read
// member by member as their routes do; a refusal is an HttpError, anything
// else thrown is a finding.
void webJson(Bytes input) {
    httplib::Request request;
    request.body = std::string(text(input));
    request.headers.emplace("Content-Type", "application/json");
    try {
        json body = http::objectBody(request);
        for (const char* name : {"page", "ip", "port", "key", "serverIp", "serverPort", "clientIp"}) {
            try {
                (void)http::stringMember(body, name);
            } catch (const http::HttpError&) {
            }
        }
        (void)http::booleanMember(body, "featured");
    } catch (const http::HttpError&) {
    }
}

// What the app reads from the backend, and the backend's own listing of what
// a client posted.
void backendJson(Bytes input) {
    std::string_view body = text(input);
    (void)app::decodeSkippingBadElements<app::BlacklistServer>(body, app::decodeBlacklistServer);
    (void)app::decodeSkippingBadElements<app::Message>(body, app::decodeMessage);
    (void)app::decodeSkippingBadElements<app::PartneredServer>(body, app::decodePartneredServer);
    backend::LogEntry entry;
    entry.body = std::string(body);
    entry.serverIp = entry.body;
    (void)backend::dumpJson(backend::listingJson(entry), 2);
}

struct FuzzTarget {
    std::string_view name;
    void (*run)(Bytes input);
};

const FuzzTarget targets[] = {
    {"raknet_packets", raknetPackets},
    {"raknet_connection", raknetConnection},
    {"raknet_listener", raknetListener},
    {"server_info", serverInfo},
    {"batch", batch},
    {"login", login},
    {"web_token", webToken},
    {"client_packets", clientPackets},
    {"web_json", webJson},
    {"backend_json", backendJson},
};

const FuzzTarget* target = nullptr;

}  // namespace
}  // namespace ferrylink::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char*** argv) {
    using namespace ferrylink::fuzz;
    std::string name = std::filesystem::path((*argv)[0]).filename().string();
    for (const auto& candidate : targets) {
        if (name == "fuzz_" + std::string(candidate.name)) {
            target = &candidate;
        }
    }
    if (!target) {
        std::fprintf(stderr, "%s is the name of no fuzz target\n", name.c_str());
        std::exit(2);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ferrylink::fuzz::target->run({data, size});
    return 0;
}
