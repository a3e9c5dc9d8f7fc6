// One call of an operation: its arguments as they are given, its outputs as they are shown.
#ifndef VEXOCTL_INVOCATION_H
#define VEXOCTL_INVOCATION_H

#include "value.h"

#include <set>

namespace vexoctl
{

class Invocation
{
  public:
    explicit Invocation(const describe::Operation &operation);
    Invocation(const Invocation &) = delete;

    // Takes "name=value": of an argument, or of a field of the record that the operation is given.
    // "record=@FILE" takes the record from a JSON document, "record=@-" from standard input.
    void set(const std::string &assignment);
    // What may stand before the '='.
    static std::vector<std::string> names(const describe::Operation &operation);

    // Calls the operation. Throws UsageError, without calling, when something is missing.
    const vexoResult &run();
    const vexoResult &result() const { return result_; }
    // The outputs by their names; none after a failure.
    Json outputs() const;

  private:
    struct Storage {
        std::vector<uint32_t> words; // aligned as every record is
        std::string text;
        void *bytes() { return words.data(); }
        const void *bytes() const { return words.data(); }
    };

    size_t indexOf(std::string_view name) const;
    void load(size_t index, const std::string &file);
    void setArgument(size_t index, const std::string &value);
    uint32_t countOf(const describe::Argument &argument) const;

    const describe::Operation &operation_;
    std::vector<Storage> storage_;
    std::set<std::string> given_;
    vexoResult result_{};
};

// "pwe params set" for vexo_cmi_pwe_params_set.
std::string spoken(const std::string &operation);

} // namespace vexoctl

#endif
