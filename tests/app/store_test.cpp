#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdio>
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

// Favourites kept across a restart, equal ones and removals included, are the
// browser journey's to check.
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

// Another connection holds the write lock: a save without changes touches
// nothing and passes; one with changes fails, fatally.
TEST_F(PersistentStoreDeathTest, SaveWithoutChangesTouchesNothingAndAFailedSaveIsFatal) {
    ScratchDirectory scratch;
    auto file = scratch.path() / "Ferrylink.sqlite";
    EXPECT_DEATH(onMain([&] {
                     PersistentStore store(file);
                     store.viewContext();
                     sqlite3* other = nullptr;
                     sqlite3_open(file.c_str(), &other);
                     sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr);
                     store.save();
                     std::fputs("unchanged save passed\n", stderr);
                     auto server = store.viewContext().newServer();
                     server->setIp("a");
                     server->setPort("1");
                     store.save();
                 }),
                 "unchanged save passed\n(.|\n)*database is locked");
}

}  // namespace
}  // namespace ferrylink::app
