// Module interface: the descriptor a sensors HAL resolves by name (`scmi`), the
// algorithm records it walks, and the sensor event record they exchange.
//
// Every record is laid out field after field with no gaps; on the 32-bit target each
// field is one 32-bit word. The host reads them by layout, so order and widths are ABI.
#ifndef CALMODULE_MODULE_H
#define CALMODULE_MODULE_H

#include <stdint.h>

#include "calmodule/api.h"

CALMODULE_EXTERN_C_BEGIN

// ---- Sensor event record (byte-compatible with the platform's, 104 bytes) --------

typedef struct sensors_event_t {
    int32_t version;    // byte 0
    int32_t sensor;     // byte 4: sensor handle
    int32_t type;       // byte 8: Android sensor type
    int32_t reserved0;  // byte 12
    int64_t timestamp;  // byte 16: ns
    union {             // byte 24
        float data[16];
        struct {
            float v[3];
            int8_t status;  // byte 36: overlays the first byte of data[3]
            uint8_t reserved[3];
        } vector;
        uint64_t u64_data[8];
    };
    uint32_t flags;         // byte 88
    uint32_t reserved1[3];  // byte 92
} sensors_event_t;

// Android sensor types this module knows.
enum {
    CALMODULE_TYPE_ACCELEROMETER = 1,
    CALMODULE_TYPE_MAGNETIC_FIELD = 2,
    CALMODULE_TYPE_ORIENTATION = 3,
    CALMODULE_TYPE_LIGHT = 5,
    CALMODULE_TYPE_PROXIMITY = 8,
    CALMODULE_TYPE_MAGNETIC_FIELD_UNCALIBRATED = 14,
    CALMODULE_TYPE_POCKET = 0x10001,  // device-private
};

// Argument record of `config`. The module reads only the two leading fields.
typedef struct cal_algo_args {
    int32_t enable;     // command 0: nonzero when the sensor is being enabled
    int32_t poll_rate;  // command 1: the new polling rate, in the host's units
} cal_algo_args;

// `config` commands.
enum {
    CALMODULE_CMD_ENABLE = 0,
    CALMODULE_CMD_POLL_RATE = 1,
};

// ---- Descriptor records -----------------------------------------------------------

struct cal_module_info;

typedef struct cal_algo_methods {
    // Raw event in, processed event out: 0 when `out` is to be delivered, negative when not.
    int (*convert)(const sensors_event_t *in, sensors_event_t *out);
    // Enable and polling-rate changes; may be null. Always returns 0.
    int (*config)(int cmd, cal_algo_args *args);
} cal_algo_methods;

typedef struct cal_algo {
    uint32_t tag;                   // "scat"
    uint32_t version;               // 1
    int32_t type;                   // sensor type the algorithm produces
    const char *const *compatible;  // null-terminated list of device names
    const struct cal_module_info *module;
    const cal_algo_methods *methods;
} cal_algo;

typedef struct cal_module_methods {
    int (*init)(void);
    void (*deinit)(void);
    int (*get_algo_list)(const cal_algo **list);
} cal_module_methods;

typedef struct cal_module_info {
    uint32_t tag;  // "scmt"
    const char *id;
    uint32_t version;
    const char *vendor;
    void *handle;     // the host's; the module leaves it null
    uint32_t number;  // number of algorithm records
    const cal_module_methods *methods;
    uint32_t reserved[6];
} cal_module_info;

#define CALMODULE_MODULE_TAG 0x746D6373u  // "scmt" read as a little-endian word
#define CALMODULE_ALGO_TAG 0x74616373u    // "scat"

// The descriptor the host resolves by name.
CALMODULE_API extern const cal_module_info scmi;

CALMODULE_EXTERN_C_END

#ifdef __cplusplus
#include <stddef.h>
static_assert(sizeof(sensors_event_t) == 104, "sensors_event_t is 104 bytes");
static_assert(offsetof(sensors_event_t, type) == 8, "type at byte 8");
static_assert(offsetof(sensors_event_t, timestamp) == 16, "timestamp at byte 16");
static_assert(offsetof(sensors_event_t, data) == 24, "data at byte 24");
static_assert(offsetof(sensors_event_t, vector.status) == 36, "status at byte 36");
static_assert(sizeof(cal_algo_args) == 8, "enable and poll_rate lead the argument record");
#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(cal_module_info) == 52, "13 words on the 32-bit target");
static_assert(sizeof(cal_algo) == 24, "6 words on the 32-bit target");
#endif
#endif

#endif
