#include "frame/outcome.h"
#include "frame/record.h"
#include "frame/text.h"

#include <kv_config.h>
#include <vexo_cmi/convert.h>
#include <vexo_cmi/sys.h>

#include <algorithm>
#include <charconv>

#include <stddef.h>
#include <string.h>

using frame::Outcome;

namespace
{

// By offset and not by member: the size that counts is the CMI field's, even where the platform's
// text runs on into its neighbour.
template <size_t Size>
void copyText(char (&field)[Size], const sysParams &record, size_t offset)
{
    frame::copyText(field, reinterpret_cast<const char *>(&record) + offset);
}

// What does not fit is cut.
template <size_t Size>
void printNumber(char (&field)[Size], uint32_t number)
{
    char digits[10];
    const char *end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    const auto count = static_cast<size_t>(std::min<ptrdiff_t>(end - digits, Size - 1));
    memcpy(field, digits, count);
    field[count] = '\0';
}

constexpr uint32_t NUMBER_SPLIT = 10000;

} // namespace

void vexo_cmi_sys_inventory_get(vexoSysInventory *inventory, vexoResult *result)
{
    frame::read(config_get_system_params, result, [=](const sysParams &record) {
        copyText(inventory->text4, record, offsetof(sysParams, text446));
        copyText(inventory->text5, record, offsetof(sysParams, text461));
        copyText(inventory->text2, record, offsetof(sysParams, text328));
        copyText(inventory->text1, record, offsetof(sysParams, text410));
        copyText(inventory->text3, record, offsetof(sysParams, text425));
        printNumber(inventory->numberHigh, record.number / NUMBER_SPLIT);
        printNumber(inventory->numberLow, record.number % NUMBER_SPLIT);
    });
}

void vexo_cmi_sys_status_get(vexoSysStatus *status, vexoResult *result)
{
    frame::read(config_get_sys_status, result, [=](const sysStatus &record) {
        status->state = operState_to_vexoModuleState(record.operState);
        memcpy(status->values1, record.values1, sizeof status->values1);
        swVersion_to_vexoSwVersion(&record.version, &status->version);
        memcpy(status->values2, record.values2, sizeof status->values2);
    });
}

void vexo_cmi_sys_oper_state_get(vexoModuleState *state, vexoResult *result)
{
    frame::read(config_get_system_params, result, [=](const sysParams &record) {
        *state = operState_to_vexoModuleState(record.operState);
    });
}

void vexo_cmi_sys_version_get(vexoSwVersion *version, vexoResult *result)
{
    frame::read(config_get_sys_version, result,
                [=](const swVersion &record) { swVersion_to_vexoSwVersion(&record, version); });
}
