// A million operations, half of them settings, through the library on the simulated device.
#include "mix.h"

#include <chrono>

extern "C" int gorvGetVersion(char *buffer, int)
{
    *buffer = '\0';
    return 0;
}

int main()
{
    constexpr uint32_t PW = 1000;
    vexoPweParams params{};
    params.pweType = VEXO_PWE_TYPE_TDM_1;
    params.pweAction = VEXO_PWE_ACTION_CREATE;
    params.adminStatus = VEXO_ADMIN_STATUS_1;
    params.vlan.mode = VEXO_VLAN_MODE_UNTAGGED;
    params.psn.psnType = VEXO_PWE_PSN_TYPE_2;
    params.service.t1.circuit = 1;
    params.service.t1.payloadSize = 256;
    vexoResult result;
    vexo_cmi_pwe_params_set(&params, PW, &result);
    bench::require("pwe_params_set", result);
    const auto start = std::chrono::steady_clock::now();
    bench::mix(1000000, PW);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    params.pweAction = VEXO_PWE_ACTION_DELETE;
    vexo_cmi_pwe_params_set(&params, PW, &result);
    bench::require("pwe_params_set", result);
    printf("%.2f\n", time.count());
}
