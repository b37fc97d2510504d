#pragma once

// A throw-away certificate authority and a server certificate signed by it,
// for tests that speak TLS over loopback. Both are made with the `openssl`
// command line in a fresh temporary directory, which goes again with the
// object. Header only: include it from any suite, nothing to link.
//
//   const auto& certificate = ferrylink::testing::TestCertificate::shared();
//   server: certificate.serverCertificate(), certificate.serverKey()
//   client: trust certificate.caCertificate() and verify the peer as usual
//
// The server certificate is an EC P-256 leaf, valid for two days, with the
// subject "CN=localhost" and the names 127.0.0.1, ::1 and localhost unless
// others are asked for.

#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

extern char** environ;

namespace ferrylink::testing {

class TestCertificate {
public:
    // Subject alternative names in openssl's notation ("IP:127.0.0.1",
    // "DNS:localhost"). Throws std::runtime_error, with what openssl said,
    // when a step fails.
    explicit TestCertificate(std::vector<std::string> subjectAltNames = {"IP:127.0.0.1", "IP:::1",
                                                                         "DNS:localhost"}) {
        std::string pattern = (std::filesystem::temp_directory_path() / "ferrylink-certificate-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), "cannot make a directory for certificates");
        }
        directory_ = pattern;
        try {
            make(subjectAltNames);
        } catch (...) {
            removeDirectory();
            throw;
        }
    }

    ~TestCertificate() { removeDirectory(); }
    TestCertificate(const TestCertificate&) = delete;
    TestCertificate& operator=(const TestCertificate&) = delete;

    // One for the whole test program, made on first use and removed at exit.
    static const TestCertificate& shared() {
        static const TestCertificate certificate;
        return certificate;
    }

    const std::filesystem::path& directory() const { return directory_; }
    // PEM of the authority: what a client trusts.
    const std::filesystem::path& caCertificate() const { return caCertificate_; }
    // PEM of the server's certificate (the leaf alone) and its unencrypted key.
    const std::filesystem::path& serverCertificate() const { return serverCertificate_; }
    const std::filesystem::path& serverKey() const { return serverKey_; }

    // The authority's PEM text, for clients that take trust anchors in memory.
    std::string caCertificatePem() const {
        std::ifstream file(caCertificate_, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

private:
    void make(const std::vector<std::string>& subjectAltNames) {
        caCertificate_ = directory_ / "ca.pem";
        serverCertificate_ = directory_ / "server.pem";
        serverKey_ = directory_ / "server.key";
        const auto caKey = directory_ / "ca.key";
        const auto caConfig = directory_ / "ca.cnf";
        const auto serverConfig = directory_ / "server.cnf";
        const auto request = directory_ / "server.csr";

        // Own configuration files, so that the machine's openssl.cnf plays
        // no part.
        std::string names;
        for (const auto& name : subjectAltNames) {
            names += (names.empty() ? "" : ",") + name;
        }
        writeFile(caConfig,
                  "[req]\n"
                  "prompt = no\n"
                  "distinguished_name = dn\n"
                  "x509_extensions = ca_ext\n"
                  "[dn]\n"
                  "CN = Ferrylink Test CA\n"
                  "[ca_ext]\n"
                  "basicConstraints = critical, CA:TRUE\n"
                  "keyUsage = critical, keyCertSign, cRLSign\n"
                  "subjectKeyIdentifier = hash\n");
        writeFile(serverConfig,
                  "[req]\n"
                  "prompt = no\n"
                  "distinguished_name = dn\n"
                  "[dn]\n"
                  "CN = localhost\n"
                  "[server_ext]\n"
                  "basicConstraints = critical, CA:FALSE\n"
                  "keyUsage = critical, digitalSignature\n"
                  "extendedKeyUsage = serverAuth\n"
                  "subjectKeyIdentifier = hash\n"
                  "authorityKeyIdentifier = keyid\n"
                  "subjectAltName = " +
                      names + "\n");

        runOpenssl({"req", "-x509", "-config", caConfig.string(), "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-keyout", caKey.string(), "-out",
                    caCertificate_.string(), "-days", "2"});
        runOpenssl({"req", "-new", "-config", serverConfig.string(), "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-keyout", serverKey_.string(), "-out",
                    request.string()});
        runOpenssl({"x509", "-req", "-in", request.string(), "-CA", caCertificate_.string(), "-CAkey",
                    caKey.string(), "-CAcreateserial", "-CAserial", (directory_ / "ca.srl").string(), "-days", "2",
                    "-extfile", serverConfig.string(), "-extensions", "server_ext", "-out",
                    serverCertificate_.string()});
    }

    void runOpenssl(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "openssl");
        std::vector<char*> argv;
        for (auto& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);

        const auto output = directory_ / "openssl.log";
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        pid_t child = 0;
        const int spawned = posix_spawnp(&child, "openssl", &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (spawned != 0) {
            throw std::system_error(spawned, std::generic_category(), "cannot run openssl");
        }
        int status = 0;
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            std::ifstream log(output);
            std::stringstream said;
            said << log.rdbuf();
            throw std::runtime_error("openssl " + arguments[1] + " failed: " + said.str());
        }
    }

    static void writeFile(const std::filesystem::path& path, const std::string& text) {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file << text;
        if (!file) {
            throw std::runtime_error("cannot write " + path.string());
        }
    }

    void removeDirectory() noexcept {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }

    std::filesystem::path directory_;
    std::filesystem::path caCertificate_;
    std::filesystem::path serverCertificate_;
    std::filesystem::path serverKey_;
};

}  // namespace ferrylink::testing
