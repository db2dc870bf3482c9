// The result of a pure computation on a three-component input, kept for the next
// call with the same input.
//
// The orientation computation runs on every event, and a magnetometer event brings
// the same acceleration as the event before it: the tilt of that acceleration, with
// its arc functions, sines and cosines, would come out the same again. The input is
// compared bit for bit (a NaN matches only the same NaN, -0 only -0), so a reused
// result is exactly the float the computation would give.
#ifndef CALMODULE_ORIENTATION_SAME_INPUT_CACHE_H
#define CALMODULE_ORIENTATION_SAME_INPUT_CACHE_H

#include <cstdint>
#include <cstring>

namespace quarvel {

template <typename Result>
class SameInputCache {
public:
    // Returns compute()'s result for `in`, computing it only when `in` differs from
    // the previous call's input.
    template <typename Compute>
    const Result &get(const float in[3], Compute compute) {
        uint32_t key[3];
        std::memcpy(key, in, sizeof key);
        if (!valid_ || key[0] != key_[0] || key[1] != key_[1] || key[2] != key_[2]) {
            result_ = compute();
            std::memcpy(key_, key, sizeof key_);
            valid_ = true;
        }
        return result_;
    }

private:
    uint32_t key_[3] = {};
    bool valid_ = false;
    Result result_{};
};

}  // namespace quarvel

#endif
