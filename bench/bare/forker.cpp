// libkv_forker.
#include "bare.h"

#include <kv_forker.h>

kvRc forker_box_shutdown(void)
{
    return bare::answer();
}
