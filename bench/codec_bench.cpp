// Micro-benchmarks of the paths every packet takes: var-ints, integer
// writes, slices and copy-on-write.
#include <benchmark/benchmark.h>

#include "foundation/byte_buffer.h"
#include "foundation/codecs.h"

namespace {

using ferrylink::foundation::ByteBuffer;

void writeVarInts(benchmark::State& state) {
    for (auto _ : state) {
        auto buffer = ByteBuffer::withCapacity(2048);
        for (uint64_t value = 0; value < 256; ++value) {
            ferrylink::foundation::writeVarInt(buffer, value * 977);
        }
        benchmark::DoNotOptimize(buffer);
    }
    state.SetItemsProcessed(state.iterations() * 256);
}
BENCHMARK(writeVarInts);

void readVarInts(benchmark::State& state) {
    ByteBuffer encoded;
    for (int i = 0; i < 256; ++i) {
        encoded.writeInteger<uint8_t>(0xE8);
        encoded.writeInteger<uint8_t>(0x87);
        encoded.writeInteger<uint8_t>(0x00);
    }
    for (auto _ : state) {
        ByteBuffer reader = encoded;
        uint64_t sum = 0;
        while (reader.readableBytes() > 0) {
            sum += *ferrylink::foundation::readVarInt(reader);
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * 256);
}
BENCHMARK(readVarInts);

void writeIntegers(benchmark::State& state) {
    for (auto _ : state) {
        auto buffer = ByteBuffer::withCapacity(2048);
        for (int i = 0; i < 128; ++i) {
            buffer.writeInteger<int64_t>(i);
            buffer.writeInteger<uint32_t>(static_cast<uint32_t>(i), ferrylink::foundation::Endianness::little);
        }
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(writeIntegers);

void sliceAndRead(benchmark::State& state) {
    ByteBuffer datagram(std::string(1400, 'x'));
    for (auto _ : state) {
        ByteBuffer reader = datagram;
        while (auto slice = reader.readSlice(100)) {
            benchmark::DoNotOptimize(slice->getInteger<uint32_t>(0));
        }
    }
}
BENCHMARK(sliceAndRead);

void copyOnWrite(benchmark::State& state) {
    ByteBuffer original(std::string(1400, 'x'));
    for (auto _ : state) {
        ByteBuffer copy = original;
        copy.writeInteger<uint8_t>(1);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(copyOnWrite);

}  // namespace
