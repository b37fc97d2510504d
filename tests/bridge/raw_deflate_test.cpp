#include "bridge/packets/raw_deflate.h"

#include "bridge/packets/deflate_cache.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdint>
#include <thread>
#include <vector>

#include "support/hex.h"

namespace ferrylink::bridge {
namespace {

using Bytes = std::vector<uint8_t>;
constexpr size_t noLimit = SIZE_MAX;

// What a compressor made for this one input alone gives: raw DEFLATE at the
// default level, window bits -15, memory level 8, the whole input in one call.
Bytes freshStream(const Bytes& input) {
    z_stream stream{};
    EXPECT_EQ(deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY), Z_OK);
    Bytes output(deflateBound(&stream, static_cast<uLong>(input.size())));
    stream.next_in = const_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    stream.next_out = output.data();
    stream.avail_out = static_cast<uInt>(output.size());
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    output.resize(stream.total_out);
    deflateEnd(&stream);
    return output;
}

// A level chunk as the bridge sends it, and text that compresses well.
Bytes chunkLike() {
    Bytes bytes = testing::bytesFromHex("BA 00 85 00 85 00 00 00 82 82 00 0A 00 00");
    bytes.resize(bytes.size() + 255, 0x00);
    return bytes;
}

Bytes repetitive(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>("ferrylink:world_table_entry "[i % 28] ^ (i / 4096));
    }
    return bytes;
}

// Past two output blocks, incompressible enough to stay large.
Bytes noisy(size_t size) {
    Bytes bytes(size);
    uint32_t state = 0x12345678;
    for (auto& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return bytes;
}

// Each thread keeps streams of its own, reset between calls: a batch must
// not be shaped by the one before it, also where the next repeats what the
// last held, nor by another thread's.
TEST(RawDeflateTest, EveryCallGivesTheBytesOfAFreshStreamOnEveryThread) {
    const std::vector<Bytes> inputs = {testing::bytesFromHex("81 00 09"), chunkLike(), chunkLike(), {},
                                       repetitive(9000), noisy(200000), testing::bytesFromHex("81 00 09"),
                                       repetitive(70000)};
    std::vector<char> same(3, 0);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < same.size(); ++t) {
        threads.emplace_back([&, t] {
            bool all = true;
            for (int round = 0; round < 5; ++round) {
                for (const auto& input : inputs) {
                    auto compressed = deflateRaw(input);
                    all = all && compressed && *compressed == freshStream(input) &&
                          inflateRaw(*compressed, noLimit) == input;
                }
            }
            same[t] = all;
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(same, std::vector<char>(same.size(), 1));
}

TEST(RawDeflateTest, CutGarbledEmptyAndOverlongStreamsFailAndLeaveTheNextOneWhole) {
    auto compressed = deflateRaw(repetitive(5000)).value();
    EXPECT_FALSE(inflateRaw(std::span<const uint8_t>(compressed).first(compressed.size() / 2), noLimit));
    EXPECT_FALSE(inflateRaw(testing::bytesFromHex("FF FF FF"), noLimit));
    EXPECT_FALSE(inflateRaw({}, noLimit));
    // A small stream of zeros that would grow far past its limit stops at it.
    auto bomb = deflateRaw(Bytes(5'000'000, 0)).value();
    EXPECT_LT(bomb.size(), 6000u);
    EXPECT_FALSE(inflateRaw(bomb, 4'000'000));
    EXPECT_EQ(inflateRaw(bomb, 5'000'000), Bytes(5'000'000, 0));
    EXPECT_EQ(inflateRaw(compressed, 5000), repetitive(5000));
    // Bytes behind the final block are ignored.
    compressed.push_back(0x55);
    EXPECT_EQ(inflateRaw(compressed, noLimit), repetitive(5000));
}

// What every console is sent alike stays; one-off batches come and go within
// the budget; every answer is the fresh stream's bytes.
TEST(DeflateCacheTest, GivesTheFreshStreamsBytesAndStaysWithinItsBudget) {
    DeflateCache cache(64 * 1024);
    const Bytes shared = repetitive(5000);
    for (uint32_t i = 0; i < 200; ++i) {
        Bytes oneOff = noisy(2000);
        std::copy(reinterpret_cast<const uint8_t*>(&i), reinterpret_cast<const uint8_t*>(&i + 1), oneOff.begin());
        EXPECT_EQ(*cache.deflate(oneOff), freshStream(oneOff));
        EXPECT_EQ(*cache.deflate(shared), freshStream(shared));
        EXPECT_LE(cache.heldBytes(), 64u * 1024);
    }
    // The batch every console is sent is the one held, not made again.
    EXPECT_EQ(cache.deflate(shared), cache.deflate(shared));
    EXPECT_EQ(*cache.deflate(noisy(200000)), freshStream(noisy(200000)));
}

}  // namespace
}  // namespace ferrylink::bridge
