#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace ferrylink::resources {

// A fault in a source table, with the file and line it was found at.
class TableError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One row of biomes.tsv.
struct Biome {
    std::string name;
    float temperature = 0.0F;
    float downfall = 0.0F;
};

// One row of entities.tsv.
struct EntityIdentifier {
    std::string id;
    std::int32_t runtimeId = 0;
    bool hasSpawnEgg = false;
    bool summonable = false;
};

// The kind of tag a block state property is stored as.
enum class StateKind { Byte, Int, String };

// One property of a block and every value it can take, in table order.
struct StateProperty {
    std::string name;
    StateKind kind = StateKind::Int;
    std::vector<std::string> values;
};

// One row of block_palette.tsv: a block and the properties whose every
// combination is one entry of the palette.
struct BlockType {
    std::int16_t legacyId = 0;
    std::string name;
    std::vector<StateProperty> properties;
};

std::vector<Biome> loadBiomes(const std::filesystem::path& path);
std::vector<EntityIdentifier> loadEntityIdentifiers(const std::filesystem::path& path);
std::vector<BlockType> loadBlockPalette(const std::filesystem::path& path);

}  // namespace ferrylink::resources
