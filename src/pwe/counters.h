// PM counters of a pseudowire.
#ifndef PWE_COUNTERS_H
#define PWE_COUNTERS_H

#include <kv_pmom.h>
#include <vexo_cmi/pwe.h>

void fillPweGenPm(vexoPwePmBody *out, const pwPmCounters *in);
void fillPweAtmPm(vexoPwePmBody *out, const pwPmCounters *in);

#endif
