#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "test_bytes.h"

extern char** environ;

namespace ferrylink::resources {
namespace {

namespace fs = std::filesystem;
using testing::readFileBytes;

const fs::path kResources = FERRYLINK_RESOURCE_SOURCE_DIR;
const fs::path kGenerator = FERRYLINK_RESGEN_PATH;
const char* const kFiles[] = {"biome_definitions.nbt", "entity_identifiers.nbt", "required_block_states.nbt"};

// A fresh directory under the system's temporary folder, removed afterwards.
class TempDir {
public:
    TempDir() {
        std::string pattern = (fs::temp_directory_path() / "ferrylink-resgen-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        path_ = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

struct RunResult {
    int exitCode = -1;
    std::string errorOutput;
};

// Runs the generator with `arguments`, its standard output and error going
// to files in `scratch`.
RunResult runGenerator(const std::vector<std::string>& arguments, const fs::path& scratch) {
    const std::string out = (scratch / "stdout.txt").string();
    const std::string err = (scratch / "stderr.txt").string();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);

    std::vector<std::string> args{kGenerator.string()};
    args.insert(args.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);

    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        throw std::runtime_error("cannot start " + kGenerator.string());
    }
    int status = 0;
    waitpid(pid, &status, 0);

    RunResult result;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    const auto bytes = readFileBytes(err);
    result.errorOutput.assign(bytes.begin(), bytes.end());
    return result;
}

TEST(ResourceGeneratorTest, RegeneratesTheCommittedFilesByteForByte) {
    TempDir scratch;
    const fs::path out = scratch.path() / "bundle";
    const RunResult run =
        runGenerator({"--tables", (kResources / "tables").string(), "--out", out.string()}, scratch.path());
    ASSERT_EQ(run.exitCode, 0) << run.errorOutput;
    for (const char* name : kFiles) {
        const auto generated = readFileBytes(out / name);
        const auto committed = readFileBytes(kResources / "portalhop_PortalHop.bundle" / name);
        EXPECT_EQ(generated.size(), committed.size()) << name;
        EXPECT_TRUE(generated == committed) << name << " differs from the committed file: regenerate the bundle";
    }
}

TEST(ResourceGeneratorTest, NamesTheFaultyLineAndWritesNothing) {
    TempDir scratch;
    const fs::path tables = scratch.path() / "tables";
    fs::copy(kResources / "tables", tables);
    {
        std::ofstream biomes(tables / "biomes.tsv", std::ios::app);
        biomes << "balmy_shore\twarm\t0.5\n";
    }
    std::size_t lines = 0;
    {
        std::ifstream biomes(tables / "biomes.tsv");
        for (std::string line; std::getline(biomes, line);) {
            ++lines;
        }
    }
    const fs::path out = scratch.path() / "bundle";
    const RunResult run = runGenerator({"--tables", tables.string(), "--out", out.string()}, scratch.path());
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.errorOutput.find("biomes.tsv:" + std::to_string(lines) + ": temperature is not a number"),
              std::string::npos)
        << run.errorOutput;
    for (const char* name : kFiles) {
        EXPECT_FALSE(fs::exists(out / name)) << name;
    }
}

TEST(ResourceGeneratorTest, RefusesABlockPropertyItCannotRead) {
    TempDir scratch;
    const fs::path tables = scratch.path() / "tables";
    fs::copy(kResources / "tables", tables);
    {
        std::ofstream palette(tables / "block_palette.tsv", std::ios::app);
        palette << "9000\tminecraft:odd_block\tfacing:float=0..1\n";
    }
    const RunResult run =
        runGenerator({"--tables", tables.string(), "--out", (scratch.path() / "bundle").string()}, scratch.path());
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.errorOutput.find("unknown property kind \"float\""), std::string::npos) << run.errorOutput;
}

}  // namespace
}  // namespace ferrylink::resources
