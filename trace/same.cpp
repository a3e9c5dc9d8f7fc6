#include "plan.h"

namespace trace
{

namespace
{

uint32_t wordOf(const describe::Type &record, const char *name, const uint8_t *value)
{
    for (const describe::Field &field : record.fields)
        if (strcmp(field.name, name) == 0) {
            uint32_t word = 0;
            memcpy(&word, value + field.offset, field.type->size < 4 ? field.type->size : 4);
            return word;
        }
    return 0;
}

bool isAddress(const describe::Type &type, const char *name)
{
    return type.kind == describe::Kind::mac || type.kind == describe::Kind::text ||
           strcmp(name, "address") == 0 || strcmp(name, "srcIp") == 0 ||
           strcmp(name, "serverAddress") == 0;
}

bool isSameField(const describe::Type &record, const describe::Field &field, const uint8_t *a,
                 const uint8_t *b, bool standIns)
{
    if (field.options.hidden || field.options.changes ||
        (field.options.when && !field.options.when(a)) ||
        (standIns && isAddress(*field.type, field.name)))
        return true;
    uint32_t count = field.count;
    if (field.options.count)
        if (const uint32_t filled = wordOf(record, field.options.count, a); filled < count)
            count = filled;
    for (uint32_t i = 0; i < count; ++i) {
        const size_t at = field.offset + size_t{i} * field.type->size;
        if (!isSame(*field.type, a + at, b + at, standIns))
            return false;
    }
    return true;
}

} // namespace

bool isSame(const describe::Type &type, const uint8_t *a, const uint8_t *b, bool standIns)
{
    if (memcmp(a, b, type.size) == 0)
        return true;
    switch (type.kind) {
    case describe::Kind::record:
        for (const describe::Field &field : type.fields)
            if (!isSameField(type, field, a, b, standIns))
                return false;
        return true;
    case describe::Kind::text:
        return standIns || strncmp(reinterpret_cast<const char *>(a),
                                   reinterpret_cast<const char *>(b), type.size) == 0;
    case describe::Kind::mac:
        return standIns;
    default:
        return false;
    }
}

bool isSame(const describe::platform::Argument &argument, const uint8_t *a, const uint8_t *b,
            bool standIns)
{
    return (standIns && isAddress(*argument.type, argument.name)) ||
           isSame(*argument.type, a, b, standIns);
}

} // namespace trace
