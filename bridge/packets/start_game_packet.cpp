#include "bridge/packets/start_game_packet.h"

#include <string>

#include "bridge/packets/network_tag.h"
#include "bridge/server_link.h"
#include "bridge/world_resources.h"
#include "foundation/codecs.h"
#include "foundation/fatal.h"
#include "foundation/random.h"

// Deliberate constants of the layouts, kept as clients have seen them:
// - serverChunkTickRadius is big-endian in the oldest layout alone;
// - dimension 2, spawn height 66 and a level pitch and yaw of 0 last up to
//   StartGamePacket_428, then change together;
// - the version string stays "1.17.40" also in the layouts made for later
//   releases;
// - inventoryFlag is 1 in the oldest layout only;
// - the seed is -1 throughout, from StartGamePacket_503 on as 64 bits.

namespace ferrylink::bridge {

using foundation::ByteBuffer;
using foundation::writeFloat;
using foundation::writeSignedVarInt;
using foundation::writeSignedVarLong;
using foundation::writeVarInt;
using foundation::writeVarString;

namespace {

constexpr auto little = foundation::Endianness::little;
constexpr auto big = foundation::Endianness::big;

constexpr const char* worldName = "LAN Proxy";
constexpr const char* nilTemplateContentId = "00000000-0000-0000-0000-000000000000";

void flag(ByteBuffer& buffer, bool value) { buffer.writeInteger<uint8_t>(value ? 1 : 0); }

// An empty tag compound, built in a buffer of its own from the server's
// channel. Each packet that carries it logs the size, which is always 3.
void writePropertyData(ByteBuffer& buffer) {
    ByteBuffer propertyData = ServerLink::freshBuffer();
    writeEmptyCompoundTag(propertyData);
    ServerLink::current()->print("Bytes: " + std::to_string(propertyData.readableBytes()));
    buffer.writeBytes(foundation::forced(propertyData.readBytes(propertyData.readableBytes())));
}

// Two 64-bit words drawn anew for every packet, each from two 32-bit draws,
// the first the low half.
void writeRandomWorldTemplateId(ByteBuffer& buffer) {
    for (int word = 0; word < 2; ++word) {
        uint64_t low = foundation::random32();
        uint64_t high = foundation::random32();
        buffer.writeInteger<uint64_t>(high << 32 | low, little);
    }
}

}  // namespace

void StartGamePacket::encode(ByteBuffer& buffer) {
    writeSignedVarLong(buffer, 1);  // entityUniqueId
    writeVarInt(buffer, 1);  // entityRuntimeId
    writeSignedVarInt(buffer, 1);  // playerGameMode
    writeFloat(buffer, 0.0f);  // positionX
    writeFloat(buffer, 66.0f);  // positionY
    writeFloat(buffer, 0.0f);  // positionZ
    writeFloat(buffer, 0.0f);  // pitch
    writeFloat(buffer, 0.0f);  // yaw
    writeSignedVarInt(buffer, -1);  // seed
    buffer.writeInteger<uint16_t>(0, little);  // biomeType
    writeVarString(buffer, "");  // biomeName
    writeSignedVarInt(buffer, 2);  // dimension
    writeSignedVarInt(buffer, 1);  // generator
    writeSignedVarInt(buffer, 0);  // worldGameMode
    writeSignedVarInt(buffer, 0);  // difficulty
    writeSignedVarInt(buffer, 0);  // spawnX
    writeVarInt(buffer, 0);  // spawnY
    writeSignedVarInt(buffer, 0);  // spawnZ
    flag(buffer, false);  // achievementsDisabled
    writeSignedVarInt(buffer, 0);  // dayTime
    writeSignedVarInt(buffer, 0);  // educationOffer
    flag(buffer, false);  // educationFeaturesEnabled
    writeVarString(buffer, "");  // educationProductId
    writeFloat(buffer, 0.0f);  // rainLevel
    writeFloat(buffer, 0.0f);  // lightningLevel
    flag(buffer, false);  // platformLockedContentConfirmed
    flag(buffer, true);  // multiplayerGame
    flag(buffer, true);  // lanBroadcast
    writeSignedVarInt(buffer, 4);  // xboxLiveBroadcastMode
    writeSignedVarInt(buffer, 4);  // platformBroadcastMode
    flag(buffer, true);  // commandsEnabled
    flag(buffer, false);  // texturePacksRequired
    writeVarInt(buffer, 0);  // gameRuleCount
    flag(buffer, false);  // bonusChestEnabled
    flag(buffer, false);  // startWithMapEnabled
    writeSignedVarInt(buffer, 0);  // defaultPlayerPermission
    buffer.writeInteger<int32_t>(4, big);  // serverChunkTickRadius, big-endian in this layout only
    flag(buffer, false);  // behaviourPackLocked
    flag(buffer, false);  // resourcePackLocked
    flag(buffer, false);  // fromLockedWorldTemplate
    flag(buffer, false);  // msaGamertagsOnly
    flag(buffer, false);  // fromWorldTemplate
    flag(buffer, false);  // worldTemplateOptionLocked
    flag(buffer, true);  // onlySpawnV1Villagers
    writeVarString(buffer, "*");  // gameVersion
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldWidth
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldDepth
    flag(buffer, false);  // newNether
    flag(buffer, false);  // experimentalGameplay
    writeVarString(buffer, "");  // levelId
    writeVarString(buffer, worldName);  // worldName
    writeVarString(buffer, "");  // templateContentId
    flag(buffer, false);  // demoWorld
    writeSignedVarInt(buffer, 0);  // movementMode
    buffer.writeInteger<int64_t>(0, little);  // currentTick
    writeSignedVarInt(buffer, 0);  // enchantmentSeed
    buffer.writeBytes(WorldResources::require(WorldResource::requiredBlockStates).readableView());  // block palette
    writeVarInt(buffer, 0);  // itemTableCount
    writeVarString(buffer, "");  // multiplayerCorrelationId
    flag(buffer, true);  // inventoryFlag
}

void StartGamePacket_419::encode(ByteBuffer& buffer) {
    writeSignedVarLong(buffer, 1);  // entityUniqueId
    writeVarInt(buffer, 1);  // entityRuntimeId
    writeSignedVarInt(buffer, 1);  // playerGameMode
    writeFloat(buffer, 0.0f);  // positionX
    writeFloat(buffer, 66.0f);  // positionY
    writeFloat(buffer, 0.0f);  // positionZ
    writeFloat(buffer, 0.0f);  // pitch
    writeFloat(buffer, 0.0f);  // yaw
    writeSignedVarInt(buffer, -1);  // seed
    buffer.writeInteger<uint16_t>(0, little);  // biomeType
    writeVarString(buffer, "");  // biomeName
    writeSignedVarInt(buffer, 2);  // dimension
    writeSignedVarInt(buffer, 1);  // generator
    writeSignedVarInt(buffer, 0);  // worldGameMode
    writeSignedVarInt(buffer, 0);  // difficulty
    writeSignedVarInt(buffer, 0);  // spawnX
    writeVarInt(buffer, 0);  // spawnY
    writeSignedVarInt(buffer, 0);  // spawnZ
    flag(buffer, false);  // achievementsDisabled
    writeSignedVarInt(buffer, 0);  // dayTime
    writeSignedVarInt(buffer, 0);  // educationOffer
    flag(buffer, false);  // educationFeaturesEnabled
    writeVarString(buffer, "");  // educationProductId
    writeFloat(buffer, 0.0f);  // rainLevel
    writeFloat(buffer, 0.0f);  // lightningLevel
    flag(buffer, false);  // platformLockedContentConfirmed
    flag(buffer, true);  // multiplayerGame
    flag(buffer, true);  // lanBroadcast
    writeSignedVarInt(buffer, 4);  // xboxLiveBroadcastMode
    writeSignedVarInt(buffer, 4);  // platformBroadcastMode
    flag(buffer, true);  // commandsEnabled
    flag(buffer, false);  // texturePacksRequired
    writeVarInt(buffer, 0);  // gameRuleCount
    buffer.writeInteger<int32_t>(0, little);  // experimentCount
    flag(buffer, false);  // experimentsPreviouslyToggled
    flag(buffer, false);  // bonusChestEnabled
    flag(buffer, false);  // startWithMapEnabled
    writeSignedVarInt(buffer, 0);  // defaultPlayerPermission
    buffer.writeInteger<int32_t>(4, little);  // serverChunkTickRadius
    flag(buffer, false);  // behaviourPackLocked
    flag(buffer, false);  // resourcePackLocked
    flag(buffer, false);  // fromLockedWorldTemplate
    flag(buffer, false);  // msaGamertagsOnly
    flag(buffer, false);  // fromWorldTemplate
    flag(buffer, false);  // worldTemplateOptionLocked
    flag(buffer, true);  // onlySpawnV1Villagers
    writeVarString(buffer, "*");  // gameVersion
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldWidth
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldDepth
    flag(buffer, false);  // newNether
    flag(buffer, false);  // experimentalGameplay
    writeVarString(buffer, "");  // levelId
    writeVarString(buffer, worldName);  // worldName
    writeVarString(buffer, "");  // templateContentId
    flag(buffer, false);  // demoWorld
    writeSignedVarInt(buffer, 0);  // movementMode
    buffer.writeInteger<int64_t>(0, little);  // currentTick
    writeSignedVarInt(buffer, 0);  // enchantmentSeed
    writeVarInt(buffer, 0);  // blockPropertyCount
    writeVarInt(buffer, 0);  // itemTableCount
    writeVarString(buffer, "");  // multiplayerCorrelationId
    flag(buffer, false);  // inventoryFlag
}

void StartGamePacket_428::encode(ByteBuffer& buffer) {
    writeSignedVarLong(buffer, 1);  // entityUniqueId
    writeVarInt(buffer, 1);  // entityRuntimeId
    writeSignedVarInt(buffer, 1);  // playerGameMode
    writeFloat(buffer, 0.0f);  // positionX
    writeFloat(buffer, 66.0f);  // positionY
    writeFloat(buffer, 0.0f);  // positionZ
    writeFloat(buffer, 0.0f);  // pitch
    writeFloat(buffer, 0.0f);  // yaw
    writeSignedVarInt(buffer, -1);  // seed
    buffer.writeInteger<uint16_t>(0, little);  // biomeType
    writeVarString(buffer, "");  // biomeName
    writeSignedVarInt(buffer, 2);  // dimension
    writeSignedVarInt(buffer, 1);  // generator
    writeSignedVarInt(buffer, 0);  // worldGameMode
    writeSignedVarInt(buffer, 0);  // difficulty
    writeSignedVarInt(buffer, 0);  // spawnX
    writeVarInt(buffer, 0);  // spawnY
    writeSignedVarInt(buffer, 0);  // spawnZ
    flag(buffer, false);  // achievementsDisabled
    writeSignedVarInt(buffer, 0);  // dayTime
    writeSignedVarInt(buffer, 0);  // educationOffer
    flag(buffer, false);  // educationFeaturesEnabled
    writeVarString(buffer, "");  // educationProductId
    writeFloat(buffer, 0.0f);  // rainLevel
    writeFloat(buffer, 0.0f);  // lightningLevel
    flag(buffer, false);  // platformLockedContentConfirmed
    flag(buffer, true);  // multiplayerGame
    flag(buffer, true);  // lanBroadcast
    writeSignedVarInt(buffer, 4);  // xboxLiveBroadcastMode
    writeSignedVarInt(buffer, 4);  // platformBroadcastMode
    flag(buffer, true);  // commandsEnabled
    flag(buffer, false);  // texturePacksRequired
    writeVarInt(buffer, 0);  // gameRuleCount
    buffer.writeInteger<int32_t>(0, little);  // experimentCount
    flag(buffer, false);  // experimentsPreviouslyToggled
    flag(buffer, false);  // bonusChestEnabled
    flag(buffer, false);  // startWithMapEnabled
    writeSignedVarInt(buffer, 0);  // defaultPlayerPermission
    buffer.writeInteger<int32_t>(4, little);  // serverChunkTickRadius
    flag(buffer, false);  // behaviourPackLocked
    flag(buffer, false);  // resourcePackLocked
    flag(buffer, false);  // fromLockedWorldTemplate
    flag(buffer, false);  // msaGamertagsOnly
    flag(buffer, false);  // fromWorldTemplate
    flag(buffer, false);  // worldTemplateOptionLocked
    flag(buffer, true);  // onlySpawnV1Villagers
    writeVarString(buffer, "*");  // gameVersion
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldWidth
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldDepth
    flag(buffer, false);  // newNether
    flag(buffer, false);  // experimentalGameplay
    writeVarString(buffer, "");  // levelId
    writeVarString(buffer, worldName);  // worldName
    writeVarString(buffer, "");  // templateContentId
    flag(buffer, false);  // demoWorld
    writeSignedVarInt(buffer, 0);  // movementMode
    writeSignedVarInt(buffer, 0);  // movementRewindSize
    flag(buffer, false);  // serverAuthoritativeBlockBreaking
    buffer.writeInteger<int64_t>(0, little);  // currentTick
    writeSignedVarInt(buffer, 0);  // enchantmentSeed
    writeVarInt(buffer, 0);  // blockPropertyCount
    writeVarInt(buffer, 0);  // itemTableCount
    writeVarString(buffer, "");  // multiplayerCorrelationId
    flag(buffer, false);  // inventoryFlag
}

void StartGamePacket_440::encode(ByteBuffer& buffer) {
    writeSignedVarLong(buffer, 1);  // entityUniqueId
    writeVarInt(buffer, 1);  // entityRuntimeId
    writeSignedVarInt(buffer, 1);  // playerGameMode
    writeFloat(buffer, 0.0f);  // positionX
    writeFloat(buffer, 0.0f);  // positionY
    writeFloat(buffer, 0.0f);  // positionZ
    writeFloat(buffer, 1.0f);  // pitch
    writeFloat(buffer, 1.0f);  // yaw
    writeSignedVarInt(buffer, -1);  // seed
    buffer.writeInteger<uint16_t>(0, little);  // biomeType
    writeVarString(buffer, "");  // biomeName
    writeSignedVarInt(buffer, 0);  // dimension
    writeSignedVarInt(buffer, 1);  // generator
    writeSignedVarInt(buffer, 0);  // worldGameMode
    writeSignedVarInt(buffer, 0);  // difficulty
    writeSignedVarInt(buffer, 0);  // spawnX
    writeVarInt(buffer, 0);  // spawnY
    writeSignedVarInt(buffer, 0);  // spawnZ
    flag(buffer, false);  // achievementsDisabled
    writeSignedVarInt(buffer, 0);  // dayTime
    writeSignedVarInt(buffer, 0);  // educationOffer
    flag(buffer, false);  // educationFeaturesEnabled
    writeVarString(buffer, "");  // educationProductId
    writeFloat(buffer, 0.0f);  // rainLevel
    writeFloat(buffer, 0.0f);  // lightningLevel
    flag(buffer, false);  // platformLockedContentConfirmed
    flag(buffer, true);  // multiplayerGame
    flag(buffer, true);  // lanBroadcast
    writeSignedVarInt(buffer, 4);  // xboxLiveBroadcastMode
    writeSignedVarInt(buffer, 4);  // platformBroadcastMode
    flag(buffer, true);  // commandsEnabled
    flag(buffer, false);  // texturePacksRequired
    writeVarInt(buffer, 0);  // gameRuleCount
    buffer.writeInteger<int32_t>(0, little);  // experimentCount
    flag(buffer, false);  // experimentsPreviouslyToggled
    flag(buffer, false);  // bonusChestEnabled
    flag(buffer, false);  // startWithMapEnabled
    writeSignedVarInt(buffer, 0);  // defaultPlayerPermission
    buffer.writeInteger<int32_t>(4, little);  // serverChunkTickRadius
    flag(buffer, false);  // behaviourPackLocked
    flag(buffer, false);  // resourcePackLocked
    flag(buffer, false);  // fromLockedWorldTemplate
    flag(buffer, false);  // msaGamertagsOnly
    flag(buffer, false);  // fromWorldTemplate
    flag(buffer, false);  // worldTemplateOptionLocked
    flag(buffer, true);  // onlySpawnV1Villagers
    writeVarString(buffer, "*");  // gameVersion
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldWidth
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldDepth
    flag(buffer, false);  // newNether
    flag(buffer, false);  // experimentalGameplay
    writeVarString(buffer, "world");  // levelId
    writeVarString(buffer, worldName);  // worldName
    writeVarString(buffer, nilTemplateContentId);  // templateContentId
    flag(buffer, false);  // demoWorld
    writeSignedVarInt(buffer, 0);  // movementMode
    writeSignedVarInt(buffer, 0);  // movementRewindSize
    flag(buffer, false);  // serverAuthoritativeBlockBreaking
    buffer.writeInteger<int64_t>(0, little);  // currentTick
    writeSignedVarInt(buffer, 0);  // enchantmentSeed
    writeVarInt(buffer, 0);  // blockPropertyCount
    writeVarInt(buffer, 0);  // itemTableCount
    writeVarString(buffer, "");  // multiplayerCorrelationId
    flag(buffer, false);  // inventoryFlag
    writeVarString(buffer, "");  // serverEngine
}

void StartGamePacket_465::encode(ByteBuffer& buffer) {
    writeSignedVarLong(buffer, 1);  // entityUniqueId
    writeVarInt(buffer, 1);  // entityRuntimeId
    writeSignedVarInt(buffer, 1);  // playerGameMode
    writeFloat(buffer, 0.0f);  // positionX
    writeFloat(buffer, 0.0f);  // positionY
    writeFloat(buffer, 0.0f);  // positionZ
    writeFloat(buffer, 1.0f);  // pitch
    writeFloat(buffer, 1.0f);  // yaw
    writeSignedVarInt(buffer, -1);  // seed
    buffer.writeInteger<uint16_t>(0, little);  // biomeType
    writeVarString(buffer, "");  // biomeName
    writeSignedVarInt(buffer, 0);  // dimension
    writeSignedVarInt(buffer, 1);  // generator
    writeSignedVarInt(buffer, 0);  // worldGameMode
    writeSignedVarInt(buffer, 0);  // difficulty
    writeSignedVarInt(buffer, 0);  // spawnX
    writeVarInt(buffer, 0);  // spawnY
    writeSignedVarInt(buffer, 0);  // spawnZ
    flag(buffer, false);  // achievementsDisabled
    writeSignedVarInt(buffer, 0);  // dayTime
    writeSignedVarInt(buffer, 0);  // educationOffer
    flag(buffer, false);  // educationFeaturesEnabled
    writeVarString(buffer, "");  // educationProductId
    writeFloat(buffer, 0.0f);  // rainLevel
    writeFloat(buffer, 0.0f);  // lightningLevel
    flag(buffer, false);  // platformLockedContentConfirmed
    flag(buffer, true);  // multiplayerGame
    flag(buffer, true);  // lanBroadcast
    writeSignedVarInt(buffer, 4);  // xboxLiveBroadcastMode
    writeSignedVarInt(buffer, 4);  // platformBroadcastMode
    flag(buffer, true);  // commandsEnabled
    flag(buffer, false);  // texturePacksRequired
    writeVarInt(buffer, 0);  // gameRuleCount
    buffer.writeInteger<int32_t>(0, little);  // experimentCount
    flag(buffer, false);  // experimentsPreviouslyToggled
    flag(buffer, false);  // bonusChestEnabled
    flag(buffer, false);  // startWithMapEnabled
    writeSignedVarInt(buffer, 0);  // defaultPlayerPermission
    buffer.writeInteger<int32_t>(4, little);  // serverChunkTickRadius
    flag(buffer, false);  // behaviourPackLocked
    flag(buffer, false);  // resourcePackLocked
    flag(buffer, false);  // fromLockedWorldTemplate
    flag(buffer, false);  // msaGamertagsOnly
    flag(buffer, false);  // fromWorldTemplate
    flag(buffer, false);  // worldTemplateOptionLocked
    flag(buffer, true);  // onlySpawnV1Villagers
    writeVarString(buffer, "*");  // gameVersion
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldWidth
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldDepth
    flag(buffer, false);  // newNether
    writeVarString(buffer, "");  // educationButtonName
    writeVarString(buffer, "");  // educationLinkUri
    flag(buffer, false);  // experimentalGameplay
    writeVarString(buffer, "world");  // levelId
    writeVarString(buffer, worldName);  // worldName
    writeVarString(buffer, nilTemplateContentId);  // templateContentId
    flag(buffer, false);  // demoWorld
    writeSignedVarInt(buffer, 0);  // movementMode
    writeSignedVarInt(buffer, 0);  // movementRewindSize
    flag(buffer, false);  // serverAuthoritativeBlockBreaking
    buffer.writeInteger<int64_t>(0, little);  // currentTick
    writeSignedVarInt(buffer, 0);  // enchantmentSeed
    writeVarInt(buffer, 0);  // blockPropertyCount
    writeVarInt(buffer, 0);  // itemTableCount
    writeVarString(buffer, "");  // multiplayerCorrelationId
    flag(buffer, false);  // inventoryFlag
    writeVarString(buffer, "");  // serverEngine
}

void StartGamePacket_475::encode(ByteBuffer& buffer) {
    writeSignedVarLong(buffer, 1);  // entityUniqueId
    writeVarInt(buffer, 1);  // entityRuntimeId
    writeSignedVarInt(buffer, 1);  // playerGameMode
    writeFloat(buffer, 0.0f);  // positionX
    writeFloat(buffer, 0.0f);  // positionY
    writeFloat(buffer, 0.0f);  // positionZ
    writeFloat(buffer, 1.0f);  // pitch
    writeFloat(buffer, 1.0f);  // yaw
    writeSignedVarInt(buffer, -1);  // seed
    buffer.writeInteger<uint16_t>(0, little);  // biomeType
    writeVarString(buffer, "");  // biomeName
    writeSignedVarInt(buffer, 0);  // dimension
    writeSignedVarInt(buffer, 1);  // generator
    writeSignedVarInt(buffer, 0);  // worldGameMode
    writeSignedVarInt(buffer, 0);  // difficulty
    writeSignedVarInt(buffer, 0);  // spawnX
    writeVarInt(buffer, 0);  // spawnY
    writeSignedVarInt(buffer, 0);  // spawnZ
    flag(buffer, false);  // achievementsDisabled
    writeSignedVarInt(buffer, 0);  // dayTime
    writeSignedVarInt(buffer, 0);  // educationOffer
    flag(buffer, false);  // educationFeaturesEnabled
    writeVarString(buffer, "");  // educationProductId
    writeFloat(buffer, 0.0f);  // rainLevel
    writeFloat(buffer, 0.0f);  // lightningLevel
    flag(buffer, false);  // platformLockedContentConfirmed
    flag(buffer, true);  // multiplayerGame
    flag(buffer, true);  // lanBroadcast
    writeSignedVarInt(buffer, 4);  // xboxLiveBroadcastMode
    writeSignedVarInt(buffer, 4);  // platformBroadcastMode
    flag(buffer, true);  // commandsEnabled
    flag(buffer, false);  // texturePacksRequired
    writeVarInt(buffer, 0);  // gameRuleCount
    buffer.writeInteger<int32_t>(0, little);  // experimentCount
    flag(buffer, false);  // experimentsPreviouslyToggled
    flag(buffer, false);  // bonusChestEnabled
    flag(buffer, false);  // startWithMapEnabled
    writeSignedVarInt(buffer, 0);  // defaultPlayerPermission
    buffer.writeInteger<int32_t>(4, little);  // serverChunkTickRadius
    flag(buffer, false);  // behaviourPackLocked
    flag(buffer, false);  // resourcePackLocked
    flag(buffer, false);  // fromLockedWorldTemplate
    flag(buffer, false);  // msaGamertagsOnly
    flag(buffer, false);  // fromWorldTemplate
    flag(buffer, false);  // worldTemplateOptionLocked
    flag(buffer, true);  // onlySpawnV1Villagers
    writeVarString(buffer, "1.17.40");  // gameVersion
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldWidth
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldDepth
    flag(buffer, false);  // newNether
    writeVarString(buffer, "");  // educationButtonName
    writeVarString(buffer, "");  // educationLinkUri
    flag(buffer, false);  // experimentalGameplay
    writeVarString(buffer, "world");  // levelId
    writeVarString(buffer, worldName);  // worldName
    writeVarString(buffer, nilTemplateContentId);  // templateContentId
    flag(buffer, false);  // demoWorld
    writeSignedVarInt(buffer, 0);  // movementMode
    writeSignedVarInt(buffer, 0);  // movementRewindSize
    flag(buffer, false);  // serverAuthoritativeBlockBreaking
    buffer.writeInteger<int64_t>(0, little);  // currentTick
    writeSignedVarInt(buffer, 0);  // enchantmentSeed
    writeVarInt(buffer, 0);  // blockPropertyCount
    writeVarInt(buffer, 0);  // itemTableCount
    writeVarString(buffer, "");  // multiplayerCorrelationId
    flag(buffer, false);  // inventoryFlag
    writeVarString(buffer, "");  // serverEngine
    buffer.writeInteger<int64_t>(0, little);  // blockRegistryChecksum
}

void StartGamePacket_503::encode(ByteBuffer& buffer) {
    writeSignedVarLong(buffer, 1);  // entityUniqueId
    writeVarInt(buffer, 1);  // entityRuntimeId
    writeSignedVarInt(buffer, 1);  // playerGameMode
    writeFloat(buffer, 0.0f);  // positionX
    writeFloat(buffer, 0.0f);  // positionY
    writeFloat(buffer, 0.0f);  // positionZ
    writeFloat(buffer, 1.0f);  // pitch
    writeFloat(buffer, 1.0f);  // yaw
    buffer.writeInteger<int64_t>(-1, little);  // seed
    buffer.writeInteger<uint16_t>(0, little);  // biomeType
    writeVarString(buffer, "");  // biomeName
    writeSignedVarInt(buffer, 0);  // dimension
    writeSignedVarInt(buffer, 1);  // generator
    writeSignedVarInt(buffer, 0);  // worldGameMode
    writeSignedVarInt(buffer, 0);  // difficulty
    writeSignedVarInt(buffer, 0);  // spawnX
    writeVarInt(buffer, 0);  // spawnY
    writeSignedVarInt(buffer, 0);  // spawnZ
    flag(buffer, false);  // achievementsDisabled
    writeSignedVarInt(buffer, 0);  // dayTime
    writeSignedVarInt(buffer, 0);  // educationOffer
    flag(buffer, false);  // educationFeaturesEnabled
    writeVarString(buffer, "");  // educationProductId
    writeFloat(buffer, 0.0f);  // rainLevel
    writeFloat(buffer, 0.0f);  // lightningLevel
    flag(buffer, false);  // platformLockedContentConfirmed
    flag(buffer, true);  // multiplayerGame
    flag(buffer, true);  // lanBroadcast
    writeSignedVarInt(buffer, 4);  // xboxLiveBroadcastMode
    writeSignedVarInt(buffer, 4);  // platformBroadcastMode
    flag(buffer, true);  // commandsEnabled
    flag(buffer, false);  // texturePacksRequired
    writeVarInt(buffer, 0);  // gameRuleCount
    buffer.writeInteger<int32_t>(0, little);  // experimentCount
    flag(buffer, false);  // experimentsPreviouslyToggled
    flag(buffer, false);  // bonusChestEnabled
    flag(buffer, false);  // startWithMapEnabled
    writeSignedVarInt(buffer, 0);  // defaultPlayerPermission
    buffer.writeInteger<int32_t>(4, little);  // serverChunkTickRadius
    flag(buffer, false);  // behaviourPackLocked
    flag(buffer, false);  // resourcePackLocked
    flag(buffer, false);  // fromLockedWorldTemplate
    flag(buffer, false);  // msaGamertagsOnly
    flag(buffer, false);  // fromWorldTemplate
    flag(buffer, false);  // worldTemplateOptionLocked
    flag(buffer, true);  // onlySpawnV1Villagers
    writeVarString(buffer, "1.17.40");  // gameVersion
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldWidth
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldDepth
    flag(buffer, false);  // newNether
    writeVarString(buffer, "");  // educationButtonName
    writeVarString(buffer, "");  // educationLinkUri
    flag(buffer, false);  // experimentalGameplay
    writeVarString(buffer, "world");  // levelId
    writeVarString(buffer, worldName);  // worldName
    writeVarString(buffer, nilTemplateContentId);  // templateContentId
    flag(buffer, false);  // demoWorld
    writeSignedVarInt(buffer, 0);  // movementMode
    writeSignedVarInt(buffer, 0);  // movementRewindSize
    flag(buffer, false);  // serverAuthoritativeBlockBreaking
    buffer.writeInteger<int64_t>(0, little);  // currentTick
    writeSignedVarInt(buffer, 0);  // enchantmentSeed
    writeVarInt(buffer, 0);  // blockPropertyCount
    writeVarInt(buffer, 0);  // itemTableCount
    writeVarString(buffer, "");  // multiplayerCorrelationId
    flag(buffer, false);  // inventoryFlag
    writeVarString(buffer, "");  // serverEngine
    buffer.writeInteger<int64_t>(0, little);  // blockRegistryChecksum
}

void StartGamePacket_526::encode(ByteBuffer& buffer) {
    writeSignedVarLong(buffer, 1);  // entityUniqueId
    writeVarInt(buffer, 1);  // entityRuntimeId
    writeSignedVarInt(buffer, 1);  // playerGameMode
    writeFloat(buffer, 0.0f);  // positionX
    writeFloat(buffer, 0.0f);  // positionY
    writeFloat(buffer, 0.0f);  // positionZ
    writeFloat(buffer, 1.0f);  // pitch
    writeFloat(buffer, 1.0f);  // yaw
    buffer.writeInteger<int64_t>(-1, little);  // seed
    buffer.writeInteger<uint16_t>(0, little);  // biomeType
    writeVarString(buffer, "");  // biomeName
    writeSignedVarInt(buffer, 0);  // dimension
    writeSignedVarInt(buffer, 1);  // generator
    writeSignedVarInt(buffer, 0);  // worldGameMode
    writeSignedVarInt(buffer, 0);  // difficulty
    writeSignedVarInt(buffer, 0);  // spawnX
    writeVarInt(buffer, 0);  // spawnY
    writeSignedVarInt(buffer, 0);  // spawnZ
    flag(buffer, false);  // achievementsDisabled
    writeSignedVarInt(buffer, 0);  // dayTime
    writeSignedVarInt(buffer, 0);  // educationOffer
    flag(buffer, false);  // educationFeaturesEnabled
    writeVarString(buffer, "");  // educationProductId
    writeFloat(buffer, 0.0f);  // rainLevel
    writeFloat(buffer, 0.0f);  // lightningLevel
    flag(buffer, false);  // platformLockedContentConfirmed
    flag(buffer, true);  // multiplayerGame
    flag(buffer, true);  // lanBroadcast
    writeSignedVarInt(buffer, 4);  // xboxLiveBroadcastMode
    writeSignedVarInt(buffer, 4);  // platformBroadcastMode
    flag(buffer, true);  // commandsEnabled
    flag(buffer, false);  // texturePacksRequired
    writeVarInt(buffer, 0);  // gameRuleCount
    buffer.writeInteger<int32_t>(0, little);  // experimentCount
    flag(buffer, false);  // experimentsPreviouslyToggled
    flag(buffer, false);  // bonusChestEnabled
    flag(buffer, false);  // startWithMapEnabled
    writeSignedVarInt(buffer, 0);  // defaultPlayerPermission
    buffer.writeInteger<int32_t>(4, little);  // serverChunkTickRadius
    flag(buffer, false);  // behaviourPackLocked
    flag(buffer, false);  // resourcePackLocked
    flag(buffer, false);  // fromLockedWorldTemplate
    flag(buffer, false);  // msaGamertagsOnly
    flag(buffer, false);  // fromWorldTemplate
    flag(buffer, false);  // worldTemplateOptionLocked
    flag(buffer, true);  // onlySpawnV1Villagers
    writeVarString(buffer, "1.17.40");  // gameVersion
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldWidth
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldDepth
    flag(buffer, false);  // newNether
    writeVarString(buffer, "");  // educationButtonName
    writeVarString(buffer, "");  // educationLinkUri
    flag(buffer, false);  // experimentalGameplay
    writeVarString(buffer, "world");  // levelId
    writeVarString(buffer, worldName);  // worldName
    writeVarString(buffer, nilTemplateContentId);  // templateContentId
    flag(buffer, false);  // demoWorld
    writeSignedVarInt(buffer, 0);  // movementMode
    writeSignedVarInt(buffer, 0);  // movementRewindSize
    flag(buffer, false);  // serverAuthoritativeBlockBreaking
    buffer.writeInteger<int64_t>(0, little);  // currentTick
    writeSignedVarInt(buffer, 0);  // enchantmentSeed
    writeVarInt(buffer, 0);  // blockPropertyCount
    writeVarInt(buffer, 0);  // itemTableCount
    writeVarString(buffer, "");  // multiplayerCorrelationId
    flag(buffer, false);  // inventoryFlag
    writeVarString(buffer, "");  // serverEngine
    writePropertyData(buffer);  // propertyData
    buffer.writeInteger<int64_t>(0, little);  // blockRegistryChecksum
    writeRandomWorldTemplateId(buffer);  // worldTemplateId
}

void StartGamePacket_534::encode(ByteBuffer& buffer) {
    writeSignedVarLong(buffer, 1);  // entityUniqueId
    writeVarInt(buffer, 1);  // entityRuntimeId
    writeSignedVarInt(buffer, 1);  // playerGameMode
    writeFloat(buffer, 0.0f);  // positionX
    writeFloat(buffer, 0.0f);  // positionY
    writeFloat(buffer, 0.0f);  // positionZ
    writeFloat(buffer, 1.0f);  // pitch
    writeFloat(buffer, 1.0f);  // yaw
    buffer.writeInteger<int64_t>(-1, little);  // seed
    buffer.writeInteger<uint16_t>(0, little);  // biomeType
    writeVarString(buffer, "");  // biomeName
    writeSignedVarInt(buffer, 0);  // dimension
    writeSignedVarInt(buffer, 1);  // generator
    writeSignedVarInt(buffer, 0);  // worldGameMode
    flag(buffer, false);  // hardcore
    writeSignedVarInt(buffer, 0);  // difficulty
    writeSignedVarInt(buffer, 0);  // spawnX
    writeVarInt(buffer, 0);  // spawnY
    writeSignedVarInt(buffer, 0);  // spawnZ
    flag(buffer, false);  // achievementsDisabled
    writeSignedVarInt(buffer, 0);  // dayTime
    writeSignedVarInt(buffer, 0);  // educationOffer
    flag(buffer, false);  // educationFeaturesEnabled
    writeVarString(buffer, "");  // educationProductId
    writeFloat(buffer, 0.0f);  // rainLevel
    writeFloat(buffer, 0.0f);  // lightningLevel
    flag(buffer, false);  // platformLockedContentConfirmed
    flag(buffer, true);  // multiplayerGame
    flag(buffer, true);  // lanBroadcast
    writeSignedVarInt(buffer, 4);  // xboxLiveBroadcastMode
    writeSignedVarInt(buffer, 4);  // platformBroadcastMode
    flag(buffer, true);  // commandsEnabled
    flag(buffer, false);  // texturePacksRequired
    writeVarInt(buffer, 0);  // gameRuleCount
    buffer.writeInteger<int32_t>(0, little);  // experimentCount
    flag(buffer, false);  // experimentsPreviouslyToggled
    flag(buffer, false);  // bonusChestEnabled
    flag(buffer, false);  // startWithMapEnabled
    writeSignedVarInt(buffer, 0);  // defaultPlayerPermission
    buffer.writeInteger<int32_t>(4, little);  // serverChunkTickRadius
    flag(buffer, false);  // behaviourPackLocked
    flag(buffer, false);  // resourcePackLocked
    flag(buffer, false);  // fromLockedWorldTemplate
    flag(buffer, false);  // msaGamertagsOnly
    flag(buffer, false);  // fromWorldTemplate
    flag(buffer, false);  // worldTemplateOptionLocked
    flag(buffer, true);  // onlySpawnV1Villagers
    writeVarString(buffer, "1.17.40");  // gameVersion
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldWidth
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldDepth
    flag(buffer, false);  // newNether
    writeVarString(buffer, "");  // educationButtonName
    writeVarString(buffer, "");  // educationLinkUri
    flag(buffer, false);  // experimentalGameplay
    writeVarString(buffer, "world");  // levelId
    writeVarString(buffer, worldName);  // worldName
    writeVarString(buffer, nilTemplateContentId);  // templateContentId
    flag(buffer, false);  // demoWorld
    writeSignedVarInt(buffer, 0);  // movementMode
    writeSignedVarInt(buffer, 0);  // movementRewindSize
    flag(buffer, false);  // serverAuthoritativeBlockBreaking
    buffer.writeInteger<int64_t>(0, little);  // currentTick
    writeSignedVarInt(buffer, 0);  // enchantmentSeed
    writeVarInt(buffer, 0);  // blockPropertyCount
    writeVarInt(buffer, 0);  // itemTableCount
    writeVarString(buffer, "");  // multiplayerCorrelationId
    flag(buffer, false);  // inventoryFlag
    writeVarString(buffer, "");  // serverEngine
    writePropertyData(buffer);  // propertyData
    buffer.writeInteger<int64_t>(0, little);  // blockRegistryChecksum
    writeRandomWorldTemplateId(buffer);  // worldTemplateId
}

void StartGamePacket_544::encode(ByteBuffer& buffer) {
    writeSignedVarLong(buffer, 1);  // entityUniqueId
    writeVarInt(buffer, 1);  // entityRuntimeId
    writeSignedVarInt(buffer, 1);  // playerGameMode
    writeFloat(buffer, 0.0f);  // positionX
    writeFloat(buffer, 0.0f);  // positionY
    writeFloat(buffer, 0.0f);  // positionZ
    writeFloat(buffer, 1.0f);  // pitch
    writeFloat(buffer, 1.0f);  // yaw
    buffer.writeInteger<int64_t>(-1, little);  // seed
    buffer.writeInteger<uint16_t>(0, little);  // biomeType
    writeVarString(buffer, "");  // biomeName
    writeSignedVarInt(buffer, 0);  // dimension
    writeSignedVarInt(buffer, 1);  // generator
    writeSignedVarInt(buffer, 0);  // worldGameMode
    flag(buffer, false);  // hardcore
    writeSignedVarInt(buffer, 0);  // difficulty
    writeSignedVarInt(buffer, 0);  // spawnX
    writeVarInt(buffer, 0);  // spawnY
    writeSignedVarInt(buffer, 0);  // spawnZ
    flag(buffer, false);  // achievementsDisabled
    writeSignedVarInt(buffer, 0);  // dayTime
    writeSignedVarInt(buffer, 0);  // educationOffer
    flag(buffer, false);  // educationFeaturesEnabled
    writeVarString(buffer, "");  // educationProductId
    writeFloat(buffer, 0.0f);  // rainLevel
    writeFloat(buffer, 0.0f);  // lightningLevel
    flag(buffer, false);  // platformLockedContentConfirmed
    flag(buffer, true);  // multiplayerGame
    flag(buffer, true);  // lanBroadcast
    writeSignedVarInt(buffer, 4);  // xboxLiveBroadcastMode
    writeSignedVarInt(buffer, 4);  // platformBroadcastMode
    flag(buffer, true);  // commandsEnabled
    flag(buffer, false);  // texturePacksRequired
    writeVarInt(buffer, 0);  // gameRuleCount
    buffer.writeInteger<int32_t>(0, little);  // experimentCount
    flag(buffer, false);  // experimentsPreviouslyToggled
    flag(buffer, false);  // bonusChestEnabled
    flag(buffer, false);  // startWithMapEnabled
    writeSignedVarInt(buffer, 0);  // defaultPlayerPermission
    buffer.writeInteger<int32_t>(4, little);  // serverChunkTickRadius
    flag(buffer, false);  // behaviourPackLocked
    flag(buffer, false);  // resourcePackLocked
    flag(buffer, false);  // fromLockedWorldTemplate
    flag(buffer, false);  // msaGamertagsOnly
    flag(buffer, false);  // fromWorldTemplate
    flag(buffer, false);  // worldTemplateOptionLocked
    flag(buffer, true);  // onlySpawnV1Villagers
    flag(buffer, false);  // personaDisabled
    flag(buffer, false);  // customSkinsDisabled
    writeVarString(buffer, "1.17.40");  // gameVersion
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldWidth
    buffer.writeInteger<int32_t>(0, little);  // limitedWorldDepth
    flag(buffer, false);  // newNether
    writeVarString(buffer, "");  // educationButtonName
    writeVarString(buffer, "");  // educationLinkUri
    flag(buffer, false);  // experimentalGameplayOverrideSet
    flag(buffer, false);  // experimentalGameplayOverrideValue
    flag(buffer, false);  // experimentalGameplay
    writeVarString(buffer, "world");  // levelId
    writeVarString(buffer, worldName);  // worldName
    writeVarString(buffer, nilTemplateContentId);  // templateContentId
    flag(buffer, false);  // demoWorld
    writeSignedVarInt(buffer, 0);  // movementMode
    writeSignedVarInt(buffer, 0);  // movementRewindSize
    flag(buffer, false);  // serverAuthoritativeBlockBreaking
    buffer.writeInteger<int64_t>(0, little);  // currentTick
    writeSignedVarInt(buffer, 0);  // enchantmentSeed
    writeVarInt(buffer, 0);  // blockPropertyCount
    writeVarInt(buffer, 0);  // itemTableCount
    writeVarString(buffer, "");  // multiplayerCorrelationId
    flag(buffer, false);  // inventoryFlag
    writeVarString(buffer, "");  // serverEngine
    writePropertyData(buffer);  // propertyData
    buffer.writeInteger<int64_t>(0, little);  // blockRegistryChecksum
    writeRandomWorldTemplateId(buffer);  // worldTemplateId
    flag(buffer, false);  // clientSideGeneration
}

}  // namespace ferrylink::bridge
