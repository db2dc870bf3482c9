// The descriptor walked as a HAL walks it, and what the magnetometer records write.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "support/log_capture.h"
#include "support/module_loader.h"

namespace {

using testsupport::make_event;
using testsupport::poisoned_event;
constexpr int kMag = CALMODULE_TYPE_MAGNETIC_FIELD, kMagUncal = CALMODULE_TYPE_MAGNETIC_FIELD_UNCALIBRATED;

TEST(Descriptor, WalkedAsAHostWalksItFromInitToDeinit) {
    testsupport::LoadedModule m;
    ASSERT_TRUE(m.ok());
    const cal_module_info &info = *m.info();
    EXPECT_EQ(std::memcmp(&info.tag, "scmt", 4), 0);
    EXPECT_STREQ(info.id, "cal_module_quarvel");
    EXPECT_STREQ(info.vendor, "Quarvel");
    EXPECT_TRUE(info.version == 1u && info.handle == nullptr && info.number == 4u);
    for (uint32_t r : info.reserved) EXPECT_EQ(r, 0u);
    const struct { int type; std::vector<std::string> compatible; bool has_config; } table[4] = {
        {2, {"qv730"}, true}, {3, {"orientation"}, false}, {14, {"magnetic_field_uncalibrated"}, false},
        {65537, {"ltr553-pocket", "ap3426-pocket", "oem-pocket"}, true}};
    for (unsigned i = 0; i < 4; ++i) {
        const cal_algo &a = m.algos()[i];
        std::vector<std::string> names;
        for (const char *const *n = a.compatible; *n; ++n) names.emplace_back(*n);
        EXPECT_EQ(std::memcmp(&a.tag, "scat", 4), 0) << i;
        EXPECT_TRUE(a.version == 1u && a.type == table[i].type && a.module == m.info() && a.methods->convert) << i;
        EXPECT_EQ(names, table[i].compatible);
        EXPECT_EQ(a.methods->config != nullptr, table[i].has_config) << i;
    }
    // init may be called any number of times; deinit only logs.
    testsupport::clear_log_records();
    EXPECT_EQ(info.methods->init(), 0);
    EXPECT_EQ(info.methods->init(), 0);
    info.methods->deinit();
    const auto &logs = testsupport::log_records();
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(logs[0].priority, 4);
    EXPECT_EQ(logs[0].tag, "sensor_cal.common");
    EXPECT_EQ(logs[0].text, "cal_deinit called\n");
}

TEST(MagnetometerRecords, WriteOnlyTheirFieldsRefuseOtherEventsAndLogConfigChanges) {
    testsupport::remove_param_file();
    testsupport::LoadedModule m;
    const sensors_event_t poison = poisoned_event(), acc = make_event(CALMODULE_TYPE_ACCELEROMETER, 1, 2, 3);
    sensors_event_t out = poison, expected = poison;
    EXPECT_EQ(m.convert(kMag, acc, &out), -11);
    EXPECT_EQ(m.convert(kMagUncal, acc, &out), -1);
    EXPECT_EQ(std::memcmp(&out, &poison, sizeof out), 0);
    // Null records are refused with each method's own refusal, the pocket's included.
    for (auto [type, refusal] : {std::pair{kMag, -11}, {kMagUncal, -1}, {CALMODULE_TYPE_POCKET, -1}}) {
        EXPECT_EQ(m.algo(type)->methods->convert(nullptr, &out), refusal) << type;
        EXPECT_EQ(m.algo(type)->methods->convert(&acc, nullptr), refusal) << type;
    }
    // A (0, 0, 0) sample delivers (0, 0, 0) at level 0, and nothing else.
    EXPECT_EQ(m.convert(kMag, make_event(kMag, 0, 0, 0), &out), 0);
    std::memset(&expected.data[0], 0, 3 * sizeof(float) + 1);
    EXPECT_EQ(std::memcmp(&out, &expected, sizeof out), 0);
    // Uncalibrated: the raw field, then field minus bias, nothing else.
    sensors_event_t in = make_event(kMag, 10, 20, 30);
    in.data[4] = 12, in.data[5] = 18, in.data[6] = 35;
    out = expected = poison;
    EXPECT_EQ(m.convert(kMagUncal, in, &out), 0);
    const float fields[6] = {12, 18, 35, 2, -2, 5};
    std::memcpy(expected.data, fields, sizeof fields);
    EXPECT_EQ(std::memcmp(&out, &expected, sizeof out), 0);
    // Config logs enable and rate changes only, and takes no arguments as none.
    EXPECT_EQ(m.algo(kMag)->methods->config(CALMODULE_CMD_ENABLE, nullptr), 0);
    testsupport::clear_log_records();
    EXPECT_EQ(m.config(kMag, 0, 1) + m.config(kMag, 1, 0, 200) + m.config(kMag, 2, 5, 5), 0);
    const auto &logs = testsupport::log_records();
    ASSERT_EQ(logs.size(), 2u);
    EXPECT_TRUE(logs[0].priority == 3 && logs[1].priority == 3 && logs[0].tag == "sensor_cal.common");
    EXPECT_EQ(logs[0].text, "Enable status changed to 1\n");
    EXPECT_EQ(logs[1].text, "Polling rate changed to 200\n");
}

}  // namespace
