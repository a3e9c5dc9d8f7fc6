// The device's objects by their numbers.
#ifndef SIM_OBJECTS_H
#define SIM_OBJECTS_H

#include "device.h"

#include <platform.h>

namespace sim
{

// These fail() and give null when there is no such object, or none provisioned.
Port *portOf(Transaction &device, uint32_t port);
Pw *pwOf(Transaction &device, uint32_t pwId);
Group *groupOf(Transaction &device, uint32_t group);
Link *linkOf(Transaction &device, uint32_t link);

// The alarm word of an object of the alarm service; null as above.
uint32_t *alarmsOf(Transaction &device, uint32_t type, uint32_t number);

// Changes the active alarms of an object, which is an event if they differ.
// Fails, and leaves them to be put back, when a subscriber can't be told.
kvRc setAlarms(Transaction &device, uint32_t type, uint32_t number, uint32_t &alarms,
               uint32_t bits);

// Values of the platform as this device understands them.
constexpr adminStatus ADMIN_DOWN{1};
constexpr adminStatus ADMIN_UP{2};
constexpr adminStatus ADMIN_TESTING{3};
constexpr operState OPER_DOWN{1};
constexpr operState OPER_TESTING{2};
constexpr operState OPER_UP{3};
constexpr lpbk NO_LOOPBACK{1};

operState stateOf(const Port &port);
operState stateOf(const Pw &pw);
operState stateOf(const State &state, const Group &group);
operState stateOf(const Link &link);
operState stateOfSystem(const State &state);

// How many of a group's links are up.
uint32_t linksUp(const State &state, const Group &group);

// The alarm bits that this device raises by itself, by object.
constexpr uint32_t SYSTEM_LOOPBACK = 1U << 10;
constexpr uint32_t SYSTEM_WARM = 1U << 11; // the temperature is at the first threshold
constexpr uint32_t SYSTEM_HOT = 1U << 12;  // at the second
constexpr uint32_t SYSTEM_LOG_FULL = 1U << EV_LOG_FULL_ALM;
constexpr uint32_t PORT_NO_SIGNAL = 1U << 14;
constexpr uint32_t PORT_LOOPBACK = 1U << 15;
constexpr uint32_t PW_PORT = 1U << 3;    // its port isn't up
constexpr uint32_t PW_CIRCUIT = 1U << 4; // another has its circuit, too
constexpr uint32_t GROUP_LINKS = 1U << 9;

// These fail() when the value isn't one of those that this device knows.
bool inRange(const char *what, uint32_t value, uint32_t first, uint32_t last);
bool isLoopback(lpbk value);

template <class Enumeration>
bool isMember(Enumeration value)
{
    const describe::Type &type = describe::typeOf<Enumeration>();
    return inRange(type.title, value, type.first, type.last);
}

} // namespace sim

#endif
