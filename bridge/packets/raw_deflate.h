#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace ferrylink::bridge {

// Raw DEFLATE (RFC 1951): no zlib header, no checksum trailer, the whole input
// in one call. Both give nothing when the library fails.
std::optional<std::vector<uint8_t>> deflateRaw(std::span<const uint8_t> input);
// An empty input, a stream that stops before its final block and one that
// would inflate to more than `limit` bytes all fail; the limit is checked as
// the output grows, so a small bomb never takes more. Bytes behind the final
// block are ignored.
std::optional<std::vector<uint8_t>> inflateRaw(std::span<const uint8_t> input, size_t limit);

}  // namespace ferrylink::bridge
