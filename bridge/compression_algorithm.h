#pragma once

#include <cstdint>

namespace ferrylink::bridge {

// Whether a client's batches are deflated, held per client and used in both
// directions. Before v649 nothing on the wire says which one is in force: both
// sides know.
enum class CompressionAlgorithm : uint8_t {
    NONE = 0,
    ZLIB = 1,
};

// How a client's batches travel. The session sets it: compression from the
// first batch for clients that don't ask for settings, from the answer to
// their request for the others.
struct BatchFraming {
    CompressionAlgorithm compression = CompressionAlgorithm::NONE;
    // From v649 on, once compression is on, each batch names its compression
    // in a byte behind 0xFE: 00 raw deflate, FF none. Before, nothing marks a
    // batch that a client left raw because it was small, as some do: a batch
    // that won't inflate is read as it stands.
    bool algorithmByte = false;
};

}  // namespace ferrylink::bridge
