#pragma once

#include <optional>
#include <string_view>

#include "foundation/byte_buffer.h"

namespace ferrylink::bridge {

// The three tables that clients get byte for byte from the server's resource
// files. Each new PortalHop loads them again; they are kept for the process and
// shared by all clients, and one that was never loaded stays absent.
enum class WorldResource {
    biomeDefinitions,
    entityIdentifiers,
    requiredBlockStates,
};

// The file name of a resource inside the bundle, without its "nbt" extension.
std::string_view resourceName(WorldResource resource);

class WorldResources {
public:
    static std::optional<foundation::ByteBuffer> get(WorldResource resource);
    // The loaded bytes; a table that was never loaded is a fatal fault, so
    // that no client ever gets a shortened packet.
    static foundation::ByteBuffer require(WorldResource resource);
    static void set(WorldResource resource, std::optional<foundation::ByteBuffer> bytes);
};

}  // namespace ferrylink::bridge
