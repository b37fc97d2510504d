#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "network_tag_reader.h"
#include "test_bytes.h"

namespace ferrylink::resources {
namespace {

namespace fs = std::filesystem;
using testing::hexString;
using testing::readFileBytes;

const fs::path kBundle = fs::path(FERRYLINK_RESOURCE_SOURCE_DIR) / "portalhop_PortalHop.bundle";
constexpr std::int32_t kBlockStateVersion = 17825808;

std::vector<std::uint8_t> bundleFile(const char* name) {
    return readFileBytes(kBundle / name);
}

// The opening bytes are what the client sees first in the packet body.
std::string head(const std::vector<std::uint8_t>& bytes, std::size_t count) {
    return hexString({bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(count, bytes.size()))});
}

// A block's states as one comparable text, for finding duplicates.
std::string statesKey(const Tag& states) {
    std::string key;
    for (const auto& entry : states.asCompound().entries) {
        key += entry.name + "=";
        switch (entry.tag.type) {
            case TagType::Byte:
                key += "b" + std::to_string(entry.tag.asByte());
                break;
            case TagType::Int:
                key += "i" + std::to_string(entry.tag.asInt());
                break;
            case TagType::String:
                key += "s" + entry.tag.asString();
                break;
            default:
                ADD_FAILURE() << "state " << entry.name << " has tag type " << static_cast<int>(entry.tag.type);
        }
        key += ";";
    }
    return key;
}

TEST(BiomeDefinitionsFileTest, IsOneUnnamedCompoundOfBiomesWithTemperatureAndDownfall) {
    const auto bytes = bundleFile("biome_definitions.nbt");
    // Unnamed root, then "plains" { "downfall": 0.4F, "temperatu...
    EXPECT_EQ(head(bytes, 35),
              "0A 00 0A 06 70 6C 61 69 6E 73 05 08 64 6F 77 6E 66 61 6C 6C CD CC CC 3E 05 0B 74 65 6D 70 65 72 "
              "61 74 75");
    const NamedTag root = readWholeNetworkTag(bytes);
    EXPECT_EQ(root.name, "");
    const auto& biomes = root.tag.asCompound().entries;
    EXPECT_GE(biomes.size(), 60U);

    std::set<std::string> names;
    for (const auto& biome : biomes) {
        EXPECT_TRUE(names.insert(biome.name).second) << biome.name << " appears twice";
        ASSERT_EQ(biome.tag.asCompound().entries.size(), 2U) << biome.name;
        const float temperature = biome.tag.at("temperature").asFloat();
        const float downfall = biome.tag.at("downfall").asFloat();
        EXPECT_TRUE(temperature >= -1.0F && temperature <= 2.0F) << biome.name;
        EXPECT_TRUE(downfall >= 0.0F && downfall <= 1.0F) << biome.name;
    }
    for (const char* name : {"plains", "ocean", "desert", "forest", "hell", "the_end", "river"}) {
        EXPECT_TRUE(names.count(name)) << name;
    }
}

TEST(BiomeDefinitionsFileTest, HoldsTheUsualClimateOfKnownBiomes) {
    const NamedTag root = readWholeNetworkTag(bundleFile("biome_definitions.nbt"));
    const std::map<std::string, std::pair<float, float>> expected = {
        {"plains", {0.8F, 0.4F}},  {"desert", {2.0F, 0.0F}}, {"forest", {0.7F, 0.8F}},
        {"ice_plains", {0.0F, 0.5F}}, {"jungle", {0.95F, 0.9F}}, {"cold_taiga", {-0.5F, 0.4F}},
    };
    for (const auto& [name, climate] : expected) {
        const Tag& biome = root.tag.at(name);
        EXPECT_EQ(biome.at("temperature").asFloat(), climate.first) << name;
        EXPECT_EQ(biome.at("downfall").asFloat(), climate.second) << name;
    }
}

TEST(EntityIdentifiersFileTest, IsOneUnnamedCompoundWithTheListIdlist) {
    const auto bytes = bundleFile("entity_identifiers.nbt");
    EXPECT_EQ(head(bytes, 11), "0A 00 09 06 69 64 6C 69 73 74 0A");
    const NamedTag root = readWholeNetworkTag(bytes);
    EXPECT_EQ(root.name, "");
    ASSERT_EQ(root.tag.asCompound().entries.size(), 1U);
    const TagList& idlist = root.tag.at("idlist").asList();
    ASSERT_EQ(idlist.elementType, TagType::Compound);
    EXPECT_GE(idlist.items.size(), 100U);

    std::set<std::string> ids;
    std::set<std::int32_t> runtimeIds;
    for (const Tag& entity : idlist.items) {
        ASSERT_EQ(entity.asCompound().entries.size(), 5U);
        const std::string& id = entity.at("id").asString();
        EXPECT_EQ(id.rfind("minecraft:", 0), 0U) << id;
        EXPECT_TRUE(ids.insert(id).second) << id << " appears twice";
        EXPECT_TRUE(runtimeIds.insert(entity.at("rid").asInt()).second) << id << " shares its rid";
        EXPECT_EQ(entity.at("bid").asString(), "") << id;
        EXPECT_LE(static_cast<unsigned>(entity.at("hasspawnegg").asByte()), 1U) << id;
        EXPECT_LE(static_cast<unsigned>(entity.at("summonable").asByte()), 1U) << id;
    }
}

TEST(EntityIdentifiersFileTest, HoldsKnownEntitiesWithTheirRuntimeIds) {
    const NamedTag root = readWholeNetworkTag(bundleFile("entity_identifiers.nbt"));
    std::map<std::string, const Tag*> byId;
    for (const Tag& entity : root.tag.at("idlist").asList().items) {
        byId[entity.at("id").asString()] = &entity;
    }
    const struct {
        const char* id;
        std::int32_t rid;
        std::int8_t egg;
    } expected[] = {
        {"minecraft:chicken", 10, 1}, {"minecraft:pig", 12, 1}, {"minecraft:zombie", 32, 1},
        {"minecraft:creeper", 33, 1}, {"minecraft:player", 63, 0}, {"minecraft:item", 64, 0},
    };
    for (const auto& e : expected) {
        ASSERT_TRUE(byId.count(e.id)) << e.id;
        EXPECT_EQ(byId[e.id]->at("rid").asInt(), e.rid) << e.id;
        EXPECT_EQ(byId[e.id]->at("hasspawnegg").asByte(), e.egg) << e.id;
    }
}

TEST(RequiredBlockStatesFileTest, IsOneUnnamedListOfBlockStateCompounds) {
    const auto bytes = bundleFile("required_block_states.nbt");
    EXPECT_EQ(head(bytes, 3), "09 00 0A");
    const NamedTag root = readWholeNetworkTag(bytes);
    EXPECT_EQ(root.name, "");
    const TagList& palette = root.tag.asList();
    ASSERT_EQ(palette.elementType, TagType::Compound);
    EXPECT_GE(palette.items.size(), 4000U);

    std::set<std::string> seen;
    for (const Tag& entry : palette.items) {
        ASSERT_EQ(entry.asCompound().entries.size(), 2U);
        const Tag& block = entry.at("block");
        ASSERT_EQ(block.asCompound().entries.size(), 3U);
        const std::string& name = block.at("name").asString();
        EXPECT_EQ(name.rfind("minecraft:", 0), 0U) << name;
        EXPECT_EQ(block.at("version").asInt(), kBlockStateVersion) << name;
        EXPECT_GE(entry.at("id").asShort(), 0) << name;
        const std::string key = name + "{" + statesKey(block.at("states")) + "}";
        EXPECT_TRUE(seen.insert(key).second) << key << " appears twice";
    }
}

TEST(RequiredBlockStatesFileTest, HoldsEveryStateOfKnownBlocks) {
    const NamedTag root = readWholeNetworkTag(bundleFile("required_block_states.nbt"));
    const TagList& palette = root.tag.asList();

    const Tag& air = palette.items.front();
    EXPECT_EQ(air.at("block").at("name").asString(), "minecraft:air");
    EXPECT_TRUE(air.at("block").at("states").asCompound().entries.empty());
    EXPECT_EQ(air.at("id").asShort(), 0);

    std::map<std::string, std::size_t> statesPerBlock;
    std::map<std::string, std::int16_t> legacyIds;
    std::set<std::string> stoneTypes;
    for (const Tag& entry : palette.items) {
        const std::string& name = entry.at("block").at("name").asString();
        ++statesPerBlock[name];
        legacyIds[name] = entry.at("id").asShort();
        if (name == "minecraft:stone") {
            stoneTypes.insert(entry.at("block").at("states").at("stone_type").asString());
        }
    }
    EXPECT_EQ(stoneTypes, (std::set<std::string>{"stone", "granite", "granite_smooth", "diorite", "diorite_smooth",
                                                 "andesite", "andesite_smooth"}));
    EXPECT_EQ(statesPerBlock["minecraft:grass"], 1U);
    EXPECT_EQ(statesPerBlock["minecraft:wool"], 16U);
    EXPECT_EQ(statesPerBlock["minecraft:water"], 16U);
    EXPECT_EQ(statesPerBlock["minecraft:oak_stairs"], 8U);
    EXPECT_EQ(statesPerBlock["minecraft:wooden_door"], 32U);
    EXPECT_EQ(statesPerBlock["minecraft:cobblestone_wall"], 14U * 81U * 2U);
    EXPECT_EQ(legacyIds["minecraft:stone"], 1);
    EXPECT_EQ(legacyIds["minecraft:wool"], 35);
    EXPECT_EQ(legacyIds["minecraft:blue_ice"], 266);
}

TEST(RequiredBlockStatesFileTest, KeepsStateValueTypes) {
    const NamedTag root = readWholeNetworkTag(bundleFile("required_block_states.nbt"));
    for (const Tag& entry : root.tag.asList().items) {
        const Tag& block = entry.at("block");
        if (block.at("name").asString() != "minecraft:wooden_door") {
            continue;
        }
        const Tag& states = block.at("states");
        EXPECT_EQ(states.at("direction").type, TagType::Int);
        EXPECT_EQ(states.at("door_hinge_bit").type, TagType::Byte);
        EXPECT_EQ(states.at("open_bit").type, TagType::Byte);
        EXPECT_EQ(states.at("upper_block_bit").type, TagType::Byte);
        return;
    }
    FAIL() << "no minecraft:wooden_door in the palette";
}

// The build copies the bundle beside the executables, where the bridge
// looks for it.
TEST(ResourceBundleTest, BuildCopyMatchesTheCommittedFiles) {
    const fs::path copy = FERRYLINK_BUILD_BUNDLE_DIR;
    for (const char* name : {"biome_definitions.nbt", "entity_identifiers.nbt", "required_block_states.nbt"}) {
        ASSERT_TRUE(fs::exists(copy / name)) << copy / name;
        EXPECT_TRUE(readFileBytes(copy / name) == bundleFile(name)) << name;
    }
}

}  // namespace
}  // namespace ferrylink::resources
