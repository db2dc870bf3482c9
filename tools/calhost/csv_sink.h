// Where the events of a replay go besides the summary: the output CSV, and a tee that
// hands every event to two sinks.
#ifndef CALHOST_CSV_SINK_H
#define CALHOST_CSV_SINK_H

#include <string>

#include "output_file.h"
#include "replay.h"

namespace calhost {

// Writes every output event as a CSV row: time_ns,source,status,v0,v1,...
// A status is written for the events that carry one (magnetic field, orientation);
// values a source does not have stay empty. Floats are written in their shortest
// exact form, so the file reproduces the module's bits.
class CsvSink : public ReplaySink {
public:
    CsvSink(OutputFile &file, int columns);
    void output(const OutputEvent &e) override;
    void flush();

private:
    OutputFile &file_;
    int columns_;
    std::string buf_;
};

class Tee : public ReplaySink {
public:
    Tee(ReplaySink *a, ReplaySink *b) : a_(a), b_(b) {}
    void input(const SessionRow &row) override {
        if (a_) a_->input(row);
        if (b_) b_->input(row);
    }
    void output(const OutputEvent &e) override {
        if (a_) a_->output(e);
        if (b_) b_->output(e);
    }
    void fit_offset(std::int64_t t, const float *offset) override {
        if (a_) a_->fit_offset(t, offset);
        if (b_) b_->fit_offset(t, offset);
    }

private:
    ReplaySink *a_;
    ReplaySink *b_;
};

}  // namespace calhost

#endif
