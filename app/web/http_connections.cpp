#include "app/web/http_connections.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#ifdef CPPHTTPLIB_OPENSSL_SUPPORT
#include <openssl/ssl.h>
#endif

namespace ferrylink::http {

using Clock = std::chrono::steady_clock;

namespace {

// What a client may still send after its answer, read and dropped before
// the close, so that the answer isn't lost to a reset.
constexpr std::size_t kLingerBytes = 256 * 1024;
constexpr std::chrono::milliseconds kLinger{500};

int remainingMs(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 60'000));
}

// Waits until `fd` is ready for `events` or the deadline passes.
bool waitFor(int fd, short events, Clock::time_point deadline) {
    for (;;) {
        pollfd entry{fd, events, 0};
        int ready = ::poll(&entry, 1, remainingMs(deadline));
        if (ready > 0) {
            return true;
        }
        if (ready == 0 || errno != EINTR) {
            return false;
        }
    }
}

std::string addressText(const sockaddr_storage& address, int& port) {
    char text[INET6_ADDRSTRLEN] = {};
    if (address.ss_family == AF_INET) {
        const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
        ::inet_ntop(AF_INET, &v4.sin_addr, text, sizeof(text));
        port = ntohs(v4.sin_port);
    } else if (address.ss_family == AF_INET6) {
        const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
        ::inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof(text));
        port = ntohs(v6.sin6_port);
    }
    return text;
}

std::string peerOf(int fd, int& port) {
    sockaddr_storage address{};
    socklen_t length = sizeof(address);
    if (::getpeername(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return {};
    }
    return addressText(address, port);
}

// One connection as httplib reads and writes it: the reads against the
// request's one deadline, each write against its own timeout, over the
// socket or over TLS on it. The socket is non-blocking.
class DeadlineStream : public httplib::Stream {
public:
    DeadlineStream(int fd, Clock::time_point readDeadline, std::chrono::milliseconds writeTimeout, void* tls)
        : fd_(fd), readDeadline_(readDeadline), writeTimeout_(writeTimeout), tls_(tls) {}

    bool is_readable() const override { return pending() || waitFor(fd_, POLLIN, readDeadline_); }
    bool is_writable() const override { return waitFor(fd_, POLLOUT, Clock::now() + writeTimeout_); }

    ssize_t read(char* bytes, size_t size) override {
        for (;;) {
            if (!pending() && !waitFor(fd_, POLLIN, readDeadline_)) {
                return -1;
            }
            ssize_t got = 0;
            short wants = 0;
            if (!transfer(bytes, size, /*reading=*/true, got, wants)) {
                return -1;
            }
            if (got > 0 || wants == 0) {
                return got;
            }
            if (wants == POLLOUT && !waitFor(fd_, POLLOUT, readDeadline_)) {
                return -1;
            }
        }
    }

    ssize_t write(const char* bytes, size_t size) override {
        Clock::time_point deadline = Clock::now() + writeTimeout_;
        for (;;) {
            ssize_t put = 0;
            short wants = 0;
            if (!transfer(const_cast<char*>(bytes), size, /*reading=*/false, put, wants)) {
                return -1;
            }
            if (put > 0 || wants == 0) {
                return put;
            }
            if (!waitFor(fd_, wants, deadline)) {
                return -1;
            }
        }
    }

    void get_remote_ip_and_port(std::string& ip, int& port) const override { ip = peerOf(fd_, port); }

    void get_local_ip_and_port(std::string& ip, int& port) const override {
        sockaddr_storage address{};
        socklen_t length = sizeof(address);
        if (::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
            ip = addressText(address, port);
        }
    }

    socket_t socket() const override { return fd_; }

private:
    bool pending() const {
#ifdef CPPHTTPLIB_OPENSSL_SUPPORT
        return tls_ != nullptr && SSL_pending(static_cast<SSL*>(tls_)) > 0;
#else
        return false;
#endif
    }

    // One read or write. False for a failure; otherwise `done` bytes, or
    // none with `wants` telling what to wait for (0: the peer has closed).
    bool transfer(char* bytes, size_t size, bool reading, ssize_t& done, short& wants) {
        done = 0;
        wants = 0;
#ifdef CPPHTTPLIB_OPENSSL_SUPPORT
        if (tls_ != nullptr) {
            auto* ssl = static_cast<SSL*>(tls_);
            int count = static_cast<int>(std::min<size_t>(size, 1 << 30));
            int result = reading ? SSL_read(ssl, bytes, count) : SSL_write(ssl, bytes, count);
            if (result > 0) {
                done = result;
                return true;
            }
            switch (SSL_get_error(ssl, result)) {
                case SSL_ERROR_WANT_READ: wants = POLLIN; return true;
                case SSL_ERROR_WANT_WRITE: wants = POLLOUT; return true;
                case SSL_ERROR_ZERO_RETURN: return true;
                default: return false;
            }
        }
#endif
        ssize_t result = reading ? ::recv(fd_, bytes, size, 0) : ::send(fd_, bytes, size, MSG_NOSIGNAL);
        if (result >= 0) {
            done = result;
            return true;
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) {
            wants = reading ? POLLIN : POLLOUT;
            return true;
        }
        return false;
    }

    int fd_;
    Clock::time_point readDeadline_;
    std::chrono::milliseconds writeTimeout_;
    void* tls_;
};

// Reads and drops what the client still sends, for a moment, after the
// write side is shut: the client reads its answer before the close.
void lingeringClose(int fd) {
    ::shutdown(fd, SHUT_WR);
    Clock::time_point until = Clock::now() + kLinger;
    char scratch[16 * 1024];
    for (std::size_t dropped = 0; dropped < kLingerBytes && waitFor(fd, POLLIN, until);) {
        ssize_t got = ::recv(fd, scratch, sizeof(scratch), 0);
        if (got <= 0 && !(got < 0 && (errno == EAGAIN || errno == EINTR))) {
            break;
        }
        dropped += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    }
}

// The pool's threads may start before the program sets up who takes
// SIGINT and SIGTERM; they take none.
void leaveSignalsToOthers() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

// httplib hands each accepted socket to its task queue: this one passes it
// on at once, on the accepting thread, to the server's own
// process_and_close_socket, which admits it to the pool.
class InlineQueue : public httplib::TaskQueue {
public:
    explicit InlineQueue(std::shared_ptr<ConnectionPool> pool) : pool_(std::move(pool)) {}
    void enqueue(std::function<void()> fn) override { fn(); }
    void shutdown() override;

private:
    std::shared_ptr<ConnectionPool> pool_;
};

}  // namespace

// The connections of one server: who waits for a first byte, who is ready
// for a worker, and how many are open from where.
class ConnectionPool {
public:
    ConnectionPool(ConnectionLimits limits, std::function<void(int)> serve)
        : limits_(limits), serve_(std::move(serve)), wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        poller_ = std::thread([this] {
            leaveSignalsToOthers();
            pollWaiting();
        });
        for (std::size_t i = 0; i < limits_.workers; ++i) {
            workers_.emplace_back([this] {
                leaveSignalsToOthers();
                work();
            });
        }
    }

