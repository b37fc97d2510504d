#include "resources/resgen/resource_builder.h"

#include <charconv>
#include <limits>
#include <stdexcept>

#include "resources/resgen/network_tag_writer.h"

namespace ferrylink::resources {
namespace {

std::int32_t listLength(std::size_t size) {
    if (size > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
        throw std::length_error("too many entries for a tag list");
    }
    return static_cast<std::int32_t>(size);
}

// Table values of numeric properties were checked when the table was read.
long long numberOf(const std::string& value) {
    long long number = 0;
    std::from_chars(value.data(), value.data() + value.size(), number);
    return number;
}

void writeStateValue(NetworkTagWriter& writer, const StateProperty& property, const std::string& value) {
    switch (property.kind) {
        case StateKind::Byte:
            writer.writeByte(property.name, static_cast<std::int8_t>(numberOf(value)));
            break;
        case StateKind::Int:
            writer.writeInt(property.name, static_cast<std::int32_t>(numberOf(value)));
            break;
        case StateKind::String:
            writer.writeString(property.name, value);
            break;
    }
}

// Calls `visit` with the value index of every property, for every
// combination, the last property changing fastest.
template <typename Visit>
void forEachCombination(const BlockType& block, Visit visit) {
    std::vector<std::size_t> choice(block.properties.size(), 0);
    while (true) {
        visit(choice);
        std::size_t position = choice.size();
        while (position > 0) {
            --position;
            if (++choice[position] < block.properties[position].values.size()) {
                break;
            }
            choice[position] = 0;
            if (position == 0) {
                return;
            }
        }
        if (choice.empty()) {
            return;
        }
    }
}

std::size_t combinations(const BlockType& block) {
    std::size_t count = 1;
    for (const auto& property : block.properties) {
        count *= property.values.size();
    }
    return count;
}

}  // namespace

std::vector<std::uint8_t> buildBiomeDefinitions(const std::vector<Biome>& biomes) {
    NetworkTagWriter writer;
    writer.beginCompound("");
    for (const auto& biome : biomes) {
        writer.beginCompound(biome.name);
        writer.writeFloat("downfall", biome.downfall);
        writer.writeFloat("temperature", biome.temperature);
        writer.endCompound();
    }
    writer.endCompound();
    return writer.take();
}

std::vector<std::uint8_t> buildEntityIdentifiers(const std::vector<EntityIdentifier>& entities) {
    NetworkTagWriter writer;
    writer.beginCompound("");
    writer.beginList("idlist", TagType::Compound, listLength(entities.size()));
    for (const auto& entity : entities) {
        writer.beginCompoundElement();
        writer.writeString("bid", "");
        writer.writeByte("hasspawnegg", entity.hasSpawnEgg ? 1 : 0);
        writer.writeString("id", entity.id);
        writer.writeInt("rid", entity.runtimeId);
        writer.writeByte("summonable", entity.summonable ? 1 : 0);
        writer.endCompound();
    }
    writer.endCompound();
    return writer.take();
}

std::vector<std::uint8_t> buildRequiredBlockStates(const std::vector<BlockType>& blocks) {
    NetworkTagWriter writer;
    writer.beginList("", TagType::Compound, listLength(countBlockStates(blocks)));
    for (const auto& block : blocks) {
        forEachCombination(block, [&](const std::vector<std::size_t>& choice) {
            writer.beginCompoundElement();
            writer.beginCompound("block");
            writer.writeString("name", block.name);
            writer.beginCompound("states");
            for (std::size_t i = 0; i < choice.size(); ++i) {
                writeStateValue(writer, block.properties[i], block.properties[i].values[choice[i]]);
            }
            writer.endCompound();
            writer.writeInt("version", kBlockStateVersion);
            writer.endCompound();
            writer.writeShort("id", block.legacyId);
            writer.endCompound();
        });
    }
    return writer.take();
}

std::size_t countBlockStates(const std::vector<BlockType>& blocks) {
    std::size_t count = 0;
    for (const auto& block : blocks) {
        count += combinations(block);
    }
    return count;
}

std::vector<ResourceFile> buildResourceFiles(const std::filesystem::path& tablesDir) {
    const auto biomes = loadBiomes(tablesDir / "biomes.tsv");
    const auto entities = loadEntityIdentifiers(tablesDir / "entities.tsv");
    const auto blocks = loadBlockPalette(tablesDir / "block_palette.tsv");

    std::vector<ResourceFile> files;
    files.push_back({"biome_definitions.nbt", buildBiomeDefinitions(biomes),
                     std::to_string(biomes.size()) + " biomes"});
    files.push_back({"entity_identifiers.nbt", buildEntityIdentifiers(entities),
                     std::to_string(entities.size()) + " entities"});
    files.push_back({"required_block_states.nbt", buildRequiredBlockStates(blocks),
                     std::to_string(blocks.size()) + " blocks, " + std::to_string(countBlockStates(blocks)) +
                         " states"});
    return files;
}

}  // namespace ferrylink::resources
