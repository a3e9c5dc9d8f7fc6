// A host in C++ that tests itself on the simulated device.
#include <kv_sim.h>
#include <vexo_cmi.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

extern "C" int gorvGetVersion(char *buffer, int size)
{
    return std::snprintf(buffer, static_cast<size_t>(size), "consumer 1.0");
}

namespace
{

std::atomic<uint32_t> alarmedPort;

bool reportsTheInjectedFailure()
{
    kvSimFault fault{};
    std::strcpy(fault.function, "config_get_pdh_params");
    fault.anyObject = 1;
    fault.effect = KV_SIM_CODE;
    fault.value = 2;
    kv_sim_fault_add(&fault);
    vexoPdhParamsOut params{};
    vexoResult result{};
    vexo_cmi_pdh_params_get(&params, 1, &result);
    kv_sim_fault_clear();
    return result.rc == VEXO_RC_FAILURE_2;
}

bool isToldOfAnAlarm()
{
    vexo_cmi_alarm_callback_register([](vexoAlarmNotification *alarm) {
        if (alarm->objType == VEXO_OBJ_TYPE_PDH)
            alarmedPort = alarm->object.objId;
    });
    // Again and again: the service subscribes in its own time.
    for (int tries = 0; tries < 2000 && alarmedPort == 0; ++tries) {
        kv_sim_alarm_send(KV_SIM_PDH, 3, 1, 1);
        std::this_thread::sleep_for(std::chrono::milliseconds{10});
    }
    vexo_cmi_alarm_callback_unregister();
    return alarmedPort == 3;
}

} // namespace

int main()
{
    const bool failure = reportsTheInjectedFailure();
    const bool alarm = isToldOfAnAlarm();
    std::printf("failure %d alarm %d\n", failure, alarm);
    return failure && alarm ? 0 : 1;
}
