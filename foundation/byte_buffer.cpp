#include "foundation/byte_buffer.h"

#include <algorithm>
#include <limits>

#include "foundation/fatal.h"

namespace ferrylink::foundation {

namespace {


uint32_t checkedIndex(uint64_t value) {
    if (value > std::numeric_limits<uint32_t>::max()) {
        fatalFault();
    }
    return static_cast<uint32_t>(value);
}

}  // namespace

ByteBuffer::ByteBuffer() : ByteBuffer(nullptr, 0, 0) {}

ByteBuffer::ByteBuffer(Store store, uint32_t offset, uint32_t capacity)
    : store_(std::move(store)), offset_(offset), capacity_(capacity) {}

ByteBuffer::ByteBuffer(std::span<const uint8_t> bytes) : ByteBuffer(withCapacity(checkedIndex(bytes.size()))) {
    writeBytes(bytes);
}

ByteBuffer::ByteBuffer(std::string_view bytes)
    : ByteBuffer(std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size())) {}

ByteBuffer ByteBuffer::withCapacity(uint32_t capacity) {
    if (capacity == 0) {
        return ByteBuffer();
    }
    return ByteBuffer(std::make_shared_for_overwrite<uint8_t[]>(capacity), 0, capacity);
}

const uint8_t* ByteBuffer::data() const {
    static const uint8_t nothing = 0;
    return store_ ? store_.get() + offset_ : &nothing;
}

uint8_t* ByteBuffer::mutableData() { return store_.get() + offset_; }

bool ByteBuffer::inReadableRange(uint32_t at, int64_t length) const {
    if (length < 0 || at < readerIndex_) {
        return false;
    }
    return static_cast<uint64_t>(at) + static_cast<uint64_t>(length) <= writerIndex_;
}

void ByteBuffer::ensureUniqueStore(uint32_t capacity) {
    bool shared = store_ && store_.use_count() > 1;
    if (!shared && capacity <= capacity_ && store_) {
        return;
    }
    // Grow by at least doubling so that appends stay amortised constant.
    uint64_t newCapacity = std::max<uint64_t>(capacity, capacity_);
    if (capacity > capacity_) {
        newCapacity = std::max<uint64_t>(newCapacity, static_cast<uint64_t>(capacity_) * 2);
        newCapacity = std::min<uint64_t>(newCapacity, std::numeric_limits<uint32_t>::max());
    }
    newCapacity = std::max<uint64_t>(newCapacity, 1);
    auto fresh = std::make_shared_for_overwrite<uint8_t[]>(newCapacity);
    if (store_ && writerIndex_ > 0) {
        std::memcpy(fresh.get(), data(), writerIndex_);
    }
    store_ = std::move(fresh);
    offset_ = 0;
    capacity_ = static_cast<uint32_t>(newCapacity);
}

void ByteBuffer::moveReaderIndex(uint32_t to) {
    if (to > writerIndex_) {
        fatalFault();
    }
    readerIndex_ = to;
}

void ByteBuffer::moveReaderIndexForwardBy(int64_t offset) {
    int64_t to = static_cast<int64_t>(readerIndex_) + offset;
    if (to < 0 || to > writerIndex_) {
        fatalFault();
    }
    readerIndex_ = static_cast<uint32_t>(to);
}

void ByteBuffer::moveWriterIndex(uint32_t to) {
    if (to < readerIndex_ || to > capacity_) {
        fatalFault();
    }
    writerIndex_ = to;
}

void ByteBuffer::reserveCapacity(uint32_t minimumCapacity) {
    if (minimumCapacity > capacity_) {
        ensureUniqueStore(minimumCapacity);
    }
}

uint32_t ByteBuffer::setBytes(std::span<const uint8_t> bytes, uint32_t at) {
    uint32_t end = checkedIndex(static_cast<uint64_t>(at) + bytes.size());
    ensureUniqueStore(end);
    if (!bytes.empty()) {
        std::memmove(mutableData() + at, bytes.data(), bytes.size());
    }
    return static_cast<uint32_t>(bytes.size());
}

uint32_t ByteBuffer::writeBytes(std::span<const uint8_t> bytes) {
    uint32_t written = setBytes(bytes, writerIndex_);
    writerIndex_ += written;
    return written;
}

uint32_t ByteBuffer::writeBytes(std::string_view bytes) {
    return writeBytes(std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
}

uint32_t ByteBuffer::writeBuffer(ByteBuffer& source) {
    // Hold the source's store while copying, in case both views share it.
    ByteBuffer keep = source;
    uint32_t written = writeBytes(keep.readableView());
    source.moveReaderIndexForwardBy(written);
    return written;
}

std::optional<std::vector<uint8_t>> ByteBuffer::getBytes(uint32_t at, int64_t length) const {
    if (!inReadableRange(at, length)) {
        return std::nullopt;
    }
    const uint8_t* begin = data() + at;
    return std::vector<uint8_t>(begin, begin + length);
}

std::optional<std::vector<uint8_t>> ByteBuffer::readBytes(int64_t length) {
    auto bytes = getBytes(readerIndex_, length);
    if (bytes) {
        readerIndex_ += static_cast<uint32_t>(length);
    }
    return bytes;
}

std::optional<ByteBuffer> ByteBuffer::getSlice(uint32_t at, int64_t length) const {
    if (!inReadableRange(at, length)) {
        return std::nullopt;
    }
    ByteBuffer slice(store_, offset_ + at, static_cast<uint32_t>(length));
    if (!store_) {
        slice.offset_ = 0;
    }
    slice.writerIndex_ = static_cast<uint32_t>(length);
    return slice;
}

std::optional<ByteBuffer> ByteBuffer::readSlice(int64_t length) {
    auto slice = getSlice(readerIndex_, length);
    if (slice) {
        readerIndex_ += static_cast<uint32_t>(length);
    }
    return slice;
}

bool operator==(const ByteBuffer& lhs, const ByteBuffer& rhs) {
    auto a = lhs.readableView();
    auto b = rhs.readableView();
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

}  // namespace ferrylink::foundation
