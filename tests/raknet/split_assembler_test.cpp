#include "raknet/split_assembler.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace ferrylink::raknet {
namespace {

using foundation::ByteBuffer;
using Bytes = std::vector<uint8_t>;

EncapsulatedPacket fragment(int32_t id, int32_t count, int32_t index, Bytes payload) {
    EncapsulatedPacket made;
    made.reliability = Reliability::UNRELIABLE;
    made.split = true;
    made.splitId = id;
    made.splitCount = count;
    made.splitIndex = index;
    made.buffer = ByteBuffer(payload);
    return made;
}

Bytes bytesOf(const ByteBuffer& buffer) {
    auto view = buffer.readableView();
    return Bytes(view.begin(), view.end());
}

TEST(SplitAssemblerTest, FragmentsInAnyOrderGiveThePayloadAndLeaveNothingBehind) {
    auto memory = std::make_shared<FragmentMemory>();
    SplitAssembler assembler(memory);
    for (int32_t index : {2, 0}) {
        auto added = assembler.add(fragment(9, 3, index, {static_cast<uint8_t>(index), 0xAA}));
        ASSERT_TRUE(added);
        EXPECT_FALSE(*added);
    }
    EXPECT_GT(memory->held, 0u);
    auto whole = assembler.add(fragment(9, 3, 1, {0x01}));
    ASSERT_TRUE(whole && *whole);
    EXPECT_EQ(bytesOf(**whole), (Bytes{0x00, 0xAA, 0x01, 0x02, 0xAA}));
    EXPECT_EQ(assembler.sets(), 0u);
    EXPECT_EQ(assembler.heldBytes(), 0u);
    EXPECT_EQ(memory->held, 0u);
}

TEST(SplitAssemblerTest, RepeatedIndexReplacesTheEarlierFragment) {
    SplitAssembler assembler;
    ASSERT_TRUE(assembler.add(fragment(1, 2, 0, {0xFE, 0xAA})));
    ASSERT_TRUE(assembler.add(fragment(1, 2, 0, {0xFE, 0xBB})));
    auto whole = assembler.add(fragment(1, 2, 1, {0x01}));
    ASSERT_TRUE(whole && *whole);
    EXPECT_EQ(bytesOf(**whole), (Bytes{0xFE, 0xBB, 0x01}));
}

TEST(SplitAssemblerTest, HeldFragmentsGoBackWhenTheAssemblerGoes) {
    auto memory = std::make_shared<FragmentMemory>();
    {
        SplitAssembler assembler(memory);
        ASSERT_TRUE(assembler.add(fragment(1, 4, 0, Bytes(100))));
        EXPECT_EQ(memory->held, 100 + SplitAssembler::FRAGMENT_OVERHEAD);
    }
    EXPECT_EQ(memory->held, 0u);
}

// Each limit on its own: the fragment that passes it is refused with a
// reason, and the peer that sent it is dropped by its connection.
struct LimitCase {
    const char* name;
    std::function<foundation::Expected<std::optional<ByteBuffer>>(SplitAssembler&)> feed;
    std::string reason;
    size_t memoryLimit = FragmentMemory::DEFAULT_LIMIT;
};

class SplitLimitTest : public ::testing::TestWithParam<LimitCase> {};

TEST_P(SplitLimitTest, FragmentBeyondTheLimitIsRefused) {
    auto memory = std::make_shared<FragmentMemory>();
    memory->limit = GetParam().memoryLimit;
    SplitAssembler assembler(memory);
    auto outcome = GetParam().feed(assembler);
    ASSERT_FALSE(outcome);
    EXPECT_EQ(outcome.error(), GetParam().reason);
}

// All fragments of a set but its last, or until one is refused.
foundation::Expected<std::optional<ByteBuffer>> feedUntilRefused(SplitAssembler& assembler, int32_t id, int32_t count,
                                                                 size_t size) {
    for (int32_t index = 0; index + 1 < count; ++index) {
        auto outcome = assembler.add(fragment(id, count, index, Bytes(size)));
        if (!outcome) {
            return outcome;
        }
    }
    return std::optional<ByteBuffer>();
}

INSTANTIATE_TEST_SUITE_P(
    Limits, SplitLimitTest,
    ::testing::Values(
        LimitCase{"CountOfZero", [](SplitAssembler& a) { return a.add(fragment(1, 0, 0, {1})); }, "split count out of range"},
        LimitCase{"CountOfTwoToTheThirtyFirst",
                  [](SplitAssembler& a) { return a.add(fragment(1, 0x7FFFFFFF, 0, {1})); }, "split count out of range"},
        LimitCase{"IndexAtTheCount", [](SplitAssembler& a) { return a.add(fragment(1, 3, 3, {1})); },
                  "split index out of range"},
        LimitCase{"NinthSetAtOnce",
                  [](SplitAssembler& a) {
                      for (int32_t id = 0; id < 8; ++id) {
                          (void)a.add(fragment(id, 2, 0, {1}));
                      }
                      return a.add(fragment(8, 2, 0, {1}));
                  },
                  "too many split payloads at once"},
        LimitCase{"PayloadPastFourMiB", [](SplitAssembler& a) { return feedUntilRefused(a, 1, 4096, 1100); },
                  "split payload too large"},
        LimitCase{"TinyFragmentsPastWhatOnePeerMayHold",
                  [](SplitAssembler& a) {
                      for (int32_t id = 0; id < 8; ++id) {
                          if (auto outcome = feedUntilRefused(a, id, 8192, 1); !outcome) {
                              return outcome;
                          }
                      }
                      return foundation::Expected<std::optional<ByteBuffer>>(std::optional<ByteBuffer>());
                  },
                  "too many fragments held"},
        LimitCase{"AllPeersTogetherPastTheirLimit", [](SplitAssembler& a) { return feedUntilRefused(a, 1, 2048, 1400); },
                  "no room for more fragments", 1 << 20}),
    [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace ferrylink::raknet
