#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "test_bytes.h"

namespace ferrylink::resources {
namespace {

namespace fs = std::filesystem;
using testing::readFileBytes;

const fs::path kResources = FERRYLINK_RESOURCE_SOURCE_DIR;
const char* const kFiles[] = {"biome_definitions.nbt", "entity_identifiers.nbt", "required_block_states.nbt"};

class ResourceGeneratorTest : public ::testing::Test {
protected:
    ResourceGeneratorTest() {
        std::string pattern = (fs::temp_directory_path() / "ferrylink-resgen-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        scratch_ = pattern;
    }
    ~ResourceGeneratorTest() override {
        std::error_code ignored;
        fs::remove_all(scratch_, ignored);
    }

    // Runs the generator from `tables` into scratch/bundle; gives its exit
    // status and keeps what it wrote to standard error.
    int generate(const fs::path& tables) {
        const std::string command = "'" + std::string(FERRYLINK_RESGEN_PATH) + "' --tables '" + tables.string() +
                                    "' --out '" + (scratch_ / "bundle").string() + "' >/dev/null 2>'" +
                                    (scratch_ / "stderr").string() + "'";
        const int status = std::system(command.c_str());
        std::ifstream err(scratch_ / "stderr");
        errors_.assign(std::istreambuf_iterator<char>(err), std::istreambuf_iterator<char>());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    fs::path scratch_;
    std::string errors_;
};

TEST_F(ResourceGeneratorTest, RegeneratesTheCommittedFilesByteForByte) {
    ASSERT_EQ(generate(kResources / "tables"), 0) << errors_;
    for (const char* name : kFiles) {
        EXPECT_TRUE(readFileBytes(scratch_ / "bundle" / name) ==
                    readFileBytes(kResources / "portalhop_PortalHop.bundle" / name))
            << name << " differs from the committed file: regenerate the bundle";
    }
}

TEST_F(ResourceGeneratorTest, BadRowIsNamedByFileAndLineAndNothingIsWritten) {
    const struct {
        const char* file;
        const char* row;
        const char* fault;
    } cases[] = {
        {"biomes.tsv", "balmy_shore\twarm\t0.5\n", "temperature is not a number"},
        {"block_palette.tsv", "9000\tminecraft:odd_block\tfacing:float=0..1\n", "unknown property kind \"float\""},
    };
    for (const auto& c : cases) {
        const fs::path tables = scratch_ / "tables";
        fs::remove_all(tables);
        fs::copy(kResources / "tables", tables);
        std::ofstream(tables / c.file, std::ios::app) << c.row;
        std::ifstream edited(tables / c.file);
        const auto lines = std::count(std::istreambuf_iterator<char>(edited), std::istreambuf_iterator<char>(), '\n');

        EXPECT_EQ(generate(tables), 1) << c.file;
        EXPECT_NE(errors_.find(std::string(c.file) + ":" + std::to_string(lines) + ": " + c.fault), std::string::npos)
            << errors_;
        for (const char* name : kFiles) {
            EXPECT_FALSE(fs::exists(scratch_ / "bundle" / name)) << name;
        }
    }
}

}  // namespace
}  // namespace ferrylink::resources
