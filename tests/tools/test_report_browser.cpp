// The HTML report in a real browser: it loads offline, runs without a script error and
// draws every plot.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

#include "calhost_runner.h"

namespace {

using calhost_test::CalhostTest;
using calhost_test::has;
using calhost_test::slurp;

// The browser's path, or "" when it is not installed.
std::string find_chromium() {
    FILE *p = ::popen("command -v chromium || command -v chromium-browser", "r");
    char path[4096] = "";
    if (p && !std::fgets(path, sizeof path, p)) path[0] = '\0';
    if (p) ::pclose(p);
    return std::string(path, std::strcspn(path, "\n"));
}

// The part of the page from the element with this id to the next plot.
std::string element(const std::string &dom, const std::string &id) {
    const auto at = dom.find("id=\"" + id + "\"");
    if (at == std::string::npos) return {};
    const auto next = dom.find("id=\"plot-", at + 5);
    return dom.substr(at, next == std::string::npos ? std::string::npos : next - at);
}

class ReportInBrowser : public CalhostTest {
protected:
    void SetUp() override {
        CalhostTest::SetUp();
        chromium_ = find_chromium();
        if (chromium_.empty()) GTEST_SKIP() << "chromium is not installed: the browser check of the report is skipped";
    }

    // Writes the report of the session, checks that it is self-contained, and returns
    // the page's DOM after its scripts ran in headless chromium.
    std::string render(const std::string &session) {
        const std::string html = file("report.html");
        const auto r = run("report '" + session + "' -o " + html);
        EXPECT_EQ(r.status, 0) << r.err;
        // Self-contained: no script, style or image is fetched from anywhere.
        const std::string page = slurp(html);
        EXPECT_EQ(page.find("<script src"), std::string::npos);
        EXPECT_EQ(page.find("<link"), std::string::npos);

        // Software WebGL for the 3D cloud; no network, no profile of the user's.
        const std::string dom_file = file("dom.html");
        const std::string cmd = chromium_ +
                                " --headless --no-sandbox --disable-gpu --enable-unsafe-swiftshader --disable-quic"
                                " --no-first-run --disable-background-networking --disable-component-update"
                                " --disable-sync --user-data-dir=" + file("profile") +
                                " --virtual-time-budget=15000 --dump-dom file://" + html + " >" + dom_file + " 2>" +
                                file("chromium.log");
        EXPECT_EQ(std::system(cmd.c_str()), 0) << slurp(file("chromium.log"));
        size_ = page.size();
        return slurp(dom_file);
    }

    // Every plot the page announces is drawn, with no script error; the verdict leads.
    static void expect_every_plot_drawn(const std::string &dom, const std::string &expected) {
        ASSERT_FALSE(dom.empty());
        const std::string errors = element(dom, "errors").substr(0, 2000);
        EXPECT_EQ(dom.find("data-script-errors=\""), std::string::npos) << errors;
        EXPECT_TRUE(has(dom, "<pre id=\"errors\"></pre>"));
        EXPECT_TRUE(has(dom, "data-plots-expected=\"" + expected + "\""));
        EXPECT_TRUE(has(dom, "data-plots-rendered=\"" + expected + "\""));
        EXPECT_TRUE(has(dom, "<p class=\"verdict "));
    }

    std::string chromium_;
    std::size_t size_ = 0;
};

// A simulated session under a file name full of markup, with the phone's own rotation
// vector added: every panel drawn, the 3D cloud on a canvas.
TEST_F(ReportInBrowser, AHostileFileNameStillGivesAWorkingReportWithEveryPanel) {
    const std::string sim = file("sim.csv");
    ASSERT_EQ(run("simulate --duration 30 -o " + sim).status, 0);
    std::string text, line;
    std::istringstream in(slurp(sim));
    while (std::getline(in, line)) {
        text += line + "\n";
        const auto comma = line.find(',');  // after each accelerometer row, one of the phone's rotation vector
        if (comma != std::string::npos && line.compare(comma, 3, ",1,") == 0) text += line.substr(0, comma) + ",11,0,0,0.38\n";
    }
    const std::string dom = render(write("x<b>&<!--<script>.csv", text));
    expect_every_plot_drawn(dom, "7");
    for (const char *id : {"plot-level", "plot-offset", "plot-magnitude", "plot-cloud", "plot-orientation",
                           "plot-heading", "plot-pocket"}) {
        EXPECT_TRUE(has(element(dom, id), "class=\"main-svg\"")) << id;
    }
    EXPECT_TRUE(has(element(dom, "plot-cloud"), "<canvas"));
    EXPECT_TRUE(has(element(dom, "plot-heading"), "phone rotation vector"));
    EXPECT_TRUE(has(dom, "x&lt;b&gt;&amp;&lt;!--&lt;script&gt;.csv"));
}

TEST_F(ReportInBrowser, EmptyPanelsAreLeftOutWithANote) {
    const std::string dom = render(write("pocket.csv", "time_ns,type,v0,v1,v2\n1000,5,500,0,0\n2000,8,0,0,0\n"));
    expect_every_plot_drawn(dom, "1");
    EXPECT_TRUE(has(dom, "Accuracy level: no calibrated magnetometer output in this replay"));
    EXPECT_EQ(dom.find("id=\"plot-cloud\""), std::string::npos);
}

TEST_F(ReportInBrowser, TheRealRecordingsReportIsSmallAndDrawn) {
    const std::string session = std::string(CALMODULE_DATA_DIR) + "/nexus5-figure-eight.csv";
    if (!std::filesystem::exists(session)) GTEST_SKIP() << "the real recording is absent: " << session;
    expect_every_plot_drawn(render(session), "6");
    EXPECT_LT(size_, 2500000u);
}

}  // namespace
