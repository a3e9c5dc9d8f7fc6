// libkv_forker: the process supervisor of the device, as far as the library uses it.
#ifndef KV_FORKER_H
#define KV_FORKER_H

#include "kv_types.h"

extern "C" {
kvRc forker_box_shutdown(void);
}

#endif
