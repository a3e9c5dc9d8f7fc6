/*
 * A management agent: provisions a pseudowire, then prints alarm events and PM reports as they
 * come, until SIGINT or SIGTERM; and finds out when they don't.
 *
 *   cc agent.c $(pkg-config --cflags --libs vexo_cmi) -o agent
 *   ./agent [PSEUDOWIRE]
 */
#define _POSIX_C_SOURCE 200809L
#include <vexo_cmi.h>

#include <errno.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

/* A pseudowire, and what is known of its alarms. */
static uint32_t watched;
static atomic_uint known;

/* What the library takes from the software that hosts it. */
int gorvGetVersion(char *buffer, int size)
{
    return snprintf(buffer, (size_t)size, "agent 1.0") < size ? 0 : -1;
}

static int succeeded(const char *what, const vexoResult *result)
{
    if (result->rc != VEXO_RC_OK)
        fprintf(stderr, "agent: %s: %s (%u)\n", what, result->message, (unsigned)result->rc);
    return result->rc == VEXO_RC_OK;
}

/* Callbacks run on threads of the library's, and must not wait for anything that waits for them.
 * A record ends with the call: what is to be kept must be copied. */
static void onAlarm(vexoAlarmNotification *alarm)
{
    static const char *const objects[] = {"", "system", "PDH port", "pseudowire"};

    if (alarm->objType == VEXO_OBJ_TYPE_PWE && alarm->object.objId == watched)
        known = alarm->object.status;
    if (alarm->objType == VEXO_OBJ_TYPE_IMA)
        printf("alarm: IMA %s %u: active 0x%08X, changed 0x%08X\n",
               alarm->ima.imaType == VEXO_IMA_TYPE_GROUP ? "group" : "link", alarm->ima.groupId,
               alarm->ima.status, alarm->ima.delta);
    else if (alarm->objType < sizeof objects / sizeof objects[0])
        printf("alarm: %s %u: active 0x%08X, changed 0x%08X\n", objects[alarm->objType],
               alarm->object.objId, alarm->object.status, alarm->object.delta);
}

static void onPm(vexoPmNotification *pm)
{
    unsigned ports = 0;

    switch (pm->objType) {
    case VEXO_OBJ_TYPE_PDH: /* the first record of a report; a port without counters is all 0 */
        for (unsigned i = 0; i < VEXO_PM_PDH_MAX; ++i)
            ports += pm->pdh[i].pmType != 0;
        printf("pm: counters of %u PDH ports\n", ports);
        break;
    case VEXO_OBJ_TYPE_PWE: /* one for each pseudowire */
        printf("pm: interval %u, pseudowire %u of type %u\n", (unsigned)pm->pwe.interval,
               pm->pwe.pwId, (unsigned)pm->pwe.pweType);
        break;
    case VEXO_OBJ_TYPE_IMA: /* one for each IMA group */
        printf("pm: interval %u, IMA group %u with %u links\n", (unsigned)pm->ima.interval,
               pm->ima.groupId, pm->ima.group.linkCount);
        break;
    }
}

/* Creates the pseudowire, or modifies it if it is there from an earlier run. */
static int provision(uint32_t pwId)
{
    static const uint8_t mac[6] = {0x02, 0x00, 0x5E, 0x10, 0x00, 0x63};
    vexoPweParams params = {0};
    vexoPweParamsInfo info;
    vexoResult result;

    vexo_cmi_pwe_params_get(&info, pwId, &result);
    if (!succeeded("reading the pseudowire", &result))
        return 0;

    params.pweType = VEXO_PWE_TYPE_TDM_1;
    params.pweAction =
        info.pweAction == VEXO_PWE_ACTION_CREATE ? VEXO_PWE_ACTION_MODIFY : VEXO_PWE_ACTION_CREATE;
    params.adminStatus = VEXO_ADMIN_STATUS_1;
    memcpy(params.dstMac, mac, sizeof mac);
    params.vlan.mode = VEXO_VLAN_MODE_UNTAGGED;
    params.psn.psnType = VEXO_PWE_PSN_TYPE_2;
    params.psn.param1 = 4711;
    params.psn.param1Valid = 1;
    params.service.t1.circuit = 3;
    params.service.t1.payloadSize = 256;
    params.service.t1.rtp.mode = VEXO_PWE_RTP_OFF;
    vexo_cmi_pwe_params_set(&params, pwId, &result);
    if (!succeeded("provisioning the pseudowire", &result))
        return 0;

    vexo_cmi_pwe_params_get(&info, pwId, &result);
    if (!succeeded("reading the pseudowire back", &result))
        return 0;
    printf("pseudowire %u: administrative status %u, operational state %u\n", pwId,
           (unsigned)info.adminStatus, (unsigned)info.operState);
    return 1;
}

static int readAlarms(uint32_t *active)
{
    vexoResult result;

    vexo_cmi_pwe_alarms_get(active, watched, &result);
    return succeeded("reading the alarms", &result);
}

/* Registering says nothing, so nobody tells an agent that its subscription was refused: it would be
 * deaf for good. Here alarms are also asked for. Where an answer is other than what the events
 * told, and still is when it is asked for again (an event may have been under way), the events
 * don't come: unregistering makes room for a new subscription. */
static void reconcile(void)
{
    static uint32_t before;
    static int doubtful;
    uint32_t active;

    if (!readAlarms(&active))
        return;
    if (active == known || !doubtful || active != before) {
        doubtful = active != known;
        before = active;
        return;
    }
    doubtful = 0;
    printf("alarm: pseudowire %u: active 0x%08X, without an event: registering anew\n", watched,
           active);
    known = active;
    vexo_cmi_alarm_callback_unregister();
    vexo_cmi_alarm_callback_register(onAlarm);
}

int main(int argc, char **argv)
{
    static const struct timespec second = {1, 0};
    const uint32_t pwId = argc > 1 ? (uint32_t)strtoul(argv[1], NULL, 0) : 17;
    uint32_t active;
    sigset_t end;
    int taken;

    /* The library's threads inherit the mask: the signals stay for sigwait() below. */
    sigemptyset(&end);
    sigaddset(&end, SIGINT);
    sigaddset(&end, SIGTERM);
    if (sigprocmask(SIG_BLOCK, &end, NULL) != 0) {
        perror("agent: sigprocmask");
        return EXIT_FAILURE;
    }
    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);

    if (!provision(pwId))
        return EXIT_FAILURE;
    /* What was active before isn't told by an event. */
    watched = pwId;
    if (!readAlarms(&active))
        return EXIT_FAILURE;
    known = active;
    vexo_cmi_alarm_callback_register(onAlarm);
    vexo_cmi_pm_callback_register(onPm);
    puts("listening");

    do
        reconcile();
    while ((taken = sigtimedwait(&end, NULL, &second)) < 0 && (errno == EAGAIN || errno == EINTR));
    /* The library would do so when the process ends; after this no callback runs. */
    vexo_cmi_fini();
    puts("ended");
    return taken > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
