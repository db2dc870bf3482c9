// The HTML report in a real browser: self-contained, it runs without a script error
// and draws every plot. Skipped, saying so, where chromium is not installed.
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>

#include "calhost_runner.h"

namespace {

using calhost_test::CalhostTest;
using calhost_test::has;
using calhost_test::slurp;

// The part of the page from the element with this id to the next plot.
std::string element(const std::string &dom, const std::string &id) {
    const auto at = dom.find("id=\"" + id + "\"");
    return at == std::string::npos ? "" : dom.substr(at, dom.find("id=\"plot-", at + 5) - at);
}

// A simulated session under a file name full of markup, with the phone's own rotation
// vector after each accelerometer row: every panel drawn, the 3D cloud on a canvas.
TEST_F(CalhostTest, AReportUnderAHostileFileNameDrawsEveryPanelOffline) {
    char chromium[4096] = "";
    FILE *p = ::popen("command -v chromium || command -v chromium-browser", "r");
    if (!p || !std::fgets(chromium, sizeof chromium, p)) chromium[0] = '\0';
    if (p) ::pclose(p);
    chromium[std::strcspn(chromium, "\n")] = '\0';
    if (!*chromium) GTEST_SKIP() << "chromium is not installed: the browser check of the report is skipped";

    ASSERT_EQ(run("simulate --duration 30 -o " + file("sim.csv")).status, 0);
    std::string text, line;
    for (std::istringstream in(slurp(file("sim.csv"))); std::getline(in, line);) {
        const auto comma = line.find(',');
        const bool accelerometer = comma != std::string::npos && line.compare(comma, 3, ",1,") == 0;
        text += line + "\n" + (accelerometer ? line.substr(0, comma) + ",11,0,0,0.38\n" : "");
    }
    const std::string html = file("report.html");
    const auto r = run("report '" + write("x<b>&<!--<script>.csv", text) + "' -o " + html);
    ASSERT_EQ(r.status, 0) << r.err;
    // Self-contained: no script, style or image is fetched from anywhere.
    EXPECT_EQ(slurp(html).find("<script src"), std::string::npos);
    EXPECT_EQ(slurp(html).find("<link"), std::string::npos);
    // Software WebGL for the 3D cloud; no network, no profile of the user's.
    const std::string cmd = std::string(chromium) +
                            " --headless --no-sandbox --disable-gpu --enable-unsafe-swiftshader --disable-quic"
                            " --no-first-run --disable-background-networking --disable-component-update --disable-sync"
                            " --user-data-dir=" + file("profile") + " --virtual-time-budget=15000 --dump-dom file://" +
                            html + " >" + file("dom.html") + " 2>" + file("chromium.log");
    ASSERT_EQ(std::system(cmd.c_str()), 0) << slurp(file("chromium.log"));
    const std::string dom = slurp(file("dom.html"));
    EXPECT_EQ(dom.find("data-script-errors=\""), std::string::npos) << element(dom, "errors").substr(0, 2000);
    EXPECT_TRUE(has(dom, "<pre id=\"errors\"></pre>"));
    EXPECT_TRUE(has(dom, "data-plots-expected=\"7\""));
    EXPECT_TRUE(has(dom, "data-plots-rendered=\"7\""));
    EXPECT_TRUE(has(dom, "<p class=\"verdict "));
    for (const char *id : {"plot-level", "plot-offset", "plot-magnitude", "plot-cloud", "plot-orientation",
                           "plot-heading", "plot-pocket"}) {
        EXPECT_TRUE(has(element(dom, id), "class=\"main-svg\"")) << id;
    }
    EXPECT_TRUE(has(element(dom, "plot-cloud"), "<canvas"));
    EXPECT_TRUE(has(element(dom, "plot-heading"), "phone rotation vector"));
    EXPECT_TRUE(has(dom, "x&lt;b&gt;&amp;&lt;!--&lt;script&gt;.csv"));
}

}  // namespace
