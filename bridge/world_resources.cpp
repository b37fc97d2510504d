#include "bridge/world_resources.h"

#include <array>
#include <mutex>

#include "foundation/fatal.h"

namespace ferrylink::bridge {

namespace {
// Loaded on the thread that builds a server, read on every server's queue.
std::mutex tablesMutex;
std::array<std::optional<foundation::ByteBuffer>, 3> tables;

size_t slot(WorldResource resource) { return static_cast<size_t>(resource); }
}  // namespace

std::string_view resourceName(WorldResource resource) {
    switch (resource) {
        case WorldResource::biomeDefinitions:
            return "biome_definitions";
        case WorldResource::entityIdentifiers:
            return "entity_identifiers";
        case WorldResource::requiredBlockStates:
            return "required_block_states";
    }
    foundation::fatalFault();
}

std::optional<foundation::ByteBuffer> WorldResources::get(WorldResource resource) {
    std::lock_guard lock(tablesMutex);
    return tables[slot(resource)];
}

foundation::ByteBuffer WorldResources::require(WorldResource resource) {
    return foundation::forced(get(resource));
}

void WorldResources::set(WorldResource resource, std::optional<foundation::ByteBuffer> bytes) {
    std::lock_guard lock(tablesMutex);
    tables[slot(resource)] = std::move(bytes);
}

}  // namespace ferrylink::bridge
