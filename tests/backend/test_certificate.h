#pragma once

// A throw-away certificate authority and a server certificate signed by it
// (EC P-256, two days, "CN=localhost" for 127.0.0.1, ::1 and localhost), for
// tests that speak TLS over loopback. Made with the `openssl` command line in
// a temporary directory that goes again with the object.

#include <stdlib.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace ferrylink::testing {

class TestCertificate {
public:
    // Throws std::runtime_error, with what openssl said, when a step fails.
    TestCertificate() {
        std::string pattern = (std::filesystem::temp_directory_path() / "ferrylink-certificate-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), "cannot make a directory for certificates");
        }
        directory_ = pattern;
        try {
            make();
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

    // PEM of the authority: what a client trusts.
    const std::filesystem::path& caCertificate() const { return caCertificate_; }
    // PEM of the server's certificate (the leaf alone) and its unencrypted key.
    const std::filesystem::path& serverCertificate() const { return serverCertificate_; }
    const std::filesystem::path& serverKey() const { return serverKey_; }

private:
    void make() {
        caCertificate_ = directory_ / "ca.pem";
        serverCertificate_ = directory_ / "server.pem";
        serverKey_ = directory_ / "server.key";
        // A configuration of our own, so that the machine's openssl.cnf plays
        // no part; the subjects and extensions are given on the command line.
        const auto config = directory_ / "openssl.cnf";
        std::ofstream(config) << "[req]\ndistinguished_name = dn\n[dn]\n";
        const std::string common = "req -x509 -config " + quoted(config) +
                                   " -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2";
        runOpenssl(common + " -keyout " + quoted(directory_ / "ca.key") + " -out " + quoted(caCertificate_) +
                   " -subj '/CN=Ferrylink Test CA' -addext basicConstraints=critical,CA:TRUE"
                   " -addext keyUsage=critical,keyCertSign,cRLSign");
        runOpenssl(common + " -keyout " + quoted(serverKey_) + " -out " + quoted(serverCertificate_) + " -CA " +
                   quoted(caCertificate_) + " -CAkey " + quoted(directory_ / "ca.key") +
                   " -subj /CN=localhost -addext basicConstraints=critical,CA:FALSE"
                   " -addext keyUsage=critical,digitalSignature -addext extendedKeyUsage=serverAuth"
                   " -addext 'subjectAltName=IP:127.0.0.1,IP:::1,DNS:localhost'");
    }

    static std::string quoted(const std::filesystem::path& text) { return "'" + text.string() + "'"; }

    // Runs openssl with `arguments` through the shell; its output goes to a
    // log that a failure quotes.
    void runOpenssl(const std::string& arguments) const {
        const auto log = directory_ / "openssl.log";
        if (std::system(("openssl " + arguments + " </dev/null >" + quoted(log) + " 2>&1").c_str()) != 0) {
            std::ifstream file(log);
            std::stringstream said;
            said << file.rdbuf();
            throw std::runtime_error("openssl failed: " + said.str());
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
