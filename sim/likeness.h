// What another device refuses that this one is told to be like.
#ifndef SIM_LIKENESS_H
#define SIM_LIKENESS_H

#include "device.h"

#include <platform.h>

namespace sim
{

// The codes of this device that can be others there.
constexpr kvRc REFUSALS[] = {BAD_VALUE, NO_OBJECT, FULL, EXISTS, WRONG_STATE};

// What can be set to values of which a device may not take some.
constexpr const describe::Type *RANGES[] = {
    &describe::typeOf<eqptMode>(),     &describe::typeOf<adminStatus>(),
    &describe::typeOf<pdhFrameMode>(), &describe::typeOf<pdhCode>(),
    &describe::typeOf<pdhNiuMode>(),   &describe::typeOf<pdhClockMode>(),
    &describe::typeOf<lpbk>(),         &describe::typeOf<tagMode>(),
    &describe::typeOf<pweIpUdpMode>(), &describe::typeOf<pweEncType>(),
    &describe::typeOf<pweAtmXcType>(), &describe::typeOf<alarmMode>(),
    &describe::typeOf<atmMode>(),      &describe::typeOf<atmClpMap>(),
    &describe::typeOf<psnNetType>(),   &describe::typeOf<atmType>(),
};

static_assert(std::size(REFUSALS) == std::size(decltype(Likeness::codes){}));
static_assert(std::size(RANGES) == std::size(decltype(Likeness::refused){}));

void likeItself(Likeness &likeness);

// A code, or KV_OK, as the other device gives it.
kvRc codeOf(const Likeness &likeness, kvRc code);

// These fail() where the other device refuses what this one would take.
bool hasObject(const Likeness &likeness, uint32_t type, uint32_t number);
bool takes(const Likeness &likeness, const describe::Type &type, const void *value);

} // namespace sim

#endif