    ~ConnectionPool() {
        shutdown();
        ::close(wake_);
    }

    // On the accepting thread.
    void admit(int fd) {
        int port = 0;
        std::string address = peerOf(fd, port);
        {
            std::lock_guard lock(mutex_);
            if (!stopping_ && open_ < limits_.maxConnections && perAddress_[address] < limits_.maxPerAddress) {
                ++open_;
                ++perAddress_[address];
                addressOf_[fd] = address;
                ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
                waiting_.push_back({fd, Clock::now() + limits_.idleTimeout});
                wake();
                return;
            }
            if (perAddress_[address] == 0) {
                perAddress_.erase(address);
            }
        }
        // Over a limit: closed before a byte is read, at no cost to others.
        ::close(fd);
    }

    // Closes the waiting connections and ends the threads once the requests
    // being served are done. Any thread, any number of times.
    void shutdown() {
        {
            std::lock_guard lock(mutex_);
            if (stopping_) {
                return;
            }
            stopping_ = true;
            wake();
        }
        ready_.notify_all();
        poller_.join();
        for (auto& worker : workers_) {
            worker.join();
        }
        std::lock_guard lock(mutex_);
        for (const auto& each : waiting_) {
            closeLocked(each.fd);
        }
        for (int fd : readyFds_) {
            closeLocked(fd);
        }
        waiting_.clear();
        readyFds_.clear();
    }

private:
    struct Waiting {
        int fd;
        Clock::time_point deadline;
    };

    void wake() {
        uint64_t one = 1;
        (void)!::write(wake_, &one, sizeof(one));
    }

