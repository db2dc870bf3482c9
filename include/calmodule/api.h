// Export control shared by every public header of libcalmodule_quarvel.
//
// The library is built with -fvisibility=hidden; exactly the names declared with
// CALMODULE_API reach the dynamic symbol table, unmangled (extern "C").
#ifndef CALMODULE_API_H
#define CALMODULE_API_H

#if defined(CALMODULE_BUILDING_LIBRARY)
#define CALMODULE_API __attribute__((visibility("default")))
#else
#define CALMODULE_API
#endif

#ifdef __cplusplus
#define CALMODULE_EXTERN_C_BEGIN extern "C" {
#define CALMODULE_EXTERN_C_END }
#else
#define CALMODULE_EXTERN_C_BEGIN
#define CALMODULE_EXTERN_C_END
#endif

#endif
