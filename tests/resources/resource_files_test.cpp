// The three committed files that the bridge sends to every client: each must
// read whole as one tag of the network form, in the shape the client expects.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "network_tag_reader.h"
#include "support/hex.h"
#include "test_bytes.h"

namespace ferrylink::resources {
namespace {

namespace fs = std::filesystem;
using testing::readFileBytes;

const fs::path kBundle = fs::path(FERRYLINK_RESOURCE_SOURCE_DIR) / "portalhop_PortalHop.bundle";
const char* const kFiles[] = {"biome_definitions.nbt", "entity_identifiers.nbt", "required_block_states.nbt"};

// Reads a bundle file whole, after checking its opening bytes: what the
// client meets first in the packet body.
NamedTag readBundleFile(const char* name, const std::string& head) {
    const auto bytes = readFileBytes(kBundle / name);
    const auto count = std::min(bytes.size(), ferrylink::testing::bytesFromHex(head).size());
    EXPECT_EQ(ferrylink::testing::hexOf(std::span(bytes).first(count)), head) << name;
    NamedTag root = readWholeNetworkTag(bytes);
    EXPECT_EQ(root.name, "") << name;
    return root;
}

// A block state's value as comparable text; a type other than byte, int or
// string throws.
std::string valueText(const Tag& tag) {
    switch (tag.type) {
        case TagType::Byte:
            return "b" + std::to_string(tag.asByte());
        case TagType::Int:
            return "i" + std::to_string(tag.asInt());
        default:
            return "s" + tag.asString();
    }
}

TEST(ResourceFilesTest, BiomeDefinitionsAreOneCompoundOfUniqueBiomesWithTheirClimate) {
    // Unnamed root, then "plains" { "downfall": 0.4F, "temperatu...
    const NamedTag root = readBundleFile("biome_definitions.nbt",
                                         "0A 00 0A 06 70 6C 61 69 6E 73 05 08 64 6F 77 6E 66 61 6C 6C CD CC CC 3E "
                                         "05 0B 74 65 6D 70 65 72 61 74 75");
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
    const std::map<std::string, std::pair<float, float>> known = {
        {"plains", {0.8F, 0.4F}},     {"desert", {2.0F, 0.0F}},  {"forest", {0.7F, 0.8F}}, {"hell", {2.0F, 0.0F}},
        {"ice_plains", {0.0F, 0.5F}}, {"jungle", {0.95F, 0.9F}}, {"cold_taiga", {-0.5F, 0.4F}},
    };
    for (const auto& [name, climate] : known) {
        EXPECT_EQ(root.tag.at(name).at("temperature").asFloat(), climate.first) << name;
        EXPECT_EQ(root.tag.at(name).at("downfall").asFloat(), climate.second) << name;
    }
    for (const char* name : {"ocean", "river", "the_end"}) {
        EXPECT_TRUE(names.count(name)) << name;
    }
}

TEST(ResourceFilesTest, EntityIdentifiersAreTheIdlistOfUniqueEntities) {
    const NamedTag root = readBundleFile("entity_identifiers.nbt", "0A 00 09 06 69 64 6C 69 73 74 0A");
    ASSERT_EQ(root.tag.asCompound().entries.size(), 1U);
    const auto& idlist = root.tag.at("idlist").asList().items;
    EXPECT_GE(idlist.size(), 100U);
    std::set<std::string> ids;
    std::set<std::int32_t> runtimeIds;
    std::map<std::string, std::pair<std::int32_t, std::int8_t>> ridAndEgg;
    for (const Tag& entity : idlist) {
        ASSERT_EQ(entity.asCompound().entries.size(), 5U);
        const std::string& id = entity.at("id").asString();
        EXPECT_TRUE(id.starts_with("minecraft:")) << id;
        EXPECT_TRUE(ids.insert(id).second) << id << " appears twice";
        EXPECT_TRUE(runtimeIds.insert(entity.at("rid").asInt()).second) << id << " shares its rid";
        EXPECT_EQ(entity.at("bid").asString(), "") << id;
        EXPECT_LE(static_cast<unsigned>(entity.at("summonable").asByte()), 1U) << id;
        ridAndEgg[id] = {entity.at("rid").asInt(), entity.at("hasspawnegg").asByte()};
    }
    const std::map<std::string, std::pair<std::int32_t, std::int8_t>> known = {
        {"minecraft:chicken", {10, 1}}, {"minecraft:zombie", {32, 1}}, {"minecraft:creeper", {33, 1}},
        {"minecraft:player", {63, 0}},  {"minecraft:item", {64, 0}},
    };
    for (const auto& [id, expected] : known) {
        EXPECT_EQ(ridAndEgg[id], expected) << id;
    }
}

TEST(ResourceFilesTest, RequiredBlockStatesAreEveryStateOfEveryBlockOnce) {
    const NamedTag root = readBundleFile("required_block_states.nbt", "09 00 0A");
    const auto& palette = root.tag.asList().items;
    EXPECT_GE(palette.size(), 4000U);
    std::set<std::string> seen;
    std::map<std::string, std::size_t> statesPerBlock;
    std::map<std::string, std::int16_t> legacyIds;
    for (const Tag& entry : palette) {
        ASSERT_EQ(entry.asCompound().entries.size(), 2U);
        const Tag& block = entry.at("block");
        ASSERT_EQ(block.asCompound().entries.size(), 3U);
        const std::string& name = block.at("name").asString();
        EXPECT_TRUE(name.starts_with("minecraft:")) << name;
        EXPECT_EQ(block.at("version").asInt(), 17825808) << name;
        std::string key = name + "{";
        for (const auto& state : block.at("states").asCompound().entries) {
            key += state.name + "=" + valueText(state.tag) + ";";
        }
        EXPECT_TRUE(seen.insert(key).second) << key << "} appears twice";
        ++statesPerBlock[name];
        legacyIds[name] = entry.at("id").asShort();
    }
    EXPECT_EQ(palette.front().at("block").at("name").asString(), "minecraft:air");
    EXPECT_TRUE(seen.count("minecraft:air{"));
    EXPECT_EQ(statesPerBlock["minecraft:stone"], 7U);
    EXPECT_EQ(statesPerBlock["minecraft:grass"], 1U);
    EXPECT_EQ(statesPerBlock["minecraft:wool"], 16U);
    EXPECT_EQ(statesPerBlock["minecraft:wooden_door"], 32U);
    EXPECT_EQ(statesPerBlock["minecraft:cobblestone_wall"], 14U * 81U * 2U);
    EXPECT_TRUE(seen.count("minecraft:wooden_door{direction=i0;door_hinge_bit=b0;open_bit=b0;upper_block_bit=b0;"));
    EXPECT_EQ(legacyIds["minecraft:air"], 0);
    EXPECT_EQ(legacyIds["minecraft:wool"], 35);
    EXPECT_EQ(legacyIds["minecraft:blue_ice"], 266);
}

// The build copies the bundle beside the executables, where the bridge
// looks for it.
TEST(ResourceFilesTest, BuildCopyMatchesTheCommittedFiles) {
    const fs::path copy = FERRYLINK_BUILD_BUNDLE_DIR;
    for (const char* name : kFiles) {
        ASSERT_TRUE(fs::exists(copy / name)) << copy / name;
        EXPECT_TRUE(readFileBytes(copy / name) == readFileBytes(kBundle / name)) << name;
    }
}

}  // namespace
}  // namespace ferrylink::resources
