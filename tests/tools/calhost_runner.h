// Runs the calhost program as a user does, in a private scratch folder.
#ifndef CALHOST_TESTS_RUNNER_H
#define CALHOST_TESTS_RUNNER_H

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <nlohmann/json.hpp>

namespace calhost_test {

inline std::string slurp(const std::string &path) {
    std::ostringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}

// Whether `text` holds `part`; a failure shows both.
inline ::testing::AssertionResult has(const std::string &text, const std::string &part) {
    if (text.find(part) != std::string::npos) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "`" << part << "` is not in:\n" << text;
}

struct Result {
    int status;  // -1 when killed by a signal
    std::string out, err;
    nlohmann::json json() const { return nlohmann::json::parse(out); }
};

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
    // Runs `calhost ARGS` (plain words: paths without blanks) in a shell, under `via`
    // when given, its standard output to `stdout_to` when given; captured outputs live
    // outside the scratch folder.
    Result run(const std::string &args, const std::string &stdout_to = {}, const std::string &via = {}) const {
        const std::string out = dir_ + ".stdout", err = dir_ + ".stderr";
        const std::string command =
            via + " " CALHOST_EXE " " + args + " >" + (stdout_to.empty() ? out : stdout_to) + " 2>" + err;
        const int rc = std::system(command.c_str());
        Result r{rc != -1 && WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, slurp(out), slurp(err)};
        std::filesystem::remove(out);
        std::filesystem::remove(err);
        return r;
    }

    std::string dir_;
};

}  // namespace calhost_test

#endif
