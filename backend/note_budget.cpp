#include "backend/note_budget.h"

namespace ferrylink::backend {

std::optional<int> NoteBudget::take(const std::string& address, std::int64_t nowMs) {
    constexpr std::int64_t kWindowMs = 60'000;
    std::lock_guard lock(mutex_);
    std::int64_t window = nowMs / kWindowMs;
    if (window != window_) {
        window_ = window;
        total_ = 0;
        perAddress_.clear();
    }
    auto found = perAddress_.find(address);
    int fromAddress = found == perAddress_.end() ? 0 : found->second;
    if (total_ >= limits_.totalPerMinute || fromAddress >= limits_.perAddressPerMinute) {
        return static_cast<int>(((window + 1) * kWindowMs - nowMs + 999) / 1000);
    }
    ++total_;
    perAddress_[address] = fromAddress + 1;
    return std::nullopt;
}

}  // namespace ferrylink::backend
