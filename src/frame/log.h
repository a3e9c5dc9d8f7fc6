// Records in the platform's log.
#ifndef FRAME_LOG_H
#define FRAME_LOG_H

#include <kv_common.h>

namespace frame
{

enum LogLevel { LOG_ERROR = 3, LOG_WARNING = 4, LOG_NOTICE = 5, LOG_INFO = 6, LOG_DEBUG = 7 };

constexpr int LOG_MODULE = 29;

} // namespace frame

// Macros for the sake of __LINE__; CMI_LOG_AS names a function other than the one it stands in.
#define CMI_LOG_AS(function, level, ...)                                                           \
    kv_log(level, frame::LOG_MODULE, "gorvCmi", function, __LINE__, __VA_ARGS__)
#define CMI_LOG(level, ...) CMI_LOG_AS(__func__, level, __VA_ARGS__)

#endif
