// What bench_million does again and again: settings and readings of ports and of a pseudowire.
#ifndef MIX_H
#define MIX_H

#include <vexo_cmi.h>

#include <cstdio>
#include <cstdlib>

namespace bench
{

// Of an operation and of each call of the platform's that it makes.
constexpr double RECORDS_OF_AN_OPERATION = 11.0 / 4;

inline void require(const char *what, const vexoResult &result)
{
    if (result.rc == VEXO_RC_OK)
        return;
    fprintf(stderr, "%s: %s\n", what, result.message);
    exit(1);
}

inline void mix(unsigned operations, uint32_t pwId)
{
    vexoResult result;
    for (unsigned i = 0; i < operations / 4; ++i) {
        const uint32_t port = i % 16 + 1;
        vexo_cmi_pdh_frame_set(vexoPdhFrameMode{i % 6 + 1}, port, &result);
        require("pdh_frame_set", result);
        vexoPdhFrameMode mode;
        vexo_cmi_pdh_frame_get(&mode, port, &result);
        require("pdh_frame_get", result);
        vexo_cmi_pwe_payload_set(256 + i % 2 * 32, pwId, &result);
        require("pwe_payload_set", result);
        vexoPweParamsInfo info;
        vexo_cmi_pwe_params_get(&info, pwId, &result);
        require("pwe_params_get", result);
    }
}

} // namespace bench

#endif
