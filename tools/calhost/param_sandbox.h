// Where the module's parameter file (its stored magnetometer offset) lives while
// calhost drives it.
//
// The module opens its file by a path fixed when it was built. calhost answers every
// file the module opens during a call from the host with one path of its own instead,
// so that a replay starts like a freshly flashed phone (nothing stored), two replays of
// one session behave the same, and a replay never overwrites the offset of the build's
// own tests. `--param-file` chooses the file.
//
// How: calhost is linked with its symbols exported, so the dynamic linker binds the
// module's fopen to calhost's definition first; that definition sends the open to the
// sandbox of the module call in progress (a ModuleCall), and hands every other open
// straight on to the C library.
#ifndef CALHOST_PARAM_SANDBOX_H
#define CALHOST_PARAM_SANDBOX_H

#include <cstdint>
#include <string>

namespace calhost {

class ParamFileSandbox {
public:
    // An empty path: a private temporary folder, removed again by the destructor.
    // Throws UsageError for a path that names a folder, a FIFO or a device, or lies in
    // a folder that does not exist.
    explicit ParamFileSandbox(const std::string &path = {});
    ~ParamFileSandbox();
    ParamFileSandbox(const ParamFileSandbox &) = delete;
    ParamFileSandbox &operator=(const ParamFileSandbox &) = delete;

    const std::string &path() const { return path_; }
    // How often the module opened the file for writing, and got it.
    std::uint64_t writes() const { return writes_; }
    // The file's current content ("" when absent).
    std::string content() const;

private:
    friend struct SandboxAccess;
    std::string path_;
    std::string temp_dir_;
    std::uint64_t writes_ = 0;
};

// Marks a call into the module: the files it opens meanwhile go to `files` (none when
// null). Module makes one around every call it forwards.
class ModuleCall {
public:
    explicit ModuleCall(ParamFileSandbox *files);
    ~ModuleCall();
    ModuleCall(const ModuleCall &) = delete;
    ModuleCall &operator=(const ModuleCall &) = delete;

private:
    ParamFileSandbox *previous_;
};

}  // namespace calhost

#endif
