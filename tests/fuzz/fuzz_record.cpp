// JSON documents for every record that an operation is given, and texts for their fields.
#include <invocation.h>

#include <cstdio>
#include <cstdlib>

using namespace vexoctl;
using describe::Type;

namespace
{

using Bytes = std::vector<uint32_t>;

[[noreturn]] void fail(const Type &type, const std::string &text)
{
    fprintf(stderr, "%s: %s\n", type.name, text.c_str());
    abort();
}

std::set<const Type *> givenRecords()
{
    std::set<const Type *> records;
    for (const describe::Operation &operation : describe::operations())
        for (const describe::Argument &argument : operation.arguments)
            if (isGivenRecord(argument))
                records.insert(argument.type);
    return records;
}

// What a document makes of a record is printed as a document that makes the same record again.
void fillAndPrint(const Type &type, const Json &json, Leniency leniency)
{
    Bytes record((type.size + 3) / 4);
    Paths given;
    try {
        fromJson(type, json, leniency, record.data(), given);
        check(type, given, record.data());
    } catch (const UsageError &) {
        return;
    }
    const Json printed = toJson(type, record.data());
    Bytes again(record.size());
    fromJson(type, printed, {.members = true}, again.data(), given);
    if (toJson(type, again.data()) != printed)
        fail(type, printed.dump(-1, ' ', false, Json::error_handler_t::replace));
}

void setField(const Type &type, const std::string &path, const std::string &text)
{
    Bytes record((type.size + 3) / 4);
    Paths given;
    try {
        fromJson(type, nested(path, text), {}, record.data(), given);
    } catch (const UsageError &) {
    }
}

void setFields(const Type &type, const std::string &text)
{
    for (const Leaf &leaf : leaves(type))
        setField(type, leaf.path, text);
    setField(type, text, "1");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text{reinterpret_cast<const char *>(data), size};
    static const std::set<const Type *> records = givenRecords();
    for (const Type *type : records)
        setFields(*type, text);
    try {
        const Json json = readJson("input", text);
        for (const Type *type : records)
            for (const bool lenient : {false, true})
                fillAndPrint(*type, json, {.fields = lenient, .members = lenient});
    } catch (const UsageError &) {
    }
    return 0;
}
