#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "resources/resgen/resource_tables.h"

namespace ferrylink::resources {

// Block state version written into every palette entry: the 1.16 releases'
// number, built as major << 24 | minor << 16 | patch << 8 | revision.
inline constexpr std::int32_t kBlockStateVersion = (1 << 24) | (16 << 16) | (0 << 8) | 16;

// Body of the biome definition list: an unnamed root compound with one
// compound per biome, keyed by its name, holding "downfall" and
// "temperature" as floats.
std::vector<std::uint8_t> buildBiomeDefinitions(const std::vector<Biome>& biomes);

// Body of the entity identifier list: an unnamed root compound holding the
// list "idlist" of compounds with "bid", "hasspawnegg", "id", "rid" and
// "summonable".
std::vector<std::uint8_t> buildEntityIdentifiers(const std::vector<EntityIdentifier>& entities);

// The block palette that old clients read from the start of the game: an
// unnamed root list of compounds, one for each combination of a block's
// property values, each holding "block" (its "name", "states" and
// "version") and the legacy numeric "id" as a short.
std::vector<std::uint8_t> buildRequiredBlockStates(const std::vector<BlockType>& blocks);

// The number of palette entries that `blocks` expands to.
std::size_t countBlockStates(const std::vector<BlockType>& blocks);

// The three files of the bundle, by file name.
struct ResourceFile {
    std::string fileName;
    std::vector<std::uint8_t> bytes;
    std::string summary;
};

// Reads biomes.tsv, entities.tsv and block_palette.tsv from `tablesDir` and
// builds the three files from them. Throws `TableError` on a faulty table.
std::vector<ResourceFile> buildResourceFiles(const std::filesystem::path& tablesDir);

}  // namespace ferrylink::resources
