#include "playback/TileBudget.h"

#include <algorithm>

namespace qv {

TileBudget::Rule TileBudget::ruleFor(int cores) {
    Rule rule;
    const double n = std::max(1, cores);
    rule.ceiling = std::max(0.25, n - 0.5);
    rule.floor = std::min(rule.ceiling, 0.1 * n);
    return rule;
}

TileBudget::TileBudget(Rule rule, int angles)
    : rule_(rule), rate_(rule.ceiling), balances_(static_cast<size_t>(std::max(1, angles))) {
    // Full at the start: each its share of the depth.
    for (double& b : balances_) b = rate_ * rule_.depth / static_cast<double>(balances_.size());
    totals_.rate = rate_;
    totals_.granted = rate_ * rule_.depth;
}

void TileBudget::fill(double now) {
    const double dt = std::max(0.0, now - filledAt_);
    filledAt_ = std::max(filledAt_, now);
    const double n = static_cast<double>(balances_.size());
    const double share = rate_ * dt / n, cap = rate_ * rule_.depth / n;
    double overflow = 0;
    for (double& b : balances_) {
        const double before = b;
        b = std::min(cap, b + share);
        overflow += share - (b - before);
        totals_.granted += b - before;
    }
    // What the buckets could not hold waits in the common one, as deep as all of them.
    const double commonBefore = common_;
    common_ = std::min(rate_ * rule_.depth, common_ + overflow);
    totals_.granted += std::max(0.0, common_ - commonBefore);
}

double& TileBudget::account(int angle) {
    if (angle < 0 || static_cast<size_t>(angle) >= balances_.size()) return common_;
    double& own = balances_[static_cast<size_t>(angle)];
    return own > 0 || common_ <= 0 ? own : common_;
}

void TileBudget::steer(double now, bool programPressed) {
    std::lock_guard guard(lock_);
    fill(now);
    const double dt = std::max(0.0, now - steeredAt_);
    steeredAt_ = std::max(steeredAt_, now);
    if (programPressed) {
        if (now - cutAt_ >= rule_.cutEvery) {
            rate_ = std::max(rule_.floor, rate_ * 0.5);
            cutAt_ = now;
        }
    } else {
        rate_ = std::min(rule_.ceiling, rate_ + rule_.regrow * rule_.ceiling * std::min(dt, 1.0));
    }
    // A smaller rate holds smaller buckets.
    const double cap = rate_ * rule_.depth;
    for (double& b : balances_) b = std::min(b, cap / static_cast<double>(balances_.size()));
    common_ = std::min(common_, cap);
    totals_.rate = rate_;
}

bool TileBudget::open(double now, int angle) {
    std::lock_guard guard(lock_);
    fill(now);
    return account(angle) > 0;
}

void TileBudget::charge(double now, int angle, double seconds) {
    std::lock_guard guard(lock_);
    fill(now);
    seconds = std::max(0.0, seconds);
    account(angle) -= seconds;
    totals_.spent += seconds;
}

TileBudget::Figures TileBudget::figures() const {
    std::lock_guard guard(lock_);
    return totals_;
}

}  // namespace qv
