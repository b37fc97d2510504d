#include "bridge/packets/start_game_packet.h"

#include "bridge/packets/network_tag.h"
#include "bridge/packets/version_groups.h"
#include "bridge/world_resources.h"
#include "foundation/random.h"

namespace ferrylink::bridge {

namespace {

// Two 64-bit words, each from two 32-bit draws, the first the low half.
std::array<uint8_t, 16> randomWorldTemplateId() {
    std::array<uint8_t, 16> id{};
    for (size_t word = 0; word < 2; ++word) {
        uint64_t low = foundation::random32();
        uint64_t high = foundation::random32();
        uint64_t value = high << 32 | low;
        for (size_t i = 0; i < 8; ++i) {
            id[word * 8 + i] = static_cast<uint8_t>(value >> (8 * i));
        }
    }
    return id;
}

}  // namespace

foundation::ByteBuffer StartGamePacket::propertyData() {
    foundation::ByteBuffer tag;
    writeEmptyCompoundTag(tag);
    return tag;
}

// Kept as clients have seen them: the oldest groups spawn at height 66 in
// dimension 2 looking level, with no level or template id, and name the game
// version "*"; from v440 on the spawn is at 0 in the overworld, and from v475
// on the version stays "1.17.40" also for the releases that came later.
// Movement authority 0 is refused as deprecated by v800 clients.
StartGamePacket::World StartGamePacket::worldFor(int32_t protocol) {
    World world;
    if (protocol < v440) {
        world.positionY = 66;
        world.pitch = 0;
        world.yaw = 0;
        world.dimension = 2;
        world.levelId = "";
        world.premiumWorldTemplateId = "";
    }
    if (protocol < v475) {
        // GCC 12 at -O3 sees an overlapping copy in a one-letter assignment.
#pragma GCC diagnostic push
#if !defined(__clang__)  // a warning clang doesn't know
#pragma GCC diagnostic ignored "-Wrestrict"
#endif
        world.gameVersion = "*";
#pragma GCC diagnostic pop
    }
    if (protocol >= v800) {
        world.movementAuthority = 1;
    }
    return world;
}

void StartGamePacket::encode(PacketWriter& out) const {
    const int32_t p = protocol;
    const World& w = world;
    out.zigzag64(w.entityId);             // entity_id
    out.varint(w.runtimeEntityId);        // runtime_entity_id
    out.zigzag32(w.playerGameMode);       // player_gamemode
    out.lf32(w.positionX);                // player_position
    out.lf32(w.positionY);
    out.lf32(w.positionZ);
    out.lf32(w.pitch);                    // rotation
    out.lf32(w.yaw);
    if (p >= v503) {
        out.lu64(static_cast<uint64_t>(w.seed));  // seed
    } else {
        out.zigzag32(static_cast<int32_t>(w.seed));
    }
    out.li16(0);                          // biome_type
    out.string("");                       // biome_name
    out.zigzag32(w.dimension);            // dimension
    out.zigzag32(w.generator);            // generator
    out.zigzag32(0);                      // world_gamemode
    if (p >= v671) {
        out.boolean(false);               // hardcore
    }
    out.zigzag32(w.difficulty);           // difficulty
    out.zigzag32(w.spawnX);               // spawn_position
    if (p >= v944) {
        out.zigzag32(w.spawnY);
    } else {
        out.varint(static_cast<uint32_t>(w.spawnY));
    }
    out.zigzag32(w.spawnZ);
    out.boolean(false);                   // achievements_disabled
    if (p >= v618) {
        out.zigzag32(0);                  // editor_world_type
    } else if (p >= v534) {
        out.boolean(false);               // editor_world
    }
    if (p >= v582) {
        out.boolean(false);               // created_in_editor
        out.boolean(false);               // exported_from_editor
    }
    out.zigzag32(0);                      // day_cycle_stop_time
    if (p >= v2168) {
        out.varint(0);                    // edu_offer
    } else {
        out.zigzag32(0);
    }
    out.boolean(false);                   // edu_features_enabled
    out.string("");                       // edu_product_uuid
    out.lf32(0);                          // rain_level
    out.lf32(0);                          // lightning_level
    out.boolean(false);                   // has_confirmed_platform_locked_content
    out.boolean(true);                    // is_multiplayer
    out.boolean(true);                    // broadcast_to_lan
    out.zigzag32(w.broadcastMode);        // xbox_live_broadcast_mode
    out.zigzag32(w.broadcastMode);        // platform_broadcast_mode
    out.boolean(w.commandsEnabled);       // enable_commands
    out.boolean(false);                   // is_texturepacks_required
    out.varint(0);                        // gamerules
    if (p >= v419) {
        out.li32(0);                      // experiments
        out.boolean(false);               // experiments_previously_used
    }
    out.boolean(false);                   // bonus_chest
    out.boolean(false);                   // map_enabled
    out.zigzag32(0);                      // permission_level: 0 is the byte 00 read as a byte or a var-int
    if (p >= v419) {
        out.li32(w.serverChunkTickRange); // server_chunk_tick_range
    } else {
        out.i32(w.serverChunkTickRange);  // big-endian in the oldest layout alone
    }
    out.boolean(false);                   // has_locked_behavior_pack
    out.boolean(false);                   // has_locked_resource_pack
    out.boolean(false);                   // is_from_locked_world_template
    out.boolean(false);                   // msa_gamertags_only
    out.boolean(false);                   // is_from_world_template
    out.boolean(false);                   // is_world_template_option_locked
    out.boolean(w.onlySpawnV1Villagers);  // only_spawn_v1_villagers
    if (p >= v544) {
        out.boolean(false);               // persona_disabled
        out.boolean(false);               // custom_skins_disabled
    }
    if (p >= v567) {
        out.boolean(false);               // emote_chat_muted
    }
    out.string(w.gameVersion);            // game_version
    out.li32(0);                          // limited_world_width
    out.li32(0);                          // limited_world_length
    out.boolean(false);                   // is_new_nether
    if (p >= v465) {
        out.string("");                   // edu_resource_uri: button_name
        out.string("");                   //                   link_uri
    }
    out.boolean(false);                   // experimental_gameplay_override
    if (p >= v544) {
        out.u8(0);                        // chat_restriction_level
        out.boolean(false);               // disable_player_interactions
    }
    if (p >= v685 && p < v924) {
        out.string("");                   // server_identifier
        out.string("");                   // world_identifier
        out.string("");                   // scenario_identifier
    }
    if (p >= v818 && p < v924) {
        out.string("");                   // owner_identifier
    }
    if (p >= v1001) {
        out.zigzag32(0);                  // server_editor_connection_policy
        out.boolean(false);               // allow_anonymous_block_drops_in_editor_worlds
    }
    out.string(w.levelId);                // level_id
    out.string(w.worldName);              // world_name
    out.string(w.premiumWorldTemplateId); // premium_world_template_id
    out.boolean(false);                   // is_trial
    if (p < v818) {
        out.zigzag32(w.movementAuthority);  // movement_authority
    }
    if (p >= v428) {
        out.zigzag32(0);                  // rewind_history_size
        out.boolean(false);               // server_authoritative_block_breaking
    }
    out.li64(0);                          // current_tick
    out.zigzag32(0);                      // enchantment_seed
    if (p >= v419) {
        out.varint(0);                    // block_properties
    } else {
        out.bytes(WorldResources::require(WorldResource::requiredBlockStates).readableView());  // block_palette
    }
    if (p < v776) {
        out.varint(0);                    // itemstates
    }
    out.string("");                       // multiplayer_correlation_id
    out.boolean(p < v419);                // server_authoritative_inventory
    if (p >= v440) {
        out.string(w.engine);             // engine
    }
    if (p >= v526) {
        out.bytes(propertyData().readableView());  // property_data
    }
    if (p >= v475) {
        out.lu64(0);                      // block_pallette_checksum
    }
    if (p >= v526) {
        out.bytes(w.worldTemplateId ? *w.worldTemplateId : randomWorldTemplateId());  // world_template_id
    }
    if (p >= v544) {
        out.boolean(false);               // client_side_generation
    }
    if (p >= v582) {
        out.boolean(false);               // block_network_ids_are_hashes
    }
    if (p >= v827 && p < v898) {
        out.boolean(false);               // tick_death_systems
    }
    if (p >= v589) {
        out.boolean(false);               // server_controlled_sound
    }
    if (p >= v1001 && p < v2168) {
        out.boolean(false);               // is_chat_logging
    }
    if (p >= v924) {
        out.boolean(false);               // has_server_join_info
        out.string("");                   // server_identifier
        out.string("");                   // scenario_identifier
        out.string("");                   // world_identifier
        out.string("");                   // owner_identifier
    }
}

}  // namespace ferrylink::bridge
