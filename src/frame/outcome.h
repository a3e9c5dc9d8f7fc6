// Reports the outcome of platform calls into the caller's result record. Nothing else writes there.
#ifndef FRAME_OUTCOME_H
#define FRAME_OUTCOME_H

#include <kv_types.h>
#include <vexo_cmi/base.h>

namespace frame
{

vexoRc kvRc_to_vexoRc(kvRc code);

// The platform's text for a code; never null.
const char *codeText(kvRc code);

class Outcome
{
  public:
    explicit Outcome(vexoResult *result) : result_{result} {}

    // Whether a platform call succeeded; its failure text is the configuration library's latest.
    bool orConfigText(kvRc code)
    {
        if (code == KV_OK)
            return succeed();
        failConfig(result_, code);
        return false;
    }

    // The same for a call whose failure text is the platform's for the code.
    bool orCodeText(kvRc code)
    {
        if (code == KV_OK)
            return succeed();
        failByCode(result_, code);
        return false;
    }

    bool succeed()
    {
        if (result_) {
            result_->rc = VEXO_RC_OK;
            result_->message[0] = '\0';
        }
        return true;
    }

    // Success of an operation that leaves the message alone.
    void succeedSilently()
    {
        if (result_)
            result_->rc = VEXO_RC_OK;
    }

    // The library's own refusals. The first writes the text and its NUL, the second the whole
    // message, the third puts a name of the platform's between the quotes.
    bool refuse(const char *text);
    bool refuseBadType();
    bool refuseBadType(pweType type);

  private:
    static void failConfig(vexoResult *result, kvRc code);
    static void failByCode(vexoResult *result, kvRc code);

    vexoResult *const result_;
};

} // namespace frame

#endif
