#include "bridge/packets/raw_deflate.h"

#include <zlib.h>

#include <limits>

namespace ferrylink::bridge {

namespace {
// Window bits below zero select the raw form.
constexpr int rawWindowBits = -15;
constexpr int memoryLevel = 8;
// Output is gathered in blocks of this size.
constexpr size_t outputBlock = 65536;
}  // namespace

std::optional<std::vector<uint8_t>> deflateRaw(std::span<const uint8_t> input) {
    if (input.size() > std::numeric_limits<uInt>::max()) {
        return std::nullopt;
    }
    z_stream stream{};
    if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, rawWindowBits, memoryLevel,
                     Z_DEFAULT_STRATEGY) != Z_OK) {
        return std::nullopt;
    }
    std::vector<uint8_t> output;
    stream.next_in = const_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    int status = Z_OK;
    while (status == Z_OK) {
        size_t used = output.size();
        output.resize(used + outputBlock);
        stream.next_out = output.data() + used;
        stream.avail_out = static_cast<uInt>(outputBlock);
        status = deflate(&stream, Z_FINISH);
        output.resize(used + outputBlock - stream.avail_out);
    }
    deflateEnd(&stream);
    if (status != Z_STREAM_END) {
        return std::nullopt;
    }
    return output;
}

std::optional<std::vector<uint8_t>> inflateRaw(std::span<const uint8_t> input) {
    if (input.size() > std::numeric_limits<uInt>::max()) {
        return std::nullopt;
    }
    z_stream stream{};
    if (inflateInit2(&stream, rawWindowBits) != Z_OK) {
        return std::nullopt;
    }
    std::vector<uint8_t> output;
    stream.next_in = const_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    int status = Z_OK;
    // Z_OK means progress was made; without input left and no end of stream
    // the next call reports Z_BUF_ERROR, which is how a cut stream shows.
    while (status == Z_OK) {
        size_t used = output.size();
        output.resize(used + outputBlock);
        stream.next_out = output.data() + used;
        stream.avail_out = static_cast<uInt>(outputBlock);
        status = inflate(&stream, Z_NO_FLUSH);
        output.resize(used + outputBlock - stream.avail_out);
    }
    inflateEnd(&stream);
    if (status != Z_STREAM_END) {
        return std::nullopt;
    }
    return output;
}

}  // namespace ferrylink::bridge
