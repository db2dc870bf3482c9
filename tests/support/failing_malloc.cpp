#include "support/failing_malloc.h"

#include <cstddef>

namespace testsupport {
long malloc_calls = 0;
long malloc_fail_at = -1;
}  // namespace testsupport

extern "C" void *__real_malloc(size_t size);
extern "C" void *__wrap_malloc(size_t size) {
    using namespace testsupport;
    return malloc_calls++ == malloc_fail_at ? nullptr : __real_malloc(size);
}
