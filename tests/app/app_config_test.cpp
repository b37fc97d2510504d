#include "app/app_config.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <stdexcept>

#include "app/observable.h"
#include "app_test_support.h"

namespace ferrylink::app {
namespace {

class Environment : public ::testing::Test {
protected:
    ~Environment() override {
        for (const char* name : {"FERRYLINK_BACKEND_HOST", "FERRYLINK_BACKEND_PORT", "FERRYLINK_BACKEND_CA",
                                 "FERRYLINK_DATA_DIR"}) {
            ::unsetenv(name);
        }
    }
};

TEST_F(Environment, VariablesOverrideTheBackendAndTheDataFolder) {
    ::setenv("FERRYLINK_BACKEND_HOST", "127.0.0.1", 1);
    ::setenv("FERRYLINK_BACKEND_PORT", "9443", 1);
    ::setenv("FERRYLINK_BACKEND_CA", "/tmp/ca.pem", 1);
    ::setenv("FERRYLINK_DATA_DIR", "/tmp/ferrylink-data", 1);
    const auto config = AppConfig::fromEnvironment();
    EXPECT_EQ(config.backendHost, "127.0.0.1");
    EXPECT_EQ(config.backendPort, 9443);
    EXPECT_EQ(config.backendCaFile, std::filesystem::path("/tmp/ca.pem"));
    EXPECT_EQ(dataFilePath(config.dataDirectory), std::filesystem::path("/tmp/ferrylink-data/Ferrylink.sqlite"));
    // Without a folder given: the XDG data folder, else HOME's.
    const std::string home = std::getenv("HOME") ? std::getenv("HOME") : "";
    ::setenv("XDG_DATA_HOME", "/xdg/data", 1);
    EXPECT_EQ(dataFilePath({}), std::filesystem::path("/xdg/data/ferrylink/Ferrylink.sqlite"));
    ::unsetenv("XDG_DATA_HOME");
    ::setenv("HOME", "/home/someone", 1);
    EXPECT_EQ(dataFilePath({}), std::filesystem::path("/home/someone/.local/share/ferrylink/Ferrylink.sqlite"));
    ::setenv("HOME", home.c_str(), 1);
}

TEST_F(Environment, PortThatIsNoPortIsRefused) {
    for (const char* port : {"0", "65536", "84x3", "-1"}) {
        ::setenv("FERRYLINK_BACKEND_PORT", port, 1);
        EXPECT_THROW(AppConfig::fromEnvironment(), std::invalid_argument) << port;
    }
}

TEST(Observable, EveryWriteNotifiesEachSubscriberInOrder) {
    Observable<int> value{0};
    std::vector<std::string> seen;
    testing::onMain([&] {
        auto first = value.subscribe([&](const int& now) { seen.push_back("first " + std::to_string(now)); });
        Observable<int>::Subscription second = 0;
        second = value.subscribe([&](const int& now) {
            seen.push_back("second " + std::to_string(now));
            value.unsubscribe(second);  // from inside its own notification
        });
        value.set(1);
        value.set(1);
        value.modify([](int& current) { current += 1; });
        value.unsubscribe(first);
        value.set(3);
        EXPECT_EQ(value.get(), 3);
    });
    EXPECT_EQ(seen, (std::vector<std::string>{"first 1", "second 1", "first 1", "first 2"}));
}

}  // namespace
}  // namespace ferrylink::app
