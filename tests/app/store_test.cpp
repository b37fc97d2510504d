#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>

#include "app/persistent_store.h"
#include "app/user_defaults.h"
#include "app_test_support.h"

namespace ferrylink::app {
namespace {

using testing::drainMain;
using testing::onMain;
using testing::ScratchDirectory;

// Typed values kept across a reopen, read across types as the platform does.
TEST(UserDefaults, KeepsTypedValuesAndReadsThemAcrossTypes) {
    ScratchDirectory scratch;
    auto file = scratch.path() / "Ferrylink.sqlite";
    {
        UserDefaults defaults(file);
        EXPECT_FALSE(defaults.object("clientUUID"));
        defaults.setString("clientUUID", "0A1B2C3D-0000-4000-8000-000000000000");
        defaults.setInteger("count", 7);
        defaults.setBool("flag", false);
        defaults.setInteger("count", 0);
        defaults.setString("text", "12 monkeys");
    }
    UserDefaults defaults(file);
    EXPECT_EQ(defaults.object("clientUUID"), DefaultsValue(std::string("0A1B2C3D-0000-4000-8000-000000000000")));
    EXPECT_EQ(defaults.object("count"), DefaultsValue(int64_t{0}));
    // A stored false is an object all the same: it is not "absent".
    EXPECT_EQ(defaults.object("flag"), DefaultsValue(false));
    defaults.setBool("flag", true);
    EXPECT_EQ(defaults.integer("flag"), 1);
    EXPECT_FALSE(defaults.boolean("count"));
    EXPECT_EQ(defaults.integer("text"), 12);
    EXPECT_TRUE(defaults.boolean("text"));
    EXPECT_EQ(defaults.string("count"), "0");
    EXPECT_EQ(defaults.string("flag"), std::nullopt);
    EXPECT_EQ(defaults.integer("absent"), 0);
    EXPECT_FALSE(defaults.boolean("absent"));
    defaults.removeObject("text");
    EXPECT_FALSE(defaults.object("text"));
}

std::vector<std::pair<std::string, std::string>> rowsOf(PersistentStore& store) {
    std::vector<std::pair<std::string, std::string>> rows;
    for (const auto& row : store.viewContext().servers.get()) {
        rows.emplace_back(row.ip.value_or("<none>"), row.port.value_or("<none>"));
    }
    return rows;
}

TEST(PersistentStore, FavouritesSurviveARestart) {
    ScratchDirectory scratch;
    auto file = scratch.path() / "Ferrylink.sqlite";
    onMain([&] {
        PersistentStore store(file);
        auto& context = store.viewContext();
        for (auto [ip, port] : {std::pair{"play.example.net", "19132"}, std::pair{"", "19132"},
                                std::pair{"play.example.net", "19132"}}) {
            auto server = context.newServer();
            server->setIp(ip);
            server->setPort(port);
            context.insert(server);
            store.save();
        }
        EXPECT_FALSE(context.hasChanges());
        // Made but never saved: listed as a change, gone at the restart.
        auto pending = context.newServer();
        pending->setIp("pending.example");
        pending->setPort("1");
        EXPECT_TRUE(context.hasChanges());
    });
    onMain([&] {
        PersistentStore reopened(file);
        // No uniqueness: the equal rows are both kept.
        EXPECT_EQ(rowsOf(reopened), (std::vector<std::pair<std::string, std::string>>{
                                        {"play.example.net", "19132"}, {"", "19132"}, {"play.example.net", "19132"}}));
        auto& context = reopened.viewContext();
        context.deleteObject(context.server(context.servers.get()[1].id));
        reopened.save();
    });
    onMain([&] {
        PersistentStore reopened(file);
        EXPECT_EQ(rowsOf(reopened), (std::vector<std::pair<std::string, std::string>>{
                                        {"play.example.net", "19132"}, {"play.example.net", "19132"}}));
    });
}

TEST(PersistentStore, SaveWithoutChangesTouchesNothing) {
    ScratchDirectory scratch;
    auto file = scratch.path() / "Ferrylink.sqlite";
    onMain([&] {
        PersistentStore store(file);
        store.viewContext();
        // Another connection holds the write lock: any write would fail.
        sqlite3* other = nullptr;
        ASSERT_EQ(sqlite3_open(file.c_str(), &other), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
        store.save();
        sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
        sqlite3_close(other);
    });
}

using PersistentStoreDeathTest = ::testing::Test;

TEST_F(PersistentStoreDeathTest, NoPlaceForTheStoreOrOneThatCannotBeOpenedIsFatal) {
    EXPECT_DEATH(onMain([] { PersistentStore(std::filesystem::path()).viewContext(); }),
                 "^persistentContainer: Failed to retrieve a persistent store description\\.");
    ScratchDirectory scratch;
    auto blocker = scratch.path() / "not-a-folder";
    { std::ofstream(blocker) << "x"; }
    EXPECT_DEATH(onMain([&] { PersistentStore(blocker / "Ferrylink.sqlite").viewContext(); }),
                 "^Unresolved error .*not-a-folder");
}

TEST_F(PersistentStoreDeathTest, FailedSaveIsFatalWithTheReason) {
    ScratchDirectory scratch;
    auto file = scratch.path() / "Ferrylink.sqlite";
    EXPECT_DEATH(onMain([&] {
                     PersistentStore store(file);
                     auto server = store.viewContext().newServer();
                     server->setIp("a");
                     server->setPort("1");
                     sqlite3* other = nullptr;
                     sqlite3_open(file.c_str(), &other);
                     sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr);
                     store.save();
                 }),
                 "^database is locked");
}

}  // namespace
}  // namespace ferrylink::app
