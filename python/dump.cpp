// Writes the description's rows into a file, as the generator of the Python module reads them.
#include <describe.h>

#include <nlohmann/json.hpp>

#include <cstring>
#include <fstream>
#include <map>

using Json = nlohmann::json;
using namespace describe;

namespace
{

constexpr uint32_t VALUES = 16; // of what a field can depend on: more than any has

const char *kindOf(const Type &type)
{
    constexpr const char *KINDS[] = {"word", "enumeration", "text", "mac", "record"};
    return KINDS[static_cast<int>(type.kind)];
}

// The values of one field with which a record meets a condition.
Json valuesOf(const Type &record, std::string_view field, bool (*condition)(const void *))
{
    const auto &of = *std::ranges::find(record.fields, field, &Field::name);
    Json values = Json::array();
    for (uint32_t value = 0; value < VALUES; ++value) {
        std::vector<uint32_t> words(record.size / sizeof(uint32_t) + 1);
        memcpy(reinterpret_cast<uint8_t *>(words.data()) + of.offset, &value, sizeof value);
        if (condition(words.data()))
            values.push_back(value);
    }
    return values;
}

Json rowOf(const Type &record, const Field &field)
{
    const Options &options = field.options;
    Json row{{"name", field.name},
             {"kind", kindOf(*field.type)},
             {"type", field.type->name},
             {"offset", field.offset},
             {"size", field.type->size},
             {"count", field.count},
             {"hidden", options.hidden},
             {"optional", options.optional},
             {"leftOut", options.leftOut != nullptr}};
    if (options.flag)
        row["flag"] = options.flag;
    if (options.count)
        row["counted"] = options.count;
    if (options.when && options.by)
        row["by"] = {options.by, valuesOf(record, options.by, options.when)};
    else if (options.when) // one of several arrangements: its flag tells whether it is that one
        row["told"] = field.offset + field.type->fields.back().offset;
    if (options.alone)
        row["alone"] = valuesOf(record, field.name, options.alone);
    if (options.limit)
        row["limit"] =
            options.limit(std::vector<uint32_t>(record.size / sizeof(uint32_t) + 1).data());
    if (field.type->kind == Kind::record) // what this record's own row says may be left out here
        for (const Field &part : field.type->fields)
            if (!part.options.leftOut && !part.options.hidden && !part.options.when)
                row["needs"].push_back(part.name);
    return row;
}

} // namespace

int main(int, char **argv)
{
    Json records = Json::array();
    std::map<std::string, size_t> places;
    for (const Type *type : describe::records()) {
        Json fields = Json::array();
        for (const Field &field : type->fields)
            fields.push_back(rowOf(*type, field));
        const auto [found, isNew] = places.emplace(type->name, records.size());
        if (isNew)
            records.push_back({{"name", type->name}, {"size", type->size}, {"fields", fields}});
        // What may be left out of a record by itself may be needed where it is a part of another.
        Json &known = records[found->second]["fields"];
        for (size_t i = 0; i < fields.size(); ++i)
            if (fields[i]["leftOut"])
                known[i]["leftOut"] = true;
    }
    Json all = Json::array();
    for (const Operation &operation : operations()) {
        Json arguments = Json::array();
        for (const Argument &argument : operation.arguments) {
            Json row{{"name", argument.name},
                     {"kind", kindOf(*argument.type)},
                     {"type", argument.type->name},
                     {"size", argument.type->size},
                     {"count", argument.count},
                     {"limit", argument.limit},
                     {"out", argument.direction == Direction::out}};
            if (argument.countedBy)
                row["countedBy"] = argument.countedBy;
            arguments.push_back(row);
        }
        all.push_back({{"name", operation.name}, {"arguments", arguments}});
    }
    std::ofstream file{argv[1]};
    file << Json{{"records", records}, {"operations", all}}.dump(1) << std::endl;
    return file ? 0 : 1;
}
