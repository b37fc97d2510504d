// The store's rules that the endpoints and the operator rely on: order,
// uniqueness, partial updates, and that a file keeps what it was given.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "backend/store.h"

namespace ferrylink::backend {
namespace {

using ::testing::ElementsAre;
using ::testing::Field;

class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "ferrylink-store-XXXXXX").string();
        path_ = mkdtemp(pattern.data());
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

TEST(StoreTest, PartnerUpdateChangesOnlyTheFieldsGiven) {
    Store store(":memory:");
    const PartneredServer added = store.addPartner({.status = true, .ip = "a.example", .port = "19132",
                                                    .title = "A", .subtitle = "sub", .players = "1",
                                                    .maxPlayers = "10"});

    const auto updated = store.updatePartner(added.id, {.status = false, .players = "7"});

    ASSERT_TRUE(updated.has_value());
    EXPECT_FALSE(updated->status);
    EXPECT_EQ(updated->players, "7");
    EXPECT_EQ(updated->ip, "a.example");
    EXPECT_EQ(updated->port, "19132");
    EXPECT_EQ(updated->title, "A");
    EXPECT_EQ(updated->subtitle, "sub");
    EXPECT_EQ(updated->maxPlayers, "10");
    EXPECT_FALSE(store.updatePartner(added.id + 1, {.players = "1"}).has_value());
}

TEST(StoreTest, PartnersKeepTheOrderAddedAcrossRemovals) {
    Store store(":memory:");
    const auto first = store.addPartner({.ip = "1", .title = "first"});
    const auto second = store.addPartner({.ip = "2", .title = "second"});
    store.addPartner({.ip = "3", .title = "third"});

    EXPECT_TRUE(store.removePartner(second.id));
    EXPECT_FALSE(store.removePartner(second.id));
    store.addPartner({.ip = "4", .title = "fourth"});

    EXPECT_THAT(store.partners(), ElementsAre(Field(&PartneredServer::title, "first"),
                                              Field(&PartneredServer::title, "third"),
                                              Field(&PartneredServer::title, "fourth")));
    EXPECT_EQ(store.partners().front().id, first.id);
}

TEST(StoreTest, BlockedHostIsStoredOnceAndMatchedExactly) {
    Store store(":memory:");

    EXPECT_TRUE(store.addBlocked("blocked.example", 1).has_value());
    EXPECT_FALSE(store.addBlocked("blocked.example", 2).has_value());
    EXPECT_TRUE(store.addBlocked("Blocked.example", 3).has_value());
    EXPECT_FALSE(store.removeBlocked("BLOCKED.EXAMPLE"));
    EXPECT_TRUE(store.removeBlocked("blocked.example"));

    EXPECT_THAT(store.blocked(), ElementsAre(Field(&BlacklistServer::ip, "Blocked.example")));
}

TEST(StoreTest, MessagesComeNewestFirstAndFilterByExactVersion) {
    Store store(":memory:");
    const auto old = store.addMessage("1.19.50", "old");
    store.addMessage("1.19.5", "other");
    const auto fresh = store.addMessage("1.19.50", "new");

    EXPECT_THAT(store.messages("1.19.50"),
                ElementsAre(Field(&Message::id, fresh.id), Field(&Message::id, old.id)));
    EXPECT_EQ(store.messages().size(), 3u);
    EXPECT_TRUE(store.removeMessage(old.id));
    EXPECT_THAT(store.messages("1.19.50"), ElementsAre(Field(&Message::message, "new")));
}

TEST(StoreTest, LogLimitKeepsTheNewestInTheOrderReceived) {
    Store store(":memory:");
    for (int i = 1; i <= 5; ++i) {
        store.addLogEntry({.receivedAtMs = i, .serverIp = "host" + std::to_string(i)});
    }

    EXPECT_THAT(store.logEntries(2), ElementsAre(Field(&LogEntry::serverIp, "host4"),
                                                 Field(&LogEntry::serverIp, "host5")));
    EXPECT_EQ(store.logEntries().size(), 5u);
}

TEST(StoreTest, FileKeepsEverythingAcrossReopening) {
    TemporaryDirectory directory;
    const auto path = directory.path() / "backend.db";
    {
        Store store(path);
        store.addPartner({.ip = "p", .title = "Partner", .subtitle = "§l§funavailable!"});
        store.addBlocked("b", 1);
        store.addMessage("1.19.50", "line one\nline two");
        store.addLogEntry({.receivedAtMs = 42, .body = "{\n}"});
    }

    Store reopened(path);

    ASSERT_EQ(reopened.partners().size(), 1u);
    EXPECT_EQ(reopened.partners()[0].subtitle, "§l§funavailable!");
    EXPECT_THAT(reopened.blocked(), ElementsAre(Field(&BlacklistServer::ip, "b")));
    EXPECT_THAT(reopened.messages(), ElementsAre(Field(&Message::message, "line one\nline two")));
    EXPECT_THAT(reopened.logEntries(), ElementsAre(Field(&LogEntry::body, "{\n}")));
}

TEST(StoreTest, UnopenablePathIsAStoreError) {
    TemporaryDirectory directory;

    EXPECT_THROW(Store(directory.path() / "missing" / "backend.db"), StoreError);
}

}  // namespace
}  // namespace ferrylink::backend
