#include "support/test_env.h"

#include <cstdio>
#include <fstream>
#include <sstream>

namespace testsupport {

const char *module_path() { return CALMODULE_SO_PATH; }
const char *param_file_path() { return CALMODULE_PARAM_FILE_PATH; }
const char *data_dir() { return CALMODULE_DATA_DIR; }

void remove_param_file() { std::remove(param_file_path()); }

void write_param_file(const std::string &bytes) {
    std::ofstream f(param_file_path(), std::ios::binary | std::ios::trunc);
    f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

bool read_param_file(std::string *bytes) {
    std::ifstream f(param_file_path(), std::ios::binary);
    if (!f) return false;
    std::ostringstream s;
    s << f.rdbuf();
    *bytes = s.str();
    return true;
}

}  // namespace testsupport
