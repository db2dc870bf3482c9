// calhost info: what a HAL finds in a module.
#include <fmt/format.h>

#include "commands.h"

namespace calhost {

std::string describe_module(const std::string &path) {
    // init and deinit run inside a sandbox too, in case a module opens files there.
    ParamFileSandbox files;
    Module m(path, files);
    const cal_module_info &info = m.info();
    std::string s;
    s += fmt::format("module      {}\n", info.id ? info.id : "(no id)");
    s += fmt::format("vendor      {}\n", info.vendor ? info.vendor : "(no vendor)");
    s += fmt::format("version     {}\n", info.version);
    s += fmt::format("file        {}\n", path);
    s += fmt::format("algorithms  {}\n", info.number);
    s += fmt::format("  {:>7}  {:<28} {:<8} {:<7} {}\n", "type", "sensor", "convert", "config", "compatible");
    for (unsigned i = 0; i < m.algo_count(); ++i) {
        const cal_algo &a = m.algos()[i];
        std::string names;
        for (const char *const *c = a.compatible; c && *c; ++c) {
            if (!names.empty()) names += ", ";
            names += fmt::format("\"{}\"", *c);
        }
        s += fmt::format("  {:>7}  {:<28} {:<8} {:<7} {}\n", a.type, type_name(a.type),
                         a.methods->convert ? "yes" : "no", a.methods->config ? "yes" : "no",
                         names.empty() ? "(none)" : names);
    }
    s += "exported families calhost uses\n";
    s += fmt::format("  rotation vector, gravity, linear acceleration  {}\n",
                     m.gravity_fn() && m.rotation_vector() ? "yes" : "no");
    s += fmt::format("  soft gyroscope                                 {}\n", m.soft_gyro_fn() ? "yes" : "no");
    s += fmt::format("  offset and fit record                          {}\n",
                     m.has_offset_accessor() && m.msensor() ? "yes" : "no");
    return s;
}

}  // namespace calhost
