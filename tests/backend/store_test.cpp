// The store's rules that the endpoints and the operator's listings rely on
// without showing them: order across removals, the newest of the log, and
// that a file keeps what it was given.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "backend/note_budget.h"
#include "backend/store.h"

namespace ferrylink::backend {
namespace {

using ::testing::ElementsAre;
using ::testing::Field;

TEST(StoreTest, LogLimitKeepsTheNewestInTheOrderReceivedAndPruningDropsTheOldest) {
    Store store(":memory:");
    for (int i = 1; i <= 5; ++i) {
        store.addLogEntry({.receivedAtMs = i, .serverIp = "host" + std::to_string(i)});
    }
    EXPECT_THAT(store.logEntries(2),
                ElementsAre(Field(&LogEntry::serverIp, "host4"), Field(&LogEntry::serverIp, "host5")));
    store.pruneLogEntries(4, 0);
    EXPECT_EQ(store.logEntries().front().serverIp, "host2");
    store.pruneLogEntries(10, 4);
    EXPECT_THAT(store.logEntries(),
                ElementsAre(Field(&LogEntry::serverIp, "host4"), Field(&LogEntry::serverIp, "host5")));
}

TEST(NoteBudgetTest, CountsPerAddressAndInAllWithinAMinute) {
    NoteBudget budget({.perAddressPerMinute = 2, .totalPerMinute = 3});
    EXPECT_EQ(budget.take("a", 60'000), std::nullopt);
    EXPECT_EQ(budget.take("a", 60'001), std::nullopt);
    EXPECT_EQ(budget.take("a", 60'002), 60);  // seconds to the next minute
    EXPECT_EQ(budget.take("b", 90'000), std::nullopt);
    EXPECT_EQ(budget.take("c", 119'500), 1);  // all of the minute's three are gone
    EXPECT_EQ(budget.take("a", 120'000), std::nullopt);
}

TEST(StoreTest, FileKeepsEverythingAcrossReopeningAndAPathThroughAFileIsAnError) {
    std::string pattern = (std::filesystem::temp_directory_path() / "ferrylink-store-XXXXXX").string();
    const std::filesystem::path directory = mkdtemp(pattern.data());
    {
        Store store(directory / "backend.db");
        store.addPartner({.ip = "p", .title = "Partner", .subtitle = "§l§funavailable!"});
        store.addBlocked("b", 1);
        store.addMessage("1.19.50", "line one\nline two");
        store.addLogEntry({.receivedAtMs = 42, .body = "{\n}"});
    }
    Store reopened(directory / "backend.db");
    EXPECT_THAT(reopened.partners(), ElementsAre(Field(&PartneredServer::subtitle, "§l§funavailable!")));
    EXPECT_THAT(reopened.blocked(), ElementsAre(Field(&BlacklistServer::ip, "b")));
    EXPECT_THAT(reopened.messages(), ElementsAre(Field(&Message::message, "line one\nline two")));
    EXPECT_THAT(reopened.logEntries(), ElementsAre(Field(&LogEntry::body, "{\n}")));
    EXPECT_THROW(Store(directory / "backend.db" / "backend.db"), StoreError);
    std::filesystem::remove_all(directory);
}

}  // namespace
}  // namespace ferrylink::backend
