// What has been judged, in a file that is added to: a line for what is swept, then one for each.
#ifndef SWEEP_JUDGED_H
#define SWEEP_JUDGED_H

#include "point.h"

#include <map>

namespace sweep
{

class Judged
{
  public:
    // Reads what is there of the same sweep, and throws a Trouble at another's. Without a name
    // there is no file.
    Judged(const std::string &file, const Json &sweep);
    Judged(const Judged &) = delete;
    ~Judged();

    // By the id of its entry; null: it hasn't been.
    const Json *find(const std::string &id) const;
    void add(const Json &line);

  private:
    const std::string file_;
    int output_ = -1;
    std::map<std::string, Json> lines_;
};

} // namespace sweep

#endif
