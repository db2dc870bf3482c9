// Where the tests find the built module, the parameter file and the shared data.
#ifndef CALMODULE_TESTS_TEST_ENV_H
#define CALMODULE_TESTS_TEST_ENV_H

#include <string>

namespace testsupport {

const char *module_path();      // the built libcalmodule_quarvel.so
const char *param_file_path();  // the parameter file this build reads and writes
const char *data_dir();         // the shared recordings; may be absent

// Parameter file helpers: remove it, write exact bytes, read it back whole.
void remove_param_file();
void write_param_file(const std::string &bytes);
bool read_param_file(std::string *bytes);

}  // namespace testsupport

#endif
