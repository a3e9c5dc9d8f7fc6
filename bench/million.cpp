// A million operations, half of them settings, through the library on the simulated device.
#include <vexo_cmi.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

extern "C" int gorvGetVersion(char *buffer, int)
{
    *buffer = '\0';
    return 0;
}

namespace
{

vexoResult result;

void require(const char *what)
{
    if (result.rc == VEXO_RC_OK)
        return;
    fprintf(stderr, "%s: %s\n", what, result.message);
    exit(1);
}

void createPseudowire(uint32_t pwId)
{
    vexoPweParams params{};
    params.pweType = VEXO_PWE_TYPE_TDM_1;
    params.pweAction = VEXO_PWE_ACTION_CREATE;
    params.adminStatus = VEXO_ADMIN_STATUS_1;
    params.vlan.mode = VEXO_VLAN_MODE_UNTAGGED;
    params.psn.psnType = VEXO_PWE_PSN_TYPE_2;
    params.service.t1.circuit = 1;
    params.service.t1.payloadSize = 256;
    vexo_cmi_pwe_params_set(&params, pwId, &result);
    require("pwe_params_set");
}

} // namespace

int main()
{
    constexpr uint32_t PW = 1000;
    constexpr unsigned OPERATIONS = 1000000;
    createPseudowire(PW);
    const auto start = std::chrono::steady_clock::now();
    for (unsigned i = 0; i < OPERATIONS; i += 4) {
        const uint32_t port = i / 4 % 16 + 1;
        vexo_cmi_pdh_frame_set(vexoPdhFrameMode{i / 4 % 6 + 1}, port, &result);
        require("pdh_frame_set");
        vexoPdhFrameMode mode;
        vexo_cmi_pdh_frame_get(&mode, port, &result);
        require("pdh_frame_get");
        vexo_cmi_pwe_payload_set(256 + i / 4 % 2 * 32, PW, &result);
        require("pwe_payload_set");
        vexoPweParamsInfo info;
        vexo_cmi_pwe_params_get(&info, PW, &result);
        require("pwe_params_get");
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    vexoPweParams params{};
    params.pweAction = VEXO_PWE_ACTION_DELETE;
    vexo_cmi_pwe_params_set(&params, PW, &result);
    require("pwe_params_set");
    printf("%.2f\n", time.count());
}
