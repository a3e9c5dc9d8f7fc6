#include "frame/outcome.h"
#include "frame/record.h"
#include "sys/clock.h"

#include <kv_alarm.h>
#include <kv_config.h>
#include <kv_forker.h>
#include <vexo_cmi/convert.h>
#include <vexo_cmi/sys.h>

#include <string.h>

using frame::Outcome;

namespace
{

constexpr uint32_t SYSTEM_NUMBER = 1;
constexpr uint32_t SYSTEM_ALARM_MASK = 0x7FFF;

} // namespace

void vexo_cmi_sys_tod_set(unsigned seconds, unsigned microseconds, vexoResult *result)
{
    Outcome{result}.orConfigText(clockSet(seconds, microseconds));
}

void vexo_cmi_sys_reset(vexoResult *result)
{
    Outcome{result}.orConfigText(forker_box_shutdown());
}

void vexo_cmi_sys_tdm_mode_set(vexoTdmMode mode, vexoResult *result)
{
    Outcome{result}.orConfigText(config_set_system_mode(vexoTdmMode_to_eqptMode(mode)));
}

void vexo_cmi_sys_tdm_mode_get(vexoTdmMode *mode, vexoResult *result)
{
    frame::read(config_get_system_mode, result,
                [=](eqptMode platformMode) { *mode = eqptMode_to_vexoTdmMode(platformMode); });
}

void vexo_cmi_sys_src_mac_set(const unsigned char mac[6], vexoResult *result)
{
    Outcome outcome{result};
    unsigned char address[6];
    memcpy(address, mac, sizeof address);
    outcome.orConfigText(config_set_pwe_src_mac_addr(address));
}

void vexo_cmi_sys_src_mac_get(unsigned char mac[6], vexoResult *result)
{
    frame::read(config_get_pwe_if, result,
                [=](const pweIf &record) { memcpy(mac, record.srcMac, sizeof record.srcMac); });
}

void vexo_cmi_sys_tpid_set(unsigned tpid, vexoResult *result)
{
    Outcome{result}.orConfigText(config_system_tpid_set(static_cast<uint16_t>(tpid)));
}

void vexo_cmi_sys_tpid_get(unsigned *tpid, vexoResult *result)
{
    frame::read(config_get_system_params, result,
                [=](const sysParams &record) { *tpid = record.tpid; });
}

void vexo_cmi_sys_src_ip_set(unsigned address, vexoResult *result)
{
    Outcome{result}.orConfigText(config_set_pwe_src_ip_addr(&address));
}

void vexo_cmi_sys_src_ip_get(unsigned *address, vexoResult *result)
{
    frame::read(config_get_pwe_if, result, [=](const pweIf &record) { *address = record.srcIp; });
}

void vexo_cmi_sys_lops_set(unsigned first, unsigned second, vexoResult *result)
{
    Outcome outcome{result};
    const lopsThreshold record{first, second};
    outcome.orConfigText(config_set_pwe_lops_threshold(&record));
}

void vexo_cmi_sys_lops_get(unsigned *first, unsigned *second, vexoResult *result)
{
    frame::read(config_get_pwe_if, result, [=](const pweIf &record) {
        *first = record.lops1;
        *second = record.lops2;
    });
}

void vexo_cmi_sys_rpt_mode_set(vexoAlarmMode mode, unsigned value, vexoResult *result)
{
    Outcome{result}.orConfigText(alarm_set_notification(vexoAlarmMode_to_alarmMode(mode), value));
}

void vexo_cmi_sys_rpt_mode_get(vexoAlarmMode *mode, unsigned *value, vexoResult *result)
{
    Outcome outcome{result};
    alarmMode platformMode;
    uint32_t platformValue;
    if (!outcome.orConfigText(alarm_get_notification(&platformMode, &platformValue)))
        return;
    *mode = alarmMode_to_vexoAlarmMode(platformMode);
    *value = platformValue;
}

void vexo_cmi_sys_clk_out_set(const unsigned *first, const unsigned *second, vexoResult *result)
{
    Outcome outcome{result};
    const clkOut record{*first, *second};
    outcome.orConfigText(config_set_clk_out(&record));
}

void vexo_cmi_sys_clk_out_get(unsigned *first, unsigned *second, vexoResult *result)
{
    frame::read(config_get_system_params, result, [=](const sysParams &record) {
        *first = record.clkOut1;
        *second = record.clkOut2;
    });
}

void vexo_cmi_sys_net_type_set(vexoNetQuality quality, vexoResult *result)
{
    Outcome{result}.orConfigText(config_set_psn_net_type(vexoNetQuality_to_psnNetType(quality)));
}

void vexo_cmi_sys_net_type_get(vexoNetQuality *quality, vexoResult *result)
{
    frame::read(config_get_system_params, result, [=](const sysParams &record) {
        *quality = psnNetType_to_vexoNetQuality(record.psnNetType);
    });
}

void vexo_cmi_sys_temp_set(unsigned first, unsigned second, vexoResult *result)
{
    Outcome outcome{result};
    const temperatureThr record{first, second};
    outcome.orConfigText(config_set_temperature_thr(&record));
}

void vexo_cmi_sys_temp_get(unsigned *current, unsigned *first, unsigned *second, vexoResult *result)
{
    Outcome outcome{result};
    unsigned temperature;
    if (!outcome.orConfigText(config_get_temperature(&temperature)))
        return;
    sysParams record;
    if (!outcome.orConfigText(config_get_system_params(&record)))
        return;
    *current = temperature;
    *first = record.temperatureThr1;
    *second = record.temperatureThr2;
}

void vexo_cmi_sys_alarm_get(unsigned *bits, vexoResult *result)
{
    Outcome outcome{result};
    uint32_t active;
    if (!outcome.orConfigText(alarm_get_active_bits(OBJ_SYSTEM, SYSTEM_NUMBER, &active)))
        return;
    *bits = active;
}

void vexo_cmi_sys_alarm_set(unsigned bits, vexoResult *result)
{
    Outcome{result}.orConfigText(alarm_set_status_bits(OBJ_SYSTEM, SYSTEM_ALARM_MASK, bits));
}
