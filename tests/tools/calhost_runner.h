// Runs the calhost program as a user does, in a private scratch folder.
#ifndef CALHOST_TESTS_RUNNER_H
#define CALHOST_TESTS_RUNNER_H

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <iterator>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <nlohmann/json.hpp>

namespace calhost_test {

struct Result {
    int status = -1;  // exit status; -1 when killed by a signal
    std::string out;
    std::string err;
    nlohmann::json json() const { return nlohmann::json::parse(out); }
};

inline std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// Whether `text` holds `part`; a failure shows both.
inline ::testing::AssertionResult has(const std::string &text, const std::string &part) {
    if (text.find(part) != std::string::npos) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "`" << part << "` is not in:\n" << text;
}

class CalhostTest : public ::testing::Test {
protected:
    void SetUp() override {
        char templ[] = "/tmp/calhost-test-XXXXXX";
        ASSERT_NE(::mkdtemp(templ), nullptr);
        dir_ = templ;
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    std::string file(const std::string &name) const { return dir_ + "/" + name; }
    std::string write(const std::string &name, const std::string &bytes) const {
        std::ofstream(file(name), std::ios::binary) << bytes;
        return file(name);
    }
    // Runs `calhost ARGS` (arguments are plain words: paths without blanks), its
    // standard output to `stdout_to` when given.
    Result run(const std::string &args, const std::string &stdout_to = {}) const {
        const std::string out = file(".stdout"), err = file(".stderr");
        const std::string cmd =
            std::string(CALHOST_EXE) + " " + args + " >" + (stdout_to.empty() ? out : stdout_to) + " 2>" + err;
        const int rc = std::system(cmd.c_str());
        Result r;
        r.status = (rc != -1 && WIFEXITED(rc)) ? WEXITSTATUS(rc) : -1;
        r.out = slurp(out);
        r.err = slurp(err);
        std::filesystem::remove(out);
        std::filesystem::remove(err);
        return r;
    }
    // How many files the scratch folder holds.
    std::ptrdiff_t entries() const {
        return std::distance(std::filesystem::directory_iterator(dir_), std::filesystem::directory_iterator());
    }

    std::string dir_;
};

}  // namespace calhost_test

#endif
