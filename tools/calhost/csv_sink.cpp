#include "csv_sink.h"

#include <iterator>

#include <fmt/format.h>

namespace calhost {

CsvSink::CsvSink(OutputFile &file, int columns) : file_(file), columns_(columns) {
    std::string header = "time_ns,source,status";
    for (int i = 0; i < columns_; ++i) header += fmt::format(",v{}", i);
    header += '\n';
    file_.write(header);
}

void CsvSink::output(const OutputEvent &e) {
    fmt::format_to(std::back_inserter(buf_), "{},{},", e.time_ns,
                   e.passed_on ? passed_on_name(e.type) : type_name(e.type));
    if (e.has_status) fmt::format_to(std::back_inserter(buf_), "{}", e.status);
    for (int i = 0; i < columns_; ++i) {
        buf_ += ',';
        if (i < e.count) fmt::format_to(std::back_inserter(buf_), "{}", e.v[static_cast<std::size_t>(i)]);
    }
    buf_ += '\n';
    if (buf_.size() > 1 << 16) flush();
}

void CsvSink::flush() {
    file_.write(buf_);
    buf_.clear();
}

}  // namespace calhost
