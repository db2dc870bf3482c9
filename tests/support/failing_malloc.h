// Makes one chosen call of malloc fail, to see the module survive running out of
// memory. A test using it links support/failing_malloc.cpp and -Wl,--wrap=malloc, so
// every malloc of the module (linked into the test as objects) comes here first.
#ifndef CALMODULE_TESTS_FAILING_MALLOC_H
#define CALMODULE_TESTS_FAILING_MALLOC_H

namespace testsupport {

extern long malloc_calls;    // calls since the test last cleared it
extern long malloc_fail_at;  // the call that fails, counted from 0; -1 none

}  // namespace testsupport

#endif
