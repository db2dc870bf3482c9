// The descriptor walked as a HAL walks it, through dlopen of the built module.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/module_loader.h"

namespace {

std::vector<std::string> names(const char *const *list) {
    std::vector<std::string> v;
    while (*list) v.emplace_back(*list++);
    return v;
}

TEST(Descriptor, WalkedAsAHostWalksItFromInitToDeinit) {
    testsupport::LoadedModule m;
    ASSERT_TRUE(m.ok());
    const cal_module_info &info = *m.info();
    EXPECT_EQ(std::memcmp(&info.tag, "scmt", 4), 0);
    EXPECT_STREQ(info.id, "cal_module_quarvel");
    EXPECT_EQ(info.version, 1u);
    EXPECT_STREQ(info.vendor, "Quarvel");
    EXPECT_EQ(info.handle, nullptr);
    ASSERT_EQ(info.number, 4u);
    for (uint32_t r : info.reserved) EXPECT_EQ(r, 0u);
    ASSERT_TRUE(info.methods->init && info.methods->deinit && info.methods->get_algo_list);
    const cal_algo *first = nullptr, *again = nullptr;
    EXPECT_EQ(info.methods->get_algo_list(&first), 0);
    EXPECT_EQ(info.methods->get_algo_list(&again), 0);
    EXPECT_EQ(first, again);
    const struct { int type; std::vector<std::string> compatible; bool has_config; } table[4] = {
        {2, {"qv730"}, true},
        {3, {"orientation"}, false},
        {14, {"magnetic_field_uncalibrated"}, false},
        {65537, {"ltr553-pocket", "ap3426-pocket", "oem-pocket"}, true}};
    for (unsigned i = 0; i < info.number; ++i) {
        SCOPED_TRACE(i);
        const cal_algo &a = first[i];
        EXPECT_EQ(std::memcmp(&a.tag, "scat", 4), 0);
        EXPECT_EQ(a.version, 1u);
        EXPECT_EQ(a.type, table[i].type);
        EXPECT_EQ(names(a.compatible), table[i].compatible);
        EXPECT_EQ(a.module, m.info());
        ASSERT_NE(a.methods, nullptr);
        EXPECT_NE(a.methods->convert, nullptr);
        EXPECT_EQ(a.methods->config != nullptr, table[i].has_config);
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

}  // namespace