    // Waits for the first byte of every admitted connection; a connection
    // that brings none in time is closed.
    void pollWaiting() {
        std::vector<pollfd> entries;
        for (;;) {
            int timeout = 1000;
            {
                std::lock_guard lock(mutex_);
                if (stopping_) {
                    return;
                }
                auto now = Clock::now();
                std::erase_if(waiting_, [&](const Waiting& each) {
                    if (each.deadline > now) {
                        return false;
                    }
                    closeLocked(each.fd);
                    return true;
                });
                entries.assign(1, pollfd{wake_, POLLIN, 0});
                for (const auto& each : waiting_) {
                    entries.push_back(pollfd{each.fd, POLLIN, 0});
                    timeout = std::min(timeout, remainingMs(each.deadline) + 1);
                }
            }
            if (::poll(entries.data(), entries.size(), timeout) <= 0) {
                continue;
            }
            if (entries[0].revents != 0) {
                uint64_t count = 0;
                (void)!::read(wake_, &count, sizeof(count));
            }
            std::lock_guard lock(mutex_);
            for (std::size_t i = 1; i < entries.size(); ++i) {
                if (entries[i].revents == 0) {
                    continue;
                }
                std::erase_if(waiting_, [&](const Waiting& each) { return each.fd == entries[i].fd; });
                readyFds_.push_back(entries[i].fd);
                ready_.notify_one();
            }
        }
    }

    void work() {
        for (;;) {
            int fd = -1;
            {
                std::unique_lock lock(mutex_);
                ready_.wait(lock, [this] { return stopping_ || !readyFds_.empty(); });
                if (readyFds_.empty()) {
                    return;
                }
                fd = readyFds_.front();
                readyFds_.pop_front();
            }
            try {
                serve_(fd);
            } catch (...) {
                // The connection goes; the server goes on.
            }
            std::lock_guard lock(mutex_);
            closeLocked(fd);
        }
    }

    void closeLocked(int fd) {
        ::close(fd);
        --open_;
        auto address = addressOf_.find(fd);
        if (address != addressOf_.end()) {
            if (--perAddress_[address->second] == 0) {
                perAddress_.erase(address->second);
            }
            addressOf_.erase(address);
        }
    }

    const ConnectionLimits limits_;
    const std::function<void(int)> serve_;
    const int wake_;
    mutable std::mutex mutex_;
    std::condition_variable ready_;
    std::vector<Waiting> waiting_;
    std::deque<int> readyFds_;
    std::map<int, std::string> addressOf_;
    std::map<std::string, std::size_t> perAddress_;
    std::size_t open_ = 0;
    bool stopping_ = false;
    std::thread poller_;
    std::vector<std::thread> workers_;
};

namespace {
void InlineQueue::shutdown() { pool_->shutdown(); }
}  // namespace

template <typename Base>
void LimitedServer<Base>::start(ConnectionLimits limits) {
    limits_ = limits;
    pool_ = std::make_shared<ConnectionPool>(limits, [this](int fd) { serve(fd); });
    this->new_task_queue = [pool = pool_] { return new InlineQueue(pool); };
}

template <typename Base>
LimitedServer<Base>::~LimitedServer() {
    pool_->shutdown();
}

template <typename Base>
void LimitedServer<Base>::widenBacklog() {
    ::listen(this->svr_sock_, SOMAXCONN);
}

template <typename Base>
bool LimitedServer<Base>::process_and_close_socket(socket_t sock) {
    pool_->admit(sock);
    return true;
}

template <>
void LimitedServer<httplib::Server>::serve(int fd) {
    DeadlineStream stream(fd, Clock::now() + limits_.requestTimeout, limits_.writeTimeout, nullptr);
    bool closed = false;
    process_request(stream, /*close_connection=*/true, closed, nullptr);
    lingeringClose(fd);
}

#ifdef CPPHTTPLIB_OPENSSL_SUPPORT
template <>
void LimitedServer<httplib::SSLServer>::serve(int fd) {
    Clock::time_point deadline = Clock::now() + limits_.requestTimeout;
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(ssl_context()), SSL_free);
    if (!ssl || SSL_set_fd(ssl.get(), fd) != 1) {
        return;
    }
    // The handshake counts against the request's deadline.
    for (;;) {
        int result = SSL_accept(ssl.get());
        if (result == 1) {
            break;
        }
        int error = SSL_get_error(ssl.get(), result);
        short wants = error == SSL_ERROR_WANT_READ ? POLLIN : error == SSL_ERROR_WANT_WRITE ? POLLOUT : 0;
        if (wants == 0 || !waitFor(fd, wants, deadline)) {
            return;
        }
    }
    DeadlineStream stream(fd, deadline, limits_.writeTimeout, ssl.get());
    bool closed = false;
    process_request(stream, /*close_connection=*/true, closed, nullptr);
    SSL_shutdown(ssl.get());
    lingeringClose(fd);
}

template class LimitedServer<httplib::SSLServer>;
#endif

template class LimitedServer<httplib::Server>;

}  // namespace ferrylink::http
