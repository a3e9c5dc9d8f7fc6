#include "frame/outcome.h"

#include <kv_common.h>
#include <kv_config.h>

#include <string.h>

// Failures are rare: kept out of the way of the operations that they happen in.
#define COLD [[gnu::cold, gnu::noinline]]

namespace frame
{

namespace
{

// The classes of the platform's codes; a code that is not here is a general failure.
constexpr struct {
    kvRc code;
    vexoRc rc;
} CLASSES[] = {
    {KV_OK, VEXO_RC_OK},         {2, VEXO_RC_FAILURE_2},    {4, VEXO_RC_FAILURE_4},
    {8, VEXO_RC_FAILURE_4},      {16, VEXO_RC_FAILURE_4},   {128, VEXO_RC_FAILURE_8},
    {256, VEXO_RC_FAILURE_16},   {512, VEXO_RC_FAILURE_32}, {1024, VEXO_RC_FAILURE_64},
    {2048, VEXO_RC_FAILURE_128},
};

} // namespace

COLD vexoRc kvRc_to_vexoRc(kvRc code)
{
    for (const auto &known : CLASSES)
        if (known.code == code)
            return known.rc;
    return VEXO_RC_GENERAL;
}

COLD const char *codeText(kvRc code)
{
    const char *text = kv_rc_to_string(code);
    return text ? text : "";
}

COLD void Outcome::failConfig(vexoResult *result, kvRc code)
{
    if (!result)
        return;
    result->rc = kvRc_to_vexoRc(code);
    strcpy_n(result->message, config_get_error_string(), sizeof result->message);
}

COLD void Outcome::failByCode(vexoResult *result, kvRc code)
{
    if (!result)
        return;
    result->rc = kvRc_to_vexoRc(code);
    strcpy_n(result->message, codeText(code), sizeof result->message);
}

COLD bool Outcome::refuse(const char *text)
{
    if (vexoResult *result = take()) {
        result->rc = VEXO_RC_GENERAL;
        memcpy(result->message, text, strlen(text) + 1);
    }
    return false;
}

COLD bool Outcome::refuseBadType()
{
    if (vexoResult *result = take()) {
        result->rc = VEXO_RC_GENERAL;
        strcpy_n(result->message, "Bad PWE type", sizeof result->message);
    }
    return false;
}

COLD bool Outcome::refuseBadType(pweType type)
{
    if (vexoResult *result = take()) {
        constexpr char BEFORE_NAME[] = "Bad PWE type '";
        const char *name = config_pwe_srv_type_to_string(type);
        result->rc = VEXO_RC_GENERAL;
        // What does not fit is cut. By hand, since snprintf() takes a lot of stack.
        char *message = result->message;
        memcpy(message, BEFORE_NAME, sizeof BEFORE_NAME);
        strncat(message, name ? name : "", sizeof result->message - sizeof BEFORE_NAME);
        strncat(message, "'", sizeof result->message - 1 - strlen(message));
    }
    return false;
}

} // namespace frame

char *strcpy_n(char *dst, const char *src, unsigned n)
{
    if (n > 0) {
        strncpy(dst, src ? src : "", n - 1);
        dst[n - 1] = '\0';
    }
    return dst;
}
