// An agent to be swept: a port, a pseudowire, and another one that takes its place when it has an
// alarm. With a word it has the fault that the word names, else it is right: what it sets it reads
// back, tries again, and when that is in vain undoes what it did and names what it could not undo.
#include <kv_sim.h>
#include <vexo_cmi.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

#include <unistd.h>

extern "C" int gorvGetVersion(char *buffer, int size)
{
    return snprintf(buffer, static_cast<size_t>(size), "swept") < size ? 0 : -1;
}

namespace
{

constexpr uint32_t PORT = 3, WORKING = 17, STANDBY = 18;
constexpr vexoAdminStatus UP{1}, DOWN{2};
constexpr vexoPdhFrameMode WANTED{2};

std::string fault;
vexoResult result;

bool has(const char *name)
{
    return fault == name;
}

// After a call that failed.
void failed()
{
    if (has("hangs"))
        pause();
    if (has("freed-twice")) {
        void *volatile text = malloc(100);
        free(text);
        free(text);
    }
}

template <class Is, class Make>
bool settle(Is is, Make make)
{
    for (int i = 0; i < 3 || has("for-ever"); ++i) {
        if (is())
            return true;
        make();
        if (result.rc != VEXO_RC_OK)
            failed();
        if (has("left-behind"))
            return result.rc == VEXO_RC_OK;
    }
    return is();
}

bool isFramed(vexoPdhFrameMode wanted)
{
    vexoPdhFrameMode mode;
    vexo_cmi_pdh_frame_get(&mode, PORT, &result);
    return result.rc == VEXO_RC_OK && mode == wanted;
}

bool frame(vexoPdhFrameMode wanted)
{
    return settle([=] { return isFramed(wanted); },
                  [=] { vexo_cmi_pdh_frame_set(wanted, PORT, &result); });
}

bool isThere(uint32_t pwId, vexoAdminStatus status)
{
    vexoPweParamsInfo info;
    vexo_cmi_pwe_params_get(&info, pwId, &result);
    return result.rc == VEXO_RC_OK && info.pweAction == VEXO_PWE_ACTION_CREATE &&
           info.adminStatus == status;
}

void make(uint32_t pwId, vexoAdminStatus status)
{
    vexoPweParams params{};
    params.pweType = VEXO_PWE_TYPE_TDM_1;
    params.pweAction = VEXO_PWE_ACTION_CREATE;
    params.adminStatus = status;
    params.dstMac[0] = 2;
    params.vlan.mode = VEXO_VLAN_MODE_UNTAGGED;
    params.psn.psnType = VEXO_PWE_PSN_TYPE_2;
    params.psn.param1 = pwId;
    params.psn.param1Valid = 1;
    params.service.t1.circuit = pwId - WORKING + 1;
    params.service.t1.payloadSize = 256;
    params.service.t1.rtp.mode = VEXO_PWE_RTP_OFF;
    vexo_cmi_pwe_params_set(&params, pwId, &result);
}

bool isGone(uint32_t pwId)
{
    vexoPweParamsInfo info;
    vexo_cmi_pwe_params_get(&info, pwId, &result);
    return result.rc == VEXO_RC_OK && info.pweAction != VEXO_PWE_ACTION_CREATE;
}

bool removed(uint32_t pwId)
{
    return settle([=] { return isGone(pwId); },
                  [=] {
                      vexoPweParams params{};
                      params.pweType = VEXO_PWE_TYPE_TDM_1;
                      params.pweAction = VEXO_PWE_ACTION_DELETE;
                      vexo_cmi_pwe_params_set(&params, pwId, &result);
                  });
}

std::mutex mutex;
std::condition_variable changed;
bool isAlarmed;

void onAlarm(vexoAlarmNotification *alarm)
{
    const std::lock_guard guard{mutex};
    isAlarmed |= alarm->objType == VEXO_OBJ_TYPE_PWE && alarm->object.objId == WORKING;
    changed.notify_all();
}

// Events may be lost, or never come at all: in the end it is the alarms that count.
bool awaitAlarm()
{
    {
        std::unique_lock lock{mutex};
        changed.wait_for(lock, std::chrono::milliseconds{200}, [] { return isAlarmed; });
        if (has("deaf"))
            return isAlarmed;
    }
    uint32_t bits = 0;
    for (int i = 0; i < 3 && !bits; ++i)
        vexo_cmi_pwe_alarms_get(&bits, WORKING, &result);
    return bits != 0 || isAlarmed;
}

bool provision(vexoPdhFrameMode before)
{
    if (has("unchecked")) {
        vexo_cmi_pdh_frame_set(WANTED, PORT, nullptr);
    } else if (has("old-value")) {
        vexo_cmi_pdh_frame_set(WANTED, PORT, &result);
        if (result.rc != VEXO_RC_OK)
            vexo_cmi_pdh_frame_set(before, PORT, &result);
    } else if (!frame(WANTED)) {
        return false;
    }
    const auto provide = [](uint32_t pwId, vexoAdminStatus status) {
        return settle([=] { return isThere(pwId, status); }, [=] { make(pwId, status); });
    };
    if (!provide(WORKING, UP) || !provide(STANDBY, DOWN))
        return false;
    vexo_cmi_alarm_callback_register(onAlarm);
    kv_sim_wait_subscribed(static_cast<uint32_t>(getpid()), KV_SIM_ALARMS, 500);
    kv_sim_alarm_set(KV_SIM_PW, WORKING, 1);
    const bool alarmed = awaitAlarm();
    vexo_cmi_alarm_callback_unregister();
    if (!alarmed)
        return has("deaf");
    return settle([] { return isThere(STANDBY, UP); },
                  [] { vexo_cmi_pwe_admin_set(UP, STANDBY, &result); });
}

int undo(vexoPdhFrameMode before)
{
    if (has("left-behind")) {
        fputs("failed\n", stderr);
        return EXIT_FAILURE;
    }
    const bool says = !has("wrong-status");
    for (const uint32_t pwId : {STANDBY, WORKING})
        if (!removed(pwId) && says)
            fprintf(stderr, "pseudowire %u: perhaps left behind\n", pwId);
    if (!frame(before) && says)
        fprintf(stderr, "port %u: perhaps changed\n", PORT);
    return says ? EXIT_FAILURE : EXIT_SUCCESS;
}

} // namespace

int main(int argc, char **argv)
{
    fault = argc > 1 ? argv[1] : "";
    vexoPdhFrameMode before;
    for (int i = 0; i < 3; ++i) {
        vexo_cmi_pdh_frame_get(&before, PORT, &result);
        if (result.rc == VEXO_RC_OK)
            return provision(before) ? EXIT_SUCCESS : undo(before);
    }
    return EXIT_FAILURE;
}
