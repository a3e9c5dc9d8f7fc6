#include "likeness.h"

#include <algorithm>
#include <cstring>

namespace sim
{

void likeItself(Likeness &likeness)
{
    likeness = {};
    likeness.ports = KV_SIM_PORTS;
    likeness.pwes = KV_SIM_PWS;
    likeness.groups = KV_SIM_GROUPS;
    std::ranges::copy(REFUSALS, likeness.codes);
}

kvRc codeOf(const Likeness &likeness, kvRc code)
{
    for (size_t i = 0; i < std::size(REFUSALS); ++i)
        if (code == REFUSALS[i])
            return likeness.codes[i];
    return code;
}

bool hasObject(const Likeness &likeness, uint32_t type, uint32_t number)
{
    const uint32_t last = type == OBJ_PDH         ? likeness.ports
                          : type == OBJ_PWE       ? likeness.pwes
                          : type == OBJ_IMA_GROUP ? likeness.groups
                                                  : UINT32_MAX;
    if (number <= last)
        return true;
    fail(NO_OBJECT, "there is no object %u of type %u, only up to %u", number, type, last);
    return false;
}

bool takes(const Likeness &likeness, const describe::Type &type, const void *value)
{
    if (type.kind == describe::Kind::record)
        return std::ranges::all_of(type.fields, [&](const describe::Field &field) {
            const auto *bytes = static_cast<const uint8_t *>(value) + field.offset;
            for (uint32_t i = 0; i < field.count; ++i)
                if (!takes(likeness, *field.type, bytes + i * field.type->size))
                    return false;
            return true;
        });
    const auto range = std::ranges::find(RANGES, &type);
    if (range == std::end(RANGES))
        return true;
    uint32_t number = 0;
    memcpy(&number, value, sizeof number);
    const uint32_t refused = likeness.refused[range - std::begin(RANGES)];
    if (number > 31 || !(refused >> number & 1))
        return true;
    fail(BAD_VALUE, "%s %u is not taken", type.title, number);
    return false;
}

} // namespace sim
