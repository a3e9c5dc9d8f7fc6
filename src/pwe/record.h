// The platform's pseudowire record: what the CMI puts into it and takes out of it. Every function
// serves the whole record and the single attribute alike.
#ifndef PWE_RECORD_H
#define PWE_RECORD_H

#include "frame/outcome.h"

#include <kv_config.h>
#include <vexo_cmi/pwe.h>

namespace pwe
{

inline bool isTdm(pweType type)
{
    return type == PWE_TYPE_TDM_1 || type == PWE_TYPE_TDM_2;
}

inline bool isAtm(pweType type)
{
    return type == PWE_TYPE_ATM_3 || type == PWE_TYPE_ATM_4;
}

void overlayVlan(pwConfig &record, const vexoPweVlan &vlan);
// False after a refusal: PSN types 4 and 5.
bool overlayPsn(pwConfig &record, const vexoPwePsn &psn, frame::Outcome &outcome);
void overlayRtpFields(pwConfig &record, const vexoPweRtp &rtp);

// These fill records that were zeroed before.
void extractVlan(vexoPweVlan &vlan, const pwConfig &record);
// False after a refusal: PSN types 4 and 5.
bool extractPsn(vexoPwePsn &psn, const pwConfig &record, frame::Outcome &outcome);
void extractRtp(vexoPweRtp &rtp, const pwConfig &record);

template <class Field>
void overlayFlagged(Field &field, uint32_t value, uint32_t valid)
{
    if (valid)
        field = static_cast<Field>(value);
}

inline void extractFlagged(uint32_t &value, uint32_t &valid, uint32_t field)
{
    value = field;
    valid = 1;
}

// What a two-state field stands for, by its first state.
enum TwoState : uint32_t {
    FIRST_CLEARS = 0, // 1 stands for 0, 2 for 1
    FIRST_SETS = 1,   // 1 stands for 1, 2 for 0
};

inline void overlayTwoState(uint32_t &field, uint32_t state, TwoState kind)
{
    if (state == 1)
        field = kind;
    else if (state == 2)
        field = !kind;
}

inline uint32_t extractTwoState(uint32_t field, TwoState kind)
{
    return (field == 1) == (kind == FIRST_SETS) ? 1 : 2;
}

} // namespace pwe

#endif
