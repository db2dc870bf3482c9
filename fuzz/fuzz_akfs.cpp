// The AKFS_ family with arbitrary vectors and counts, within the arrays it is handed.
//
// Promises checked: every function answers 1 or 0; a rejected remap leaves the vector
// as it was; a new auto offset from samples within a million (in any unit the caller
// uses) is finite.
#include <cstring>

#include "calmodule/aoc.h"
#include "fuzz_support.h"

namespace {

constexpr int16_t kHistory = 32;

bool ok(int16_t rc) { return rc == 0 || rc == 1; }

akfs_vec vec(fuzz::Input &input) { return {input.f32(), input.f32(), input.f32()}; }

// A count anywhere from a little below zero to the array's length.
int16_t count(fuzz::Input &input) { return static_cast<int16_t>(input.byte() % (kHistory + 3)) - 2; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::fresh_module();
    fuzz::Input input(data, size);
    akfs_vec a[kHistory], h[kHistory];
    AKFS_InitBuffer(kHistory, a);
    AKFS_InitBuffer(kHistory, h);
    aoc_context context;
    AKFS_InitAOC(&context);
    bool bounded_samples = true;

    while (input.more()) {
        const uint8_t op = input.byte();
        akfs_vec *history = (op & 0x80) ? a : h;
        akfs_vec v = vec(input);
        switch (op % 7) {
        case 0: {
            const int16_t n = count(input);
            const akfs_vec data_in[2] = {v, vec(input)};
            const akfs_vec offset = vec(input), scale = vec(input);
            const int16_t ndata = static_cast<int16_t>(1 + input.byte() % 2);
            const int16_t pushed = n < ndata ? n : ndata;
            FUZZ_CHECK(ok(AKFS_VbNorm(ndata, data_in, pushed, &offset, &scale, input.f32(), kHistory, history)));
            break;
        }
        case 1:
            FUZZ_CHECK(ok(AKFS_BufShift(kHistory, count(input), history)));
            break;
        case 2: {
            akfs_vec average;
            FUZZ_CHECK(ok(AKFS_VbAve(kHistory, history, count(input), &average)));
            break;
        }
        case 3: {
            float azimuth = 0.0f, pitch = 0.0f, roll = 0.0f;
            FUZZ_CHECK(ok(AKFS_Direction(kHistory, h, count(input), kHistory, a, count(input), &azimuth, &pitch,
                                         &roll)));
            break;
        }
        case 4: {
            const akfs_vec before = v;
            const int16_t rc = AKFS_Rotate(static_cast<int8_t>(input.byte()), &v);
            FUZZ_CHECK(ok(rc));
            if (rc == 0) FUZZ_CHECK(std::memcmp(&v, &before, sizeof v) == 0);
            break;
        }
        case 5: {
            int16_t m[9];
            for (int16_t &e : m) e = static_cast<int16_t>(input.i32());
            FUZZ_CHECK(ok(AKFS_RotateMat(m, &v)));
            break;
        }
        default: {
            bounded_samples =
                bounded_samples && std::fabs(v.x) <= 1e6f && std::fabs(v.y) <= 1e6f && std::fabs(v.z) <= 1e6f;
            akfs_vec offset = {0.0f, 0.0f, 0.0f};
            const int16_t rc = AKFS_AOC(&context, &v, &offset);
            const float found[3] = {offset.x, offset.y, offset.z};
            FUZZ_CHECK(ok(rc) && (rc == 0 || !bounded_samples || fuzz::finite3(found)));
            break;
        }
        }
    }
    return 0;
}
