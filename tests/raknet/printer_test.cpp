#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "raknet/printer.h"

namespace ferrylink::raknet {
namespace {

// Lines printed at once from threads inside a LineBatch (the loop) and from
// threads without (the bridge's queue, the main thread) each reach standard
// output whole, never with another line inside them.
TEST(StandardOutputPrinterTest, LinesOfSeveralThreadsNeverMix) {
    constexpr int LINES = 20000;
    const std::string path = ::testing::TempDir() + "printer_test_output";
    std::fflush(stdout);
    const int saved = ::dup(STDOUT_FILENO);
    ASSERT_NE(std::freopen(path.c_str(), "w", stdout), nullptr);

    StandardOutputPrinter printer;
    std::vector<std::thread> threads;
    const std::vector<std::string> texts{"Unconnected: 5", "con: 19", "Player disconnected", "packetId: 193"};
    for (size_t index = 0; index < texts.size(); ++index) {
        threads.emplace_back([&, index] {
            std::optional<LineBatch> batch;
            for (int i = 0; i < LINES; ++i) {
                if (index % 2 == 0 && i % 64 == 0) {
                    batch.reset();
                    batch.emplace();
                }
                printer.print(texts[index]);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }

    std::fflush(stdout);
    ::dup2(saved, STDOUT_FILENO);
    ::close(saved);
    std::map<std::string, int> seen;
    std::ifstream output(path);
    for (std::string line; std::getline(output, line);) {
        ++seen[line];
    }
    std::map<std::string, int> printed;
    for (const auto& text : texts) {
        printed[text] = LINES;
    }
    EXPECT_EQ(seen, printed);
}

}  // namespace
}  // namespace ferrylink::raknet
