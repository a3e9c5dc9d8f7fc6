// Every operation, and the platform calls that it is made of, for a bare platform.
#ifndef OPERATIONS_H
#define OPERATIONS_H

#include <kv_alarm.h>
#include <vexo_cmi.h>

#include <cstddef>
#include <span>
#include <string>

namespace bench
{

// What an operation's cost is held against.
enum class Kind {
    attribute,
    pwePart,
    pdhParams,
    pweParamsSet,
    pweParamsGet,
    versions,
    inventory,
    crossConnects,
    other,
};

const char *nameOf(Kind kind);

// Platform calls as the caller itself makes them, and how many bytes their records have.
struct Bare {
    void (*run)() = [] {};
    size_t records = 0;
};

struct Operation {
    Kind kind;
    const char *name;
    void (*library)();
    Bare bare;                // the same platform calls
    const char *variant = ""; // which case of it
};

std::span<const Operation> operations();

// Its variant with it.
std::string nameOf(const Operation &operation);

// What an operation keeps on its stack at once, whichever case it is.
size_t recordsOf(const char *operation);

// The outcome of the latest operation.
extern vexoResult result;

// Fills the bare platform. Ends the process when the library would set the host's clock.
void setUp();

constexpr unsigned REPORTED_OBJECTS = 16 + 1024 + 8 + 64;

// The platform calls of one PM report, with the agent's callback called as often.
void bareReport(vexoPmCallback callback);

// The same for one alarm event that the platform hands over.
void bareAlarm(const alarmEvent *event, vexoAlarmCallback callback);

} // namespace bench

#endif
