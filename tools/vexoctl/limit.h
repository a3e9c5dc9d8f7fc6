// How long a call of the library may take: the platform's calls can hang, and nothing but the end
// of the process frees a thread from them.
#ifndef VEXOCTL_LIMIT_H
#define VEXOCTL_LIMIT_H

#include <string>

namespace vexoctl
{

// For the calls that follow; 0 seconds: as long as they want. The message goes to the descriptor
// when one takes longer, and the process ends with this status.
void setCallLimit(double seconds, const std::string &message, int descriptor, int status);

// Stands around a call.
class CallLimit
{
  public:
    CallLimit();
    ~CallLimit();
    CallLimit(const CallLimit &) = delete;
};

} // namespace vexoctl

#endif
