// A host in C++ that tests itself on the simulated device.
#include <kv_sim.h>
#include <vexo_cmi.h>

#include <cstdio>
#include <cstring>

extern "C" int gorvGetVersion(char *buffer, int size)
{
    return std::snprintf(buffer, static_cast<size_t>(size), "consumer 1.0");
}

namespace
{

bool reportsTheInjectedFailure()
{
    kvSimFault fault{};
    std::strcpy(fault.function, "config_get_pdh_params");
    fault.effect = KV_SIM_CODE;
    fault.value = 2;
    kv_sim_fault_add(&fault);
    vexoPdhParamsOut params{};
    vexoResult result{};
    vexo_cmi_pdh_params_get(&params, 1, &result);
    kv_sim_fault_clear();
    return result.rc == VEXO_RC_FAILURE_2;
}

} // namespace

int main()
{
    const bool failure = reportsTheInjectedFailure();
    std::printf("failure %d\n", failure);
    return failure ? 0 : 1;
}
