#pragma once

#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "foundation/fatal.h"

namespace ferrylink::foundation {

// Why a peer's bytes were refused, in a few words fit for a console line
// ("login chain is not JSON").
struct Unexpected {
    std::string reason;
};

inline Unexpected unexpected(std::string reason) { return Unexpected{std::move(reason)}; }

// A value, or the reason it couldn't be had: what a decoder of a peer's bytes
// gives its caller, which alone decides what a failure means for the peer.
//
//   Expected<LoginPacket> login = LoginPacket::decode(buffer);
//   if (!login) { drop(login.error()); return; }
//   use(login->displayName);
template <typename T>
class [[nodiscard]] Expected {
public:
    Expected(T value) : content_(std::in_place_index<0>, std::move(value)) {}
    Expected(Unexpected failure) : content_(std::in_place_index<1>, std::move(failure)) {}

    bool has_value() const { return content_.index() == 0; }
    explicit operator bool() const { return has_value(); }

    // Reading the value of a failure is a fault of our own code.
    T& value() {
        if (!has_value()) {
            fatalFault("value of a failed result: " + error());
        }
        return std::get<0>(content_);
    }
    const T& value() const { return const_cast<Expected*>(this)->value(); }
    T& operator*() { return value(); }
    const T& operator*() const { return value(); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }

    const std::string& error() const {
        static const std::string none;
        return has_value() ? none : std::get<1>(content_).reason;
    }

private:
    std::variant<T, Unexpected> content_;
};

// Success with nothing to give, or the reason of a failure.
template <>
class [[nodiscard]] Expected<void> {
public:
    Expected() = default;
    Expected(Unexpected failure) : failure_(std::move(failure)) {}

    bool has_value() const { return !failure_; }
    explicit operator bool() const { return has_value(); }
    const std::string& error() const {
        static const std::string none;
        return failure_ ? failure_->reason : none;
    }

private:
    std::optional<Unexpected> failure_;
};

}  // namespace ferrylink::foundation
