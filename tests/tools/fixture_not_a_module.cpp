// A shared library that is no calibration module: it exports no `scmi`.
extern "C" __attribute__((visibility("default"))) int calhost_fixture_answer() { return 42; }
