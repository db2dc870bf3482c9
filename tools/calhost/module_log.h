// The module's log records, as calhost shows them on stderr.
//
// The module logs through the Android log's __android_log_print, which it never defines.
// calhost defines it (its symbols are exported, so the dynamic linker binds the
// module's reference here before the log library's) and prints each record on one line
// stamped with the session time of the event being replayed, not the wall clock: a
// record then lines up with the session's rows and with the report's plots.
#ifndef CALHOST_MODULE_LOG_H
#define CALHOST_MODULE_LOG_H

#include <cstdint>

namespace calhost {

// The lowest priority shown (Android's ANDROID_LOG_* values); ANDROID_LOG_WARN unless set.
void set_log_priority(int priority);
// "debug" -> ANDROID_LOG_DEBUG, ...; -1 for a name that is none.
int log_priority_named(const char *name);

// The session clock the records are stamped with: started at the first row's
// timestamp, advanced with every row. Before start_log_clock (e.g. calhost info) the
// records carry no time.
void start_log_clock(std::int64_t first_ns);
void advance_log_clock(std::int64_t now_ns);

}  // namespace calhost

#endif
