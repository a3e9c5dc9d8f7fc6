#include "pm.h"

namespace sim
{

namespace
{

constexpr uint32_t VALID = 1;
constexpr uint32_t PORTS_OF_LAYOUT_0 = 8;

} // namespace

// The first half of the ports has one arrangement, the second half the other.
pdhPmStat freshPdhPm(uint32_t port)
{
    pdhPmStat stat{};
    stat.layoutType = port > PORTS_OF_LAYOUT_0;
    stat.line[stat.layoutType == 0 ? 12 : 8] = VALID;
    return stat;
}

pwPmStats freshPwPm(pweType type)
{
    pwPmStats stats{};
    if (type == PWE_TYPE_ATM_3 || type == PWE_TYPE_ATM_4) {
        stats.bodyKind = PW_PM_ATM;
        stats.body.atm.flag = VALID;
    } else {
        stats.bodyKind = PW_PM_GENERIC;
        stats.body.generic.flag = VALID;
    }
    return stats;
}

imaGroupPmStat freshGroupPm()
{
    imaGroupPmStat stat{};
    stat.flag = VALID;
    return stat;
}

imaLinkPmStat freshLinkPm()
{
    imaLinkPmStat stat{};
    stat.flag = VALID;
    return stat;
}

} // namespace sim
