#include "bridge/packets/raw_deflate.h"

#include <zlib.h>

#include <limits>
#include <memory>

namespace ferrylink::bridge {

namespace {
// Window bits below zero select the raw form.
constexpr int rawWindowBits = -15;
constexpr int memoryLevel = 8;
// Output is gathered in blocks of this size.
constexpr size_t outputBlock = 65536;

// One stream of each direction per thread, reset between calls. A reset
// stream makes the same bytes as a new one with the same parameters; it only
// spares each batch the allocation of the compressor's quarter megabyte of
// state. The block that output passes through is kept as well, uninitialised,
// so a small batch costs one allocation of its own size.
class ThreadStreams {
public:
    ThreadStreams() : block_(new uint8_t[outputBlock]) {}
    ~ThreadStreams() {
        if (deflating_) {
            deflateEnd(&deflater_);
        }
        if (inflating_) {
            inflateEnd(&inflater_);
        }
    }
    ThreadStreams(const ThreadStreams&) = delete;
    ThreadStreams& operator=(const ThreadStreams&) = delete;

    static ThreadStreams& current() {
        static thread_local ThreadStreams streams;
        return streams;
    }

    // A compressor at the start of a stream; nothing when zlib fails.
    z_stream* deflater() {
        if (deflating_) {
            return deflateReset(&deflater_) == Z_OK ? &deflater_ : nullptr;
        }
        deflater_ = z_stream{};
        deflating_ = deflateInit2(&deflater_, Z_DEFAULT_COMPRESSION, Z_DEFLATED, rawWindowBits, memoryLevel,
                                  Z_DEFAULT_STRATEGY) == Z_OK;
        return deflating_ ? &deflater_ : nullptr;
    }

    z_stream* inflater() {
        if (inflating_) {
            return inflateReset(&inflater_) == Z_OK ? &inflater_ : nullptr;
        }
        inflater_ = z_stream{};
        inflating_ = inflateInit2(&inflater_, rawWindowBits) == Z_OK;
        return inflating_ ? &inflater_ : nullptr;
    }

    uint8_t* block() { return block_.get(); }

private:
    std::unique_ptr<uint8_t[]> block_;
    z_stream deflater_{};
    z_stream inflater_{};
    bool deflating_ = false;
    bool inflating_ = false;
};

// Runs `step` (deflate or inflate) over the whole input that `stream` was
// given, block by block, until it stops making progress or the output would
// pass `limit`; returns its last status, Z_BUF_ERROR for the limit.
template <typename Step>
int drain(z_stream& stream, uint8_t* block, std::vector<uint8_t>& output, size_t limit, Step step) {
    int status = Z_OK;
    while (status == Z_OK) {
        stream.next_out = block;
        stream.avail_out = static_cast<uInt>(outputBlock);
        status = step(&stream);
        size_t made = outputBlock - stream.avail_out;
        if (output.size() + made > limit) {
            return Z_BUF_ERROR;
        }
        output.insert(output.end(), block, block + made);
    }
    return status;
}
}  // namespace

std::optional<std::vector<uint8_t>> deflateRaw(std::span<const uint8_t> input) {
    if (input.size() > std::numeric_limits<uInt>::max()) {
        return std::nullopt;
    }
    ThreadStreams& streams = ThreadStreams::current();
    z_stream* stream = streams.deflater();
    if (!stream) {
        return std::nullopt;
    }
    stream->next_in = const_cast<Bytef*>(input.data());
    stream->avail_in = static_cast<uInt>(input.size());
    std::vector<uint8_t> output;
    int status = drain(*stream, streams.block(), output, std::numeric_limits<size_t>::max(),
                       [](z_stream* s) { return deflate(s, Z_FINISH); });
    if (status != Z_STREAM_END) {
        return std::nullopt;
    }
    return output;
}

std::optional<std::vector<uint8_t>> inflateRaw(std::span<const uint8_t> input, size_t limit) {
    if (input.size() > std::numeric_limits<uInt>::max()) {
        return std::nullopt;
    }
    ThreadStreams& streams = ThreadStreams::current();
    z_stream* stream = streams.inflater();
    if (!stream) {
        return std::nullopt;
    }
    stream->next_in = const_cast<Bytef*>(input.data());
    stream->avail_in = static_cast<uInt>(input.size());
    std::vector<uint8_t> output;
    // Z_OK means progress was made; without input left and no end of stream
    // the next call reports Z_BUF_ERROR, which is how a cut stream shows.
    int status = drain(*stream, streams.block(), output, limit, [](z_stream* s) { return inflate(s, Z_NO_FLUSH); });
    if (status != Z_STREAM_END) {
        return std::nullopt;
    }
    return output;
}

}  // namespace ferrylink::bridge
