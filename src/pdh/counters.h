// PM counters of a PDH port.
#ifndef PDH_COUNTERS_H
#define PDH_COUNTERS_H

#include <kv_pmom.h>
#include <vexo_cmi/pdh.h>

// Fills everything but pmType; words that the port's arrangement does not have are left alone.
void fillPdhPm(vexoPdhPm *out, const pdhPmStat *in);

#endif
