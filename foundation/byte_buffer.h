#pragma once

#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace ferrylink::foundation {

enum class Endianness { big, little };

// Growable bytes with separate reader and writer indices over a shared store.
// Copies share the store; a write to a shared store copies it first, so one
// copy's write is never seen through another. Reads and slices copy nothing
// (apart from readBytes, which hands out an array). Reads give nothing on
// short input and then leave the indices where they were.
//
// A value belongs to one thread at a time; copies that share a store may go to
// other threads, since the store's reference count is atomic.
class ByteBuffer {
public:
    ByteBuffer();
    // A buffer whose bytes are `bytes`: reader at 0, writer at their length.
    explicit ByteBuffer(std::span<const uint8_t> bytes);
    explicit ByteBuffer(std::string_view bytes);
    // An empty buffer with room for `capacity` bytes. Capacity 0 shares one empty store.
    static ByteBuffer withCapacity(uint32_t capacity);

    uint32_t readerIndex() const { return readerIndex_; }
    uint32_t writerIndex() const { return writerIndex_; }
    uint32_t readableBytes() const { return writerIndex_ - readerIndex_; }
    uint32_t capacity() const { return capacity_; }

    // Going past writerIndex is a fatal fault.
    void moveReaderIndex(uint32_t to);
    void moveReaderIndexForwardBy(int64_t offset);
    void moveWriterIndex(uint32_t to);

    void reserveCapacity(uint32_t minimumCapacity);

    uint32_t writeBytes(std::span<const uint8_t> bytes);
    uint32_t writeBytes(std::string_view bytes);
    uint32_t setBytes(std::span<const uint8_t> bytes, uint32_t at);
    // Appends the readable bytes of `source` and consumes them from it.
    uint32_t writeBuffer(ByteBuffer& source);

    template <std::integral T>
    uint32_t writeInteger(T value, Endianness endianness = Endianness::big) {
        uint8_t bytes[sizeof(T)];
        encode(value, endianness, bytes);
        return writeBytes(std::span<const uint8_t>(bytes, sizeof(T)));
    }

    template <std::integral T>
    uint32_t setInteger(T value, uint32_t at, Endianness endianness = Endianness::big) {
        uint8_t bytes[sizeof(T)];
        encode(value, endianness, bytes);
        return setBytes(std::span<const uint8_t>(bytes, sizeof(T)), at);
    }

    template <std::integral T>
    std::optional<T> getInteger(uint32_t at, Endianness endianness = Endianness::big) const {
        if (!inReadableRange(at, sizeof(T))) {
            return std::nullopt;
        }
        using U = std::make_unsigned_t<T>;
        U value;
        std::memcpy(&value, data() + at, sizeof(T));
        return static_cast<T>(toOrder(value, endianness));
    }

    template <std::integral T>
    std::optional<T> readInteger(Endianness endianness = Endianness::big) {
        auto value = getInteger<T>(readerIndex_, endianness);
        if (value) {
            readerIndex_ += sizeof(T);
        }
        return value;
    }

    std::optional<std::vector<uint8_t>> getBytes(uint32_t at, int64_t length) const;
    std::optional<std::vector<uint8_t>> readBytes(int64_t length);
    std::optional<ByteBuffer> getSlice(uint32_t at, int64_t length) const;
    std::optional<ByteBuffer> readSlice(int64_t length);

    // Lets `fill(bytes, room)` write up to `room` bytes at writerIndex and
    // returns what it wrote; the writer index advances by as much. This is how
    // a socket read lands in a buffer without a second copy.
    template <typename Fill>
    uint32_t writeWithUnsafeMutableBytes(uint32_t room, Fill&& fill) {
        ensureUniqueStore(writerIndex_ + room);
        size_t written = fill(mutableData() + writerIndex_, static_cast<size_t>(room));
        if (written > room) {
            written = room;
        }
        writerIndex_ += static_cast<uint32_t>(written);
        return static_cast<uint32_t>(written);
    }

    // The readable bytes, without copying. Valid until the next write.
    std::span<const uint8_t> readableView() const {
        return {data() + readerIndex_, readableBytes()};
    }

    // Equal readable bytes; indices and capacity take no part.
    friend bool operator==(const ByteBuffer& lhs, const ByteBuffer& rhs);

private:
    // The bytes and their reference count live in one allocation.
    using Store = std::shared_ptr<uint8_t[]>;

    ByteBuffer(Store store, uint32_t offset, uint32_t capacity);

    const uint8_t* data() const;
    uint8_t* mutableData();
    bool inReadableRange(uint32_t at, int64_t length) const;
    // Makes the store ours alone and at least `capacity` bytes long.
    void ensureUniqueStore(uint32_t capacity);

    template <std::integral T>
    static void encode(T value, Endianness endianness, uint8_t* out) {
        auto bits = toOrder(static_cast<std::make_unsigned_t<T>>(value), endianness);
        std::memcpy(out, &bits, sizeof(T));
    }

    // Between the machine's byte order and `endianness`; the same both ways.
    template <std::unsigned_integral U>
    static U toOrder(U value, Endianness endianness) {
        const bool native = (endianness == Endianness::big) == (std::endian::native == std::endian::big);
        if (native || sizeof(U) == 1) {
            return value;
        }
        if constexpr (sizeof(U) == 2) {
            return static_cast<U>(__builtin_bswap16(value));
        } else if constexpr (sizeof(U) == 4) {
            return static_cast<U>(__builtin_bswap32(value));
        } else {
            return static_cast<U>(__builtin_bswap64(value));
        }
    }

    Store store_;
    uint32_t offset_ = 0;  // where this view starts inside the store
    uint32_t capacity_ = 0;
    uint32_t readerIndex_ = 0;
    uint32_t writerIndex_ = 0;
};

// Makes buffers for a channel. Every outgoing packet starts from one of these.
class ByteBufferAllocator {
public:
    ByteBuffer buffer(uint32_t capacity) const { return ByteBuffer::withCapacity(capacity); }
    ByteBuffer buffer(std::span<const uint8_t> bytes) const { return ByteBuffer(bytes); }
};

// The receive sizing record that callers keep for the shape of the outgoing
// buffer: only its starting size is ever consulted.
struct AdaptiveRecvByteBufferAllocator {
    uint32_t minimum = 64;
    uint32_t maximum = 65536;
    uint32_t initial = 2048;
    uint32_t nextReceiveBufferSize = 2048;
    bool decreaseNow = false;

    ByteBuffer buffer(const ByteBufferAllocator& allocator) const {
        return allocator.buffer(nextReceiveBufferSize);
    }
};

}  // namespace ferrylink::foundation
