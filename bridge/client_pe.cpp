#include "bridge/client_pe.h"

#include "foundation/fatal.h"
#include "foundation/socket_address.h"

namespace ferrylink::bridge {

using foundation::fatalFault;

ClientPe::ClientPe(int hostPort, std::string hostIp)
    : hostIp(std::move(hostIp)), hostPort(hostPort), serverQueue(serverQueueLabel) {}

void ClientPe::setPrinter(std::shared_ptr<raknet::Printer> printer) {
    std::lock_guard lock(mutex_);
    printer_ = std::move(printer);
}

std::shared_ptr<raknet::Printer> ClientPe::printer() const {
    std::lock_guard lock(mutex_);
    return printer_;
}

std::shared_ptr<raknet::Client> ClientPe::client() const {
    std::lock_guard lock(mutex_);
    return client_;
}

void ClientPe::start(std::shared_ptr<foundation::EventLoopGroup> group) {
    auto made = std::make_shared<raknet::Client>();
    {
        std::lock_guard lock(mutex_);
        client_ = made;
        group_ = group;
        made->printer = printer_;
    }
    auto closeFuture = made->bind(hostIp, hostPort, group);
    foundation::DispatchQueue::global().async([closeFuture, self = shared_from_this()] {
        if (!closeFuture) {
            return;
        }
        try {
            closeFuture->wait();
        } catch (...) {
            std::string text = foundation::errorDescription(std::current_exception());
            foundation::DispatchQueue::main().async([self, text] { self->printer()->print(text); });
        }
    });
}

foundation::EventLoopFuture<std::shared_ptr<raknet::ServerInfo>> ClientPe::ping(const std::string& host, int port) {
    std::optional<foundation::SocketAddress> address;
    try {
        address = foundation::SocketAddress::makeResolving(host, port);
    } catch (const foundation::SocketAddressError&) {
        // The look-up's own error is dropped: to the caller an unknown host
        // looks like a server that didn't answer.
    }
    if (address) {
        auto current = client();
        if (!current) {
            fatalFault();
        }
        return current->ping(*address);
    }
    std::shared_ptr<foundation::EventLoopGroup> group;
    {
        std::lock_guard lock(mutex_);
        group = group_;
    }
    if (!group) {
        fatalFault();
    }
    auto promise = group->next()->makePromise<std::shared_ptr<raknet::ServerInfo>>();
    promise.fail(raknet::TimeoutError("msg"));
    return promise.futureResult();
}

void ClientPe::stop() {
    serverQueue.async([self = shared_from_this()] {
        self->shutdown = true;
        std::shared_ptr<raknet::Client> closing;
        {
            std::lock_guard lock(self->mutex_);
            closing = std::move(self->client_);
        }
        if (!closing) {
            fatalFault();
        }
        closing->close();
        self->printer()->print("Server shutting down!");
    });
}

}  // namespace ferrylink::bridge
