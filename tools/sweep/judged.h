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
    // Reads what is there, and throws a Trouble where that is nothing of a sweep's. Without a name
    // there is no file.
    explicit Judged(const std::string &file);
    Judged(const Judged &) = delete;
    ~Judged();

    // Throws a Trouble where what has been judged is another sweep's.
    void begin(const Json &sweep);
    // By the id of its entry; null: it hasn't been.
    const Json *find(const std::string &id) const;
    void add(const Json &line);

  private:
    const std::string file_;
    int output_ = -1;
    Json sweep_; // null: nothing is there
    std::map<std::string, Json> lines_;
};

} // namespace sweep

#endif
