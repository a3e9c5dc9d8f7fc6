// Reports the outcome of platform calls into the caller's result record. Nothing else writes there.
#ifndef FRAME_OUTCOME_H
#define FRAME_OUTCOME_H

#include <kv_types.h>
#include <vexo_cmi/base.h>

#include <utility>

namespace frame
{

vexoRc kvRc_to_vexoRc(kvRc code);

// The platform's text for a code; never null.
const char *codeText(kvRc code);

// An operation has succeeded when its outcome ends without a failure.
class Outcome
{
  public:
    explicit Outcome(vexoResult *result) : result_{result} {}
    Outcome(const Outcome &) = delete;
    ~Outcome() { succeed(result_); }

    // Whether a platform call succeeded; its failure text is the configuration library's latest.
    bool orConfigText(kvRc code)
    {
        if (code != KV_OK)
            failConfig(take(), code);
        return code == KV_OK;
    }

    // The same for a call whose failure text is the platform's for the code.
    bool orCodeText(kvRc code)
    {
        if (code != KV_OK)
            failByCode(take(), code);
        return code == KV_OK;
    }

    // The library's own refusals. The first writes the text and its NUL, the second the whole
    // message, the third puts a name of the platform's between the quotes.
    bool refuse(const char *text);
    bool refuseBadType();
    bool refuseBadType(pweType type);

    static void succeed(vexoResult *result)
    {
        if (result) {
            result->rc = VEXO_RC_OK;
            result->message[0] = '\0';
        }
    }

    // Success of an operation that leaves the message alone.
    static void succeedSilently(vexoResult *result)
    {
        if (result)
            result->rc = VEXO_RC_OK;
    }

  private:
    static void failConfig(vexoResult *result, kvRc code);
    static void failByCode(vexoResult *result, kvRc code);

    // The result, for a failure.
    vexoResult *take() { return std::exchange(result_, nullptr); }

    vexoResult *result_; // null as well when the failure is in it
};

} // namespace frame

#endif
