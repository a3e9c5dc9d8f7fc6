// One call of an operation: its arguments as they are given, its outputs as they are shown.
#ifndef VEXOCTL_INVOCATION_H
#define VEXOCTL_INVOCATION_H

#include "checks.h"

#include <istream>
#include <memory>

// A document that is shown as it is; no operation of the library has one.
template <>
struct describe::Row<vexoctl::Json> {
    static constexpr Type type{Kind::record, "document", sizeof(vexoctl::Json)};
};

namespace vexoctl
{

class Invocation
{
  public:
    // Takes "name=value" words: of arguments, or of fields of the record that the operation is
    // given. "record=@FILE" takes the record from a JSON document, "record=@-" from standard
    // input, "record={...}" from the word itself; single fields win over it. So it is with other
    // values; and a document without a name holds any of the arguments. Throws UsageError when
    // a word is wrong or something is missing.
    Invocation(const describe::Operation &operation, const Names &assignments, Leniency leniency);
    Invocation(const Invocation &) = delete;

    // What outputs hold before the call, in place of UNTOUCHED.
    void fill(uint32_t word);
    const vexoResult &call();
    // The outputs by their names; none after a failure. Null when the operation has printed them.
    Json outputs(Style style) const;
    // An argument as the operation left it.
    const void *argument(size_t index) const { return storage_[index].bytes(); }
    // Whether the record says that nothing else of it is read, as it does to delete something.
    bool isDeletion() const;
    // The number of the object that it is about; 0 when there is none.
    uint32_t objectNumber() const;

  private:
    struct Storage {
        std::vector<uint32_t> words; // aligned as every record is
        std::string text;
        Json document = Json::object();
        void *bytes() { return words.data(); }
        const void *bytes() const { return words.data(); }
    };
    struct Assignment {
        size_t index;     // of the argument
        std::string path; // of the field in it; empty: the argument itself
        std::string value;
    };

    Assignment split(const std::string &word) const;
    void assign(const Assignment &assignment);
    void load(const Json &document);
    void loadRecord(size_t index, const Json &document);
    void loadValue(size_t index, const Json &document);
    void set(size_t index, const std::string &value);
    void complete(size_t index);
    uint32_t countOf(const describe::Argument &argument) const;

    const describe::Operation &operation_;
    const Leniency leniency_;
    // A call that has been given up may still write to it.
    struct Memory {
        std::vector<Storage> storage;
        vexoResult result{};
    };
    const std::shared_ptr<Memory> memory_ = std::make_shared<Memory>();
    std::vector<Storage> &storage_ = memory_->storage;
    std::set<size_t> present_; // arguments that are given
    Paths named_;              // fields of the record that words name
    Paths given_;              // these, and those of its document
    const vexoResult &result_ = memory_->result;
};

// The text of a file, or of standard input when it is '-'. Throws UsageError.
std::string readWhole(const std::string &what, const std::string &file);

// The operation that reads what this one writes; null when there is none.
const describe::Operation *getterOf(const describe::Operation &operation);

bool isDocument(const describe::Argument &argument);
bool isGivenRecord(const describe::Argument &argument);

// What may stand before the '=', and what is expected behind it.
struct Assignable {
    std::string name;
    const describe::Type *type;
};
std::vector<Assignable> assignable(const describe::Operation &operation);

// Whether a stream ended because it couldn't be read. std::cin, which goes through stdio, knows
// nothing of it.
bool isBroken(const std::istream &stream);

// "pwe params set" for vexo_cmi_pwe_params_set.
std::string spoken(const std::string &operation);

} // namespace vexoctl

#endif
