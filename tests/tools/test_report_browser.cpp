// The HTML report in a real browser: it loads offline, runs without a script error and
// draws every plot.
#include <cstdio>
#include <cstdlib>
#include <cstring>
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
        const auto r = run("report " + session + " -o " + html);
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
        return slurp(dom_file);
    }

    static void expect_every_plot_drawn(const std::string &dom) {
        ASSERT_FALSE(dom.empty());
        const std::string errors = element(dom, "errors").substr(0, 2000);
        EXPECT_EQ(dom.find("data-script-errors=\""), std::string::npos) << errors;
        EXPECT_TRUE(has(dom, "<pre id=\"errors\"></pre>"));
        EXPECT_TRUE(has(dom, "data-plots-rendered=\"6\""));
        for (const char *id : {"plot-level", "plot-magnitude", "plot-cloud", "plot-orientation", "plot-heading",
                               "plot-pocket"}) {
            EXPECT_TRUE(has(element(dom, id), "class=\"main-svg\""));
        }
        // The 3D cloud is drawn with WebGL, on a canvas.
        EXPECT_TRUE(has(element(dom, "plot-cloud"), "<canvas"));
        // The summary table was filled.
        EXPECT_TRUE(has(dom, "<th>Final level</th>"));
    }

    std::string chromium_;
};

TEST_F(ReportInBrowser, ASimulatedSessionDrawsEveryPlot) {
    const std::string session = file("sim.csv");
    ASSERT_EQ(run("simulate --duration 30 -o " + session).status, 0);
    const std::string dom = render(session);
    expect_every_plot_drawn(dom);
    EXPECT_TRUE(has(dom, "<th>Offset error</th>"));
}

TEST_F(ReportInBrowser, ASessionWithoutMagnetometerStillDrawsEveryPlotAndSaysWhatIsMissing) {
    const std::string dom = render(write("pocket.csv", "time_ns,type,v0,v1,v2\n1000,5,500,0,0\n2000,8,0,0,0\n"));
    expect_every_plot_drawn(dom);
    EXPECT_TRUE(has(dom, "No calibrated magnetometer output in this replay."));
}

}  // namespace
