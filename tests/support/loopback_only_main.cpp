// The main() of every test program. Before any test runs, the process moves
// into a network namespace of its own in which only the loopback interface
// exists. A test that resolves a name that doesn't exist, or that would by
// mistake reach for another address, then fails locally instead of sending a
// packet off this machine. Child processes the tests start inherit it.

#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>

namespace {

bool writeFile(const char* path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    return static_cast<bool>(file.flush());
}

bool enterPrivateNetwork() {
    if (::unshare(CLONE_NEWNET) == 0) {
        return true;
    }
    // Without the privilege, a user namespace lends it, mapping us to ourselves.
    uid_t uid = ::getuid();
    gid_t gid = ::getgid();
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
        return false;
    }
    writeFile("/proc/self/setgroups", "deny");
    return writeFile("/proc/self/uid_map", std::to_string(uid) + " " + std::to_string(uid) + " 1") &&
           writeFile("/proc/self/gid_map", std::to_string(gid) + " " + std::to_string(gid) + " 1");
}

bool bringLoopbackUp() {
    int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
    bool up = ::ioctl(fd, SIOCGIFFLAGS, &request) == 0;
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
    up = up && ::ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    ::close(fd);
    return up;
}

}  // namespace

int main(int argc, char** argv) {
    if (!enterPrivateNetwork() || !bringLoopbackUp()) {
        std::fprintf(stderr,
                     "warning: no private network namespace (%s); tests run on the host's network\n",
                     std::strerror(errno));
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
