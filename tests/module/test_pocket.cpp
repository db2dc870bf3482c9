// Pocket detection driven as a HAL drives it: light and proximity events through the
// pocket record's convert, enables through its config.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/module_loader.h"

namespace {

constexpr int kPocket = CALMODULE_TYPE_POCKET, kLight = CALMODULE_TYPE_LIGHT, kProximity = CALMODULE_TYPE_PROXIMITY;
constexpr int kEnable = -1, kCommand = -2;

// One host call: an event of type `op` with data[0] = value through convert, an enable
// change (enable = value), or another config command (= value). `state` is the data[0]
// delivered with result 0; the rest of the output is the input's.
struct Step { int op; float value; int result; float state; };
struct Scenario { const char *what; std::vector<Step> steps; std::vector<std::string> errors; };

TEST(Pocket, DecisionSequences) {
    const Scenario scenarios[] = {
        {"after load, dim light is reported covered once", {{kLight, 500, 0, 1}, {kLight, 800, -1, 0}}, {}},
        {"light limit inclusive, proximity limit exclusive",
         {{kLight, 1000, 0, 1}, {kLight, 1000.5f, 0, 0}, {kProximity, 5, -1, 0}, {kProximity, 4.9f, 0, 1},
          {kProximity, 5, 0, 0}}, {}},
        {"a held proximity decides alone", {{kProximity, 0, 0, 1}, {kLight, 5000, -1, 0}}, {}},
        {"enable forgets: the same reading is reported again",
         {{kLight, 500, 0, 1}, {kEnable, 1, 0, 0}, {kLight, 500, 0, 1}}, {}},
        {"any nonzero enable drops a held proximity too",
         {{kProximity, 1, 0, 1}, {kEnable, 7, 0, 0}, {kLight, 2000, 0, 0}}, {}},
        {"disable keeps the state", {{kLight, 500, 0, 1}, {kEnable, 0, 0, 0}, {kLight, 500, -1, 0}}, {}},
        {"other config commands change nothing",
         {{kLight, 500, 0, 1}, {kCommand, 1, 0, 0}, {kCommand, -5, 0, 0}, {kCommand, 2, 0, 0}, {kLight, 500, -1, 0}}, {}},
        {"negative readings are data errors", {{kLight, -3, -1, 0}, {kProximity, -2, -1, 0}, {kLight, 3, 0, 1}},
         {"sensor data error\n", "sensor data error\n"}},
        {"another event type is refused", {{1, 0.5f, -1, 0}, {kLight, 10, 0, 1}}, {"type error:1\n"}},
    };
    for (const Scenario &sc : scenarios) {
        SCOPED_TRACE(sc.what);
        testsupport::LoadedModule mod;  // state carries over: each later scenario starts from an enable
        ASSERT_TRUE(mod.ok());
        if (&sc != scenarios) mod.config(kPocket, 0, 1);
        testsupport::clear_log_records();
        for (const Step &s : sc.steps) {
            if (s.op == kEnable || s.op == kCommand) {
                EXPECT_EQ(s.op == kEnable ? mod.config(kPocket, 0, static_cast<int32_t>(s.value))
                                          : mod.config(kPocket, static_cast<int>(s.value), 1, 200), 0);
                continue;
            }
            sensors_event_t out = testsupport::poisoned_event(), in = testsupport::make_event(s.op, s.value);
            in.sensor = 42, in.timestamp = 1000, in.data[9] = 7.0f;
            ASSERT_EQ(mod.convert(kPocket, in, &out), s.result) << s.op << " " << s.value;
            if (s.result == 0) in.data[0] = s.state;
            EXPECT_EQ(std::memcmp(&out, &in, sizeof in), 0) << s.op << " " << s.value;
        }
        std::vector<std::string> errors;
        for (const auto &r : testsupport::log_records()) {
            if (r.priority == 6) errors.push_back(r.text);
        }
        EXPECT_EQ(errors, sc.errors);
    }
}

}  // namespace
