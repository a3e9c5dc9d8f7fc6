#include "frame/log.h"
#include "frame/outcome.h"
#include "frame/record.h"

#include <kv_alarm.h>
#include <kv_config.h>
#include <kv_pmom.h>
#include <kv_upgrade.h>
#include <vexo_cmi/convert.h>
#include <vexo_cmi/misc.h>

#include <arpa/inet.h>
#include <string.h>

using frame::Outcome;

static_assert(sizeof(vexoSysInfo::om) == sizeof(sysOmStat));

namespace
{

constexpr uint32_t UPGRADE_OBJECT = 2;
constexpr uint32_t ALARM_OFF = 0;
// Copied by strncpy(), as the platform's texts are: one that fills its field has no terminator.
constexpr size_t FILE_NAME_SIZE = sizeof(upgradeRequest::fileName);

void fillLink(vexoSysInfo *info, const sysLinkStatus &link)
{
    info->linkStatus = link.words[0];
    if (link.words[1] <= 1)
        info->linkSpeed = 10;
    else if (link.words[1] == 2)
        info->linkSpeed = 1000;
    info->linkParam = link.words[2];
    info->linkFlag = link.words[4] ? VEXO_LINK_FLAG_SET : VEXO_LINK_FLAG_CLEAR;
    if (link.words[5] >= 1 && link.words[5] <= 3)
        info->linkMode = link.words[5];
}

} // namespace

void vexo_cmi_misc_sys_info_get(vexoSysInfo *info, uint32_t clear, vexoResult *result)
{
    Outcome outcome{result};
    sysLinkStatus link;
    if (!outcome.orConfigText(config_get_sys_link_status(&link)))
        return;
    fillLink(info, link);
    sysOmStat om{};
    if (!outcome.orCodeText(pmom_sys_om_stat_get(&om, clear)))
        return;
    memcpy(info->om, om.words, sizeof info->om);
}

void vexo_cmi_misc_upgrade_init(const vexoUpgradeInfo *upgrade, vexoResult *result)
{
    Outcome outcome{result};
    upgradeRequest request{};
    request.mode = vexoUpgradeMode_to_UpgradeMode(upgrade->mode);
    request.constant4 = UPGRADE_OBJECT;
    request.constant8 = 1;
    request.constant144 = 1;
    strncpy(request.fileName, upgrade->fileName, FILE_NAME_SIZE);
    peerServer server;
    if (!outcome.orConfigText(config_get_peer_server_params(&server)))
        return;
    request.serverAddress = ntohl(server.address);
    outcome.orCodeText(upgrade_load(&request));
}

void vexo_cmi_misc_upgrade_info_get(vexoUpgradeInfo *upgrade, vexoResult *result)
{
    Outcome outcome{result};
    upgradeStatus status;
    if (!outcome.orCodeText(upgrade_status_get(UPGRADE_OBJECT, &status)))
        return;
    upgrade->mode = UpgradeMode_to_vexoUpgradeMode(status.mode);
    upgrade->state = UpgradeState_to_vexoUpgradeState(status.state);
    strncpy(upgrade->fileName, status.fileName, FILE_NAME_SIZE);
}

void vexo_cmi_misc_dbg_init(const char *info, vexoResult *result)
{
    Outcome outcome{result};
    debugInfo record{};
    strncpy(record.text, info, sizeof record.text);
    outcome.orConfigText(config_set_debug_info_params(&record));
}

void vexo_cmi_misc_dbg_info_get(vexoDebugInfo *debug, vexoResult *result)
{
    frame::read(config_get_debug_info_params, result, [=](const debugInfo &record) {
        strncpy(debug->info, record.text, sizeof debug->info);
        debug->state = DebugState_to_vexoDebugState(record.state);
    });
}

void vexo_cmi_misc_dbg_mode_set(uint32_t mask, vexoResult *result)
{
    CMI_LOG(frame::LOG_NOTICE, "mode mask=%X", mask);
    Outcome::succeedSilently(result);
}

void vexo_cmi_misc_log_reset(vexoResult *result)
{
    kv_log_clear();
    Outcome::succeedSilently(result);
    if (const kvRc code = alarm_raise_alarm(OBJ_SYSTEM, 1, EV_LOG_FULL_ALM, ALARM_OFF))
        CMI_LOG(frame::LOG_WARNING, "Clearing EV_LOG_FULL_ALM failed: %s", frame::codeText(code));
}
