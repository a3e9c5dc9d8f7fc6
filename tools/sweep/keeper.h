// A process for one run, and what it tells.
#ifndef SWEEP_KEEPER_H
#define SWEEP_KEEPER_H

#include "point.h"

#include <functional>

#include <sys/types.h>

namespace sweep
{

class Keeper
{
  public:
    // The folder is made for it, and removed at the end.
    Keeper(const std::string &folder, const std::function<Json()> &work);
    Keeper(const Keeper &) = delete;
    ~Keeper();

    // Readable when there is something to be read.
    int output() const { return output_; }
    // Whether all has been told; throws a Trouble in place of what the work has thrown.
    bool read();
    const Json &told() const { return told_; }

  private:
    const std::string folder_;
    pid_t process_ = -1;
    int output_ = -1;
    std::string text_;
    Json told_;
};

} // namespace sweep

#endif
