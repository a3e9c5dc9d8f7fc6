#include "frame/record.h"
#include "pwe/record.h"

#include <vexo_cmi/convert.h>

#include <algorithm>
#include <span>

using frame::Outcome;

static_assert(VEXO_PWE_ATM_XC_MAX == PW_ATM_XC_MAX);

namespace
{

pwAtmXc platformXc(const vexoPweAtmXc &xc)
{
    return {
        static_cast<uint16_t>(xc.xcId1),
        static_cast<uint16_t>(xc.xcId2),
        static_cast<uint16_t>(xc.xcId3),
        static_cast<uint16_t>(xc.xcId4),
        vexoPweAtmXcType_to_pweAtmXcType(xc.xcType),
    };
}

} // namespace

void vexo_cmi_pwe_atmop_xc_set(const vexoPweAtmXc *xc, uint32_t pwId, vexoResult *result)
{
    Outcome outcome{result};
    const pwAtmXc record = platformXc(*xc);
    outcome.orConfigText(config_add_pw_atm_xc(&record, pwId));
}

void vexo_cmi_pwe_atmop_xc_delete(const vexoPweAtmXc *xc, uint32_t pwId, vexoResult *result)
{
    Outcome outcome{result};
    const pwAtmXc record = platformXc(*xc);
    outcome.orConfigText(config_del_pw_atm_xc(&record, pwId));
}

void vexo_cmi_pwe_atmop_xc_get(vexoPweAtmXc *xc, uint32_t *count, uint32_t pwId, vexoResult *result)
{
    frame::read(config_get_pw, pwId, result, [=](const pwConfig &record, Outcome &outcome) {
        if (!pwe::isAtm(record.pweType)) {
            outcome.refuseBadType(record.pweType);
            return;
        }
        const std::span used{record.atmXc, std::min(record.atmXcCount, PW_ATM_XC_MAX)};
        *count = static_cast<uint32_t>(used.size());
        vexoPweAtmXc *next = xc;
        for (const pwAtmXc &entry : used)
            *next++ = {pweAtmXcType_to_vexoPweAtmXcType(entry.xcType), entry.xcId1, entry.xcId2,
                       entry.xcId3, entry.xcId4};
    });
}
