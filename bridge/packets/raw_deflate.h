#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace ferrylink::bridge {

// Raw DEFLATE (RFC 1951): no zlib header, no checksum trailer, the whole input
// in one call. Both give nothing when the library fails.
std::optional<std::vector<uint8_t>> deflateRaw(std::span<const uint8_t> input);
// An empty input and a stream that stops before its final block both fail;
// bytes behind the final block are ignored. The result has no size limit.
std::optional<std::vector<uint8_t>> inflateRaw(std::span<const uint8_t> input);

}  // namespace ferrylink::bridge
