// PM counters of an IMA group and of its links.
#ifndef IMA_COUNTERS_H
#define IMA_COUNTERS_H

#include <kv_pmom.h>
#include <vexo_cmi/ima.h>

// Fills the flag and the group's counters, nothing else.
void fillImaGroupPm(const imaGroupPmStat *in, vexoImaGroupPm *out);
void fillImaLinkPm(const imaLinkPmStat *in, uint32_t linkId, vexoImaLinkPm *out);

#endif
