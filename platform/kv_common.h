// libkv_common: log and return-code texts of the platform, as far as the library uses them.
#ifndef KV_COMMON_H
#define KV_COMMON_H

#include "kv_types.h"

extern "C" {

// The text of a code, the platform's to keep.
const char *kv_rc_to_string(kvRc code);

__attribute__((format(printf, 6, 7))) int kv_log(int level, int module, const char *file,
                                                 const char *function, int line, const char *format,
                                                 ...);
kvRc kv_log_clear(void);
}

#endif
