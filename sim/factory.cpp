// The factory defaults, and the way back to them.
#include "factory.h"

#include "clock.h"
#include "likeness.h"
#include "pm.h"

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include <arpa/inet.h>

namespace sim
{

namespace
{

void initialiseVersions(swVersion &version)
{
    static constexpr const char *texts[10] = {
        "boot 1.4.2", "kernel 5.10.0", "platform 7.3.1", "fpga 0x20210611",
        "dsp 3.0.9",  "framer 2.2.0",  "ima 1.9.4",      "",
        "pwe 4.1.0",  "config 12",
    };
    for (int i = 0; i < 10; ++i)
        snprintf(version.text[i], sizeof version.text[i], "%s", texts[i]);
}

// What the system is, whatever is configured.
void initialiseSystem(System &system)
{
    system.temperature = 41;

    sysParams &params = system.params;
    snprintf(params.text328, sizeof params.text328, "TDM-over-packet gateway");
    snprintf(params.text410, sizeof params.text410, "VG-16");
    snprintf(params.text425, sizeof params.text425, "VG16-20210001");
    snprintf(params.text446, sizeof params.text446, "2021-06-11");
    snprintf(params.text461, sizeof params.text461, "B2");
    params.number = 12009;

    initialiseVersions(system.status.version);
    for (uint32_t i = 0; i < 13; ++i)
        system.status.values1[i] = 100 + i;
    for (uint32_t i = 0; i < 6; ++i)
        system.status.values2[i] = 200 + i;

    system.link.words[0] = 1;
    system.link.words[1] = 2;
    system.link.words[4] = 1;
    system.link.words[5] = 2;
}

void zero(void *from, void *to)
{
    memset(from, 0, static_cast<size_t>(static_cast<char *>(to) - static_cast<char *>(from)));
}

} // namespace

void configureSystem(System &system)
{
    system.mode = eqptMode{1};
    system.reportMode = alarmMode{2};
    system.reportValue = 0;

    sysParams &params = system.params;
    params.tpid = 0x8100;
    params.psnNetType = psnNetType{1};
    params.temperatureThr1 = 70;
    params.temperatureThr2 = 85;
    params.clkOut1 = params.clkOut2 = {};

    constexpr uint8_t mac[6] = {0x02, 0x00, 0x5E, 0x10, 0x00, 0x01};
    system.interface = {};
    system.interface.srcIp = 0xC0000201;
    memcpy(system.interface.srcMac, mac, sizeof mac);
    system.interface.lops1 = 10;
    system.interface.lops2 = 20;

    system.server = {};
    system.server.address = htonl(0xC0000264);
    system.debug = {};
    snprintf(system.debug.text, sizeof system.debug.text, "none");
    system.debug.state = DebugState{1};
    system.loopback = {};
    system.loopback.lpbk = NO_LOOPBACK;
    system.tpgm = {};
    system.tpgmStart = 0;
}

void configurePort(Port &port, uint32_t number)
{
    port.loopback = {};
    port.loopback.lpbk = NO_LOOPBACK;
    pdhParams &params = port.params;
    params = {};
    params.adminStatus = ADMIN_DOWN;
    params.clockMode = pdhClockMode{1};
    params.frameMode = pdhFrameMode{1};
    params.lineCode = pdhCode{1};
    params.cableLength = 133;
    params.niuMode = pdhNiuMode{1};
    params.syncAux = 100 + number;
}

void initialise(State &state)
{
    state.calls = journalCalls();
    startClock(state);
    state.clock.period[0] = 900;
    state.clock.period[1] = 3600;
    state.clock.period[2] = 86400;
    scheduleIntervals(state);

    state.behaviours.logAlarm = 1;
    state.loadDowntime = 60;
    likeItself(state.likeness);
    for (uint32_t &links : state.linksNeeded)
        links = 1;

    state.upgrade.state = LOAD_NONE;
    initialiseSystem(state.system);
    configureSystem(state.system);
    for (uint32_t i = 0; i < KV_SIM_PORTS; ++i) {
        configurePort(state.ports[i], i + 1);
        state.ports[i].signal = 1;
    }
    std::atomic_signal_fence(std::memory_order_seq_cst);
    state.initialised = 1;
}

void factoryReset(State &state)
{
    state.initialised = 0;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    ++state.faultGeneration;
    ++state.resets;
    state.hanging = 0;
    zero(&state.system, state.services);
    zero(&state.lost, &state + 1);
    initialise(state);
}

} // namespace sim
