#pragma once

#include <cstdint>

#include "bridge/packets/data_packet.h"

namespace ferrylink::bridge {

// The start-game record of a small empty world that exists nowhere, in the
// ten layouts the clients have asked for over the releases. Each class is one
// straight run of writes with no state, so two packets of one class have the
// same bytes, apart from the random world template id of the newest three.
// The constants are chosen for the hand-over, not for a real world: keep them
// as they are, oddities included (see the comments in the .cpp).
//
// PipedPlayer::sendStartGame picks the class by the client's protocol number;
// the numbers in the names are not those thresholds.

// Protocol up to 408. The only layout that carries the block palette.
class StartGamePacket : public DataPacket {
public:
    static constexpr uint8_t networkId = 11;
    StartGamePacket() : DataPacket(networkId) {}

    void encode(foundation::ByteBuffer& buffer) override;
};

// Protocol 409 to 427.
class StartGamePacket_419 : public DataPacket {
public:
    static constexpr uint8_t networkId = 11;
    StartGamePacket_419() : DataPacket(networkId) {}

    void encode(foundation::ByteBuffer& buffer) override;
};

// Protocol 428 to 439.
class StartGamePacket_428 : public DataPacket {
public:
    static constexpr uint8_t networkId = 11;
    StartGamePacket_428() : DataPacket(networkId) {}

    void encode(foundation::ByteBuffer& buffer) override;
};

// Protocol 440 to 464.
class StartGamePacket_440 : public DataPacket {
public:
    static constexpr uint8_t networkId = 11;
    StartGamePacket_440() : DataPacket(networkId) {}

    void encode(foundation::ByteBuffer& buffer) override;
};

// Protocol 465 to 474.
class StartGamePacket_465 : public DataPacket {
public:
    static constexpr uint8_t networkId = 11;
    StartGamePacket_465() : DataPacket(networkId) {}

    void encode(foundation::ByteBuffer& buffer) override;
};

// Protocol 475 to 502.
class StartGamePacket_475 : public DataPacket {
public:
    static constexpr uint8_t networkId = 11;
    StartGamePacket_475() : DataPacket(networkId) {}

    void encode(foundation::ByteBuffer& buffer) override;
};

// Protocol 503 to 525.
class StartGamePacket_503 : public DataPacket {
public:
    static constexpr uint8_t networkId = 11;
    StartGamePacket_503() : DataPacket(networkId) {}

    void encode(foundation::ByteBuffer& buffer) override;
};

// Protocol 526 to 533.
class StartGamePacket_526 : public DataPacket {
public:
    static constexpr uint8_t networkId = 11;
    StartGamePacket_526() : DataPacket(networkId) {}

    void encode(foundation::ByteBuffer& buffer) override;
};

// Protocol 534 to 542.
class StartGamePacket_534 : public DataPacket {
public:
    static constexpr uint8_t networkId = 11;
    StartGamePacket_534() : DataPacket(networkId) {}

    void encode(foundation::ByteBuffer& buffer) override;
};

// Protocol 543 and above.
class StartGamePacket_544 : public DataPacket {
public:
    static constexpr uint8_t networkId = 11;
    StartGamePacket_544() : DataPacket(networkId) {}

    void encode(foundation::ByteBuffer& buffer) override;
};

}  // namespace ferrylink::bridge
