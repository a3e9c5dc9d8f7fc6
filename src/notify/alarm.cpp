#include "frame/log.h"
#include "notify/service.h"

#include <kv_alarm.h>
#include <vexo_cmi/convert.h>
#include <vexo_cmi/notify.h>

#include <atomic>

std::atomic<vexoAlarmCallback> glAlarmCallback;
pthread_t glAlarmNotificationThread;
int glAlarmNotificationStopPfd[2];

extern "C" {
static void *thread_alarm_notification_handler(void *);
static void alarm_notification_handler(const alarmEvent *event);
}

namespace
{

struct AlarmService {
    using Callback = vexoAlarmCallback;

    static constexpr auto &callback = glAlarmCallback;
    static constexpr auto &thread = glAlarmNotificationThread;
    static constexpr auto &stopPipe = glAlarmNotificationStopPfd;

    static int socket() { return alarm_notification_sock(); }
    static kvRc subscribe() { return alarm_subscribe(0, 0, alarm_notification_handler); }
    static kvRc process() { return alarm_process_notification(); }
    static void unsubscribe() { alarm_unsubscribe(); }
    static constexpr auto &body = thread_alarm_notification_handler;

    static constexpr char BODY_NAME[] = "thread_alarm_notification_handler";
    static constexpr char REGISTER_NAME[] = "vexo_cmi_alarm_callback_register";
    static constexpr char PIPE_FAILURE[] = "Cannot create of alarm notification pipe";
    static constexpr char THREAD_FAILURE[] = "Cannot create of alarm notification thread";
};

void logAlarm(uint32_t type, uint32_t object, uint32_t status, uint32_t delta)
{
    CMI_LOG_AS("alarm_notification_handler", frame::LOG_DEBUG,
               "got alarm: type=%d, obj=%d, status=0x%X, delta=0x%X", static_cast<int>(type),
               static_cast<int>(object), status, delta);
}

} // namespace

static void *thread_alarm_notification_handler(void *)
{
    notify::serve<AlarmService>();
    return nullptr;
}

static void alarm_notification_handler(const alarmEvent *event)
{
    const vexoAlarmCallback callback = glAlarmCallback.load();
    if (!callback)
        return;
    vexoAlarmNotification alarm;
    alarm.objType = objType_to_vexoObjType(event->objType);
    switch (alarm.objType) {
    case VEXO_OBJ_TYPE_SYSTEM:
    case VEXO_OBJ_TYPE_PDH:
    case VEXO_OBJ_TYPE_PWE:
        alarm.object = {event->objId, event->status, event->delta};
        logAlarm(alarm.objType, event->objId, event->status, event->delta);
        break;
    case VEXO_OBJ_TYPE_IMA:
        alarm.ima = {event->objType == OBJ_IMA_GROUP ? VEXO_IMA_TYPE_GROUP : VEXO_IMA_TYPE_LINK,
                     event->objId, event->objId, event->status, event->delta};
        logAlarm(alarm.ima.imaType, event->objId, event->status, event->delta);
        break;
    default:
        return;
    }
    callback(&alarm);
}

void vexo_cmi_alarm_callback_register(vexoAlarmCallback callback)
{
    notify::registerCallback<AlarmService>(callback);
}

void vexo_cmi_alarm_callback_unregister(void)
{
    notify::unregisterCallback<AlarmService>();
}
