// The links of an IMA group, and the PM counters of both.
#ifndef IMA_COUNTERS_H
#define IMA_COUNTERS_H

#include <kv_config.h>
#include <kv_pmom.h>
#include <vexo_cmi/ima.h>

#include <algorithm>
#include <span>

// A group's links, as far as the record has room for them.
inline std::span<const imaLinkEntry> linksOf(const imaParams &group)
{
    return {group.links, std::min(group.linkCount, IMA_LINK_MAX)};
}

// Fills the flag and the group's counters, nothing else.
void fillImaGroupPm(const imaGroupPmStat *in, vexoImaGroupPm *out);
void fillImaLinkPm(const imaLinkPmStat *in, uint32_t linkId, vexoImaLinkPm *out);

#endif
