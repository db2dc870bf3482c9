// Pocket detection driven as a HAL drives it: the module dlopened, light and
// proximity events through the pocket record's convert, enables through its config.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/module_loader.h"

namespace {

using testsupport::make_event;
constexpr int kPocket = CALMODULE_TYPE_POCKET, kLight = CALMODULE_TYPE_LIGHT, kProximity = CALMODULE_TYPE_PROXIMITY, kEnable = -1, kCommand = -2;
constexpr int kDebug = 3, kError = 6;

// One host call: an event of type `op` with data[0] = value through convert, an enable
// change (config command 0, enable = value), or another config command (= value).
// `state` is the data[0] delivered with result 0; the rest of the output is the input's.
struct Step { int op; float value; int result; float state; };
struct Record { int priority; std::string text; };
struct Scenario { const char *what; std::vector<Step> steps; std::vector<Record> log; };

Record readings(const char *light, const char *proximity) {
    return {kDebug, std::string("last_light:") + light + " last_proximity:" + proximity + "\n"};
}
const Record kEnabled{kDebug, "Enable status changed to 1\n"}, kDataError{kError, "sensor data error\n"};

// The first scenario starts from load; every later one from an enable, since the
// module's state carries over.
void run(const Scenario &sc, bool from_load) {
    SCOPED_TRACE(sc.what);
    testsupport::LoadedModule mod;
    ASSERT_TRUE(mod.ok());
    if (!from_load) mod.config(kPocket, 0, 1);
    testsupport::clear_log_records();
    for (size_t i = 0; i < sc.steps.size(); ++i) {
        const Step &s = sc.steps[i];
        SCOPED_TRACE(testing::Message() << "step " << i);
        if (s.op == kEnable || s.op == kCommand) {
            EXPECT_EQ(s.op == kEnable ? mod.config(kPocket, 0, static_cast<int32_t>(s.value))
                                      : mod.config(kPocket, static_cast<int>(s.value), 1, 200), 0);
            continue;
        }
        sensors_event_t out = testsupport::poisoned_event(), in = make_event(s.op, s.value);
        in.sensor = 42, in.timestamp = 1000 + static_cast<int64_t>(i), in.data[9] = 7.0f;
        ASSERT_EQ(mod.convert(kPocket, in, &out), s.result);
        if (s.result == 0) {
            EXPECT_EQ(out.data[0], s.state);
            in.data[0] = s.state;
        }
        EXPECT_EQ(std::memcmp(&out, &in, sizeof in), 0);  // everything else is the input's
    }
    const auto &got = testsupport::log_records();
    ASSERT_EQ(got.size(), sc.log.size());
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i].priority, sc.log[i].priority) << "record " << i;
        EXPECT_EQ(got[i].tag, "sensor_cal.common") << "record " << i;
        EXPECT_EQ(got[i].text, sc.log[i].text) << "record " << i;
    }
}

TEST(Pocket, DecisionSequencesAndTheirLogRecords) {
    const Scenario scenarios[] = {
        {"after load, dim light is reported covered once",
         {{kLight, 500, 0, 1}, {kLight, 800, -1, 0}},
         {readings("500.000000", "-1.000000"), readings("800.000000", "-1.000000")}},
        {"light limit inclusive, proximity limit exclusive",
         {{kLight, 1000, 0, 1}, {kLight, 1000.5f, 0, 0}, {kProximity, 5, -1, 0}, {kProximity, 4.9f, 0, 1},
          {kProximity, 5, 0, 0}},
         {readings("1000.000000", "-1.000000"), readings("1000.500000", "-1.000000"),
          readings("1000.500000", "5.000000"), readings("1000.500000", "4.900000"),
          readings("1000.500000", "5.000000")}},
        {"a held proximity decides alone; the light is still stored and logged",
         {{kProximity, 0, 0, 1}, {kLight, 5000, -1, 0}},
         {readings("-1.000000", "0.000000"), readings("5000.000000", "0.000000")}},
        {"enable forgets: the same reading is reported again",
         {{kLight, 500, 0, 1}, {kEnable, 1, 0, 0}, {kLight, 500, 0, 1}},
         {readings("500.000000", "-1.000000"), kEnabled, readings("500.000000", "-1.000000")}},
        {"any nonzero enable drops a held proximity too",
         {{kProximity, 1, 0, 1}, {kEnable, 7, 0, 0}, {kLight, 2000, 0, 0}},
         {readings("-1.000000", "1.000000"), {kDebug, "Enable status changed to 7\n"},
          readings("2000.000000", "-1.000000")}},
        {"disable only logs and keeps the state",
         {{kLight, 500, 0, 1}, {kEnable, 0, 0, 0}, {kLight, 500, -1, 0}},
         {readings("500.000000", "-1.000000"), {kDebug, "Enable status changed to 0\n"},
          readings("500.000000", "-1.000000")}},
        {"other config commands are silent and change nothing",
         {{kLight, 500, 0, 1}, {kCommand, 1, 0, 0}, {kCommand, -5, 0, 0}, {kCommand, 2, 0, 0}, {kLight, 500, -1, 0}},
         {readings("500.000000", "-1.000000"), readings("500.000000", "-1.000000")}},
        {"negative readings are no reading: data errors, the reported state untouched",
         {{kLight, -3, -1, 0}, {kProximity, -2, -1, 0}, {kLight, 3, 0, 1}},
         {readings("-3.000000", "-1.000000"), kDataError, readings("-3.000000", "-2.000000"), kDataError,
          readings("3.000000", "-2.000000")}},
        {"another event type: refused, output a byte copy of the input, no state change",
         {{1, 0.5f, -1, 0}, {kLight, 10, 0, 1}},
         {{kError, "type error:1\n"}, readings("10.000000", "-1.000000")}},
    };
    for (const Scenario &sc : scenarios) run(sc, &sc == scenarios);
}

}  // namespace
