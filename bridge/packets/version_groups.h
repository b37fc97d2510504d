#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace ferrylink::bridge {

// The one table that decides, by a client's game protocol number, how every
// packet we read and write is laid out and how its batches are framed.
//
// Clients whose packets share one layout in every field we touch form a
// group, named after the layout it brought and starting at its first protocol.
// The names of the oldest groups are those of their start-game layouts, which
// is why some start a little before their number (v544 from 543, v448 from
// 441). A packet writes each field behind a gate on these names:
//
//   if (protocol >= v671) out.boolean(false);  // hardcore
//
// Adding a game version: add its release below, a group here if any byte we
// read or write changed, and the gates in the packets that changed.
struct VersionGroup {
    int32_t firstProtocol;
};

constexpr bool operator>=(int32_t protocol, VersionGroup group) { return protocol >= group.firstProtocol; }
constexpr bool operator<(int32_t protocol, VersionGroup group) { return protocol < group.firstProtocol; }

inline constexpr VersionGroup v408{0};       // 1.16.20 and before
inline constexpr VersionGroup v419{409};     // 1.16.100, 1.16.201
inline constexpr VersionGroup v428{428};     // 1.16.210, 1.16.220
inline constexpr VersionGroup v440{440};     // 1.17.0
inline constexpr VersionGroup v448{441};     // 1.17.10
inline constexpr VersionGroup v465{465};     // 1.17.30, 1.17.40
inline constexpr VersionGroup v475{475};     // 1.18.0, 1.18.11
inline constexpr VersionGroup v503{503};     // 1.18.30
inline constexpr VersionGroup v526{526};     // 1.19.1
inline constexpr VersionGroup v534{534};     // 1.19.10
inline constexpr VersionGroup v544{543};     // 1.19.20, 1.19.21
inline constexpr VersionGroup v554{554};     // 1.19.30 … 1.19.50: settings asked for before the login
inline constexpr VersionGroup v567{567};     // 1.19.60 … 1.19.70
inline constexpr VersionGroup v582{582};     // 1.19.80
inline constexpr VersionGroup v589{589};     // 1.20.0 … 1.20.15
inline constexpr VersionGroup v618{618};     // 1.20.30
inline constexpr VersionGroup v622{622};     // 1.20.40, 1.20.50
inline constexpr VersionGroup v649{649};     // 1.20.61: batches name their compression
inline constexpr VersionGroup v662{662};     // 1.20.71
inline constexpr VersionGroup v671{671};     // 1.20.80
inline constexpr VersionGroup v685{685};     // 1.21.0, 1.21.2
inline constexpr VersionGroup v712{712};     // 1.21.20
inline constexpr VersionGroup v729{729};     // 1.21.30
inline constexpr VersionGroup v748{748};     // 1.21.42
inline constexpr VersionGroup v766{766};     // 1.21.50
inline constexpr VersionGroup v776{776};     // 1.21.60, 1.21.70: the item registry
inline constexpr VersionGroup v800{800};     // 1.21.80
inline constexpr VersionGroup v818{818};     // 1.21.90, 1.21.93: the login envelope
inline constexpr VersionGroup v827{827};     // 1.21.100 … 1.21.124
inline constexpr VersionGroup v898{898};     // 1.21.130
inline constexpr VersionGroup v924{924};     // 1.26.0
inline constexpr VersionGroup v944{944};     // 1.26.10, 1.26.20: token-only logins
inline constexpr VersionGroup v1001{1001};   // 1.26.30
inline constexpr VersionGroup v2168{2168};   // 1.26.40 … 1.26.51

inline constexpr std::array versionGroups{v408, v419, v428, v440, v448, v465, v475, v503, v526, v534, v544, v554,
                                          v567, v582, v589, v618, v622, v649, v662, v671, v685, v712, v729, v748,
                                          v766, v776, v800, v818, v827, v898, v924, v944, v1001, v2168};

// The game releases we know, oldest first. A client above the newest gets the
// newest layouts and is named on the console; one below the oldest gets the
// oldest.
struct Release {
    std::string_view game;
    int32_t protocol;
};

inline constexpr std::array releases{
    Release{"1.16.20", 408},   Release{"1.16.100", 419},  Release{"1.16.201", 422},  Release{"1.16.210", 428},
    Release{"1.16.220", 431},  Release{"1.17.0", 440},    Release{"1.17.10", 448},   Release{"1.17.30", 465},
    Release{"1.17.40", 471},   Release{"1.18.0", 475},    Release{"1.18.11", 486},   Release{"1.18.30", 503},
    Release{"1.19.1", 527},    Release{"1.19.10", 534},   Release{"1.19.20", 544},   Release{"1.19.21", 545},
    Release{"1.19.30", 554},   Release{"1.19.40", 557},   Release{"1.19.50", 560},   Release{"1.19.60", 567},
    Release{"1.19.62", 567},   Release{"1.19.63", 568},   Release{"1.19.70", 575},   Release{"1.19.80", 582},
    Release{"1.20.0", 589},    Release{"1.20.10", 594},   Release{"1.20.15", 594},   Release{"1.20.30", 618},
    Release{"1.20.40", 622},   Release{"1.20.50", 630},   Release{"1.20.61", 649},   Release{"1.20.71", 662},
    Release{"1.20.80", 671},   Release{"1.21.0", 685},    Release{"1.21.2", 686},    Release{"1.21.20", 712},
    Release{"1.21.30", 729},   Release{"1.21.42", 748},   Release{"1.21.50", 766},   Release{"1.21.60", 776},
    Release{"1.21.70", 786},   Release{"1.21.80", 800},   Release{"1.21.90", 818},   Release{"1.21.93", 819},
    Release{"1.21.100", 827},  Release{"1.21.111", 844},  Release{"1.21.120", 859},  Release{"1.21.124", 860},
    Release{"1.21.130", 898},  Release{"1.26.0", 924},    Release{"1.26.10", 944},   Release{"1.26.20", 975},
    Release{"1.26.30", 1001},  Release{"1.26.40", 2168},  Release{"1.26.45", 2169},  Release{"1.26.51", 2193},
};

inline constexpr int32_t newestKnownProtocol = releases.back().protocol;

// The first protocol of the group `protocol` belongs to.
constexpr int32_t groupOf(int32_t protocol) {
    int32_t first = versionGroups.front().firstProtocol;
    for (VersionGroup group : versionGroups) {
        if (protocol >= group) {
            first = group.firstProtocol;
        }
    }
    return first;
}

}  // namespace ferrylink::bridge
