// What every row has to fulfil, so that commands and documents made from them are unambiguous.
#include <invocation.h>
#include <platform.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>

namespace
{

using describe::Field;
using describe::Kind;
using describe::Type;

const Field *fieldOf(const Type &record, const char *name)
{
    for (const Field &field : record.fields)
        if (field.name == std::string_view{name})
            return &field;
    return nullptr;
}

std::vector<const Type *> recordsOfBothLayers()
{
    const auto upper = describe::records(), lower = describe::platform::records();
    std::vector<const Type *> all{upper.begin(), upper.end()};
    all.insert(all.end(), lower.begin(), lower.end());
    return all;
}

TEST(Rows, CoverEveryByteOfTheirRecordAndNoneBehindIt)
{
    for (const Type *record : recordsOfBothLayers()) {
        std::vector<bool> covered(record->size);
        for (const Field &field : record->fields) {
            const uint32_t end = field.offset + field.count * field.type->size;
            ASSERT_LE(end, record->size) << record->name << "." << field.name;
            for (uint32_t i = field.offset; i < end; ++i)
                covered[i] = true;
        }
        const auto gap = std::find(covered.begin(), covered.end(), false);
        EXPECT_EQ(gap, covered.end())
            << record->name << ": offset " << gap - covered.begin()
            << " has no row in describe/records.h or, of a record of the platform, platform.cpp";
    }
}

TEST(Rows, NameOtherFieldsOnlyWhereTheseAreWords)
{
    for (const Type *record : recordsOfBothLayers())
        for (const Field &field : record->fields)
            for (const char *other : {field.options.flag, field.options.count, field.options.by}) {
                if (!other)
                    continue;
                const Field *found = fieldOf(*record, other);
                ASSERT_NE(found, nullptr) << record->name << "." << field.name << ": " << other;
                EXPECT_TRUE(found->type->kind == Kind::word ||
                            found->type->kind == Kind::enumeration);
                EXPECT_LE(found->type->size, 4u);
                EXPECT_EQ(found->count, 1u);
            }
}

TEST(Rows, GiveAllThatACommandNamesANameOfItsOwn)
{
    for (const describe::Operation &operation : describe::operations()) {
        std::set<std::string> names;
        for (const vexoctl::Assignable &one : vexoctl::assignable(operation))
            EXPECT_TRUE(names.insert(one.name).second) << operation.name << ": " << one.name;
        std::set<std::string> shown{"operation", "rc", "message", "error"};
        for (const describe::Argument &argument : operation.arguments) {
            const bool isShown = argument.direction == describe::Direction::out;
            EXPECT_TRUE(!isShown || shown.insert(argument.name).second)
                << operation.name << ": " << argument.name;
        }
    }
}

std::set<const Type *> givenRecords()
{
    std::set<const Type *> records;
    for (const describe::Operation &operation : describe::operations())
        for (const describe::Argument &argument : operation.arguments)
            if (vexoctl::isGivenRecord(argument))
                records.insert(argument.type);
    return records;
}

TEST(Rows, LoseNothingOfAGivenRecordOnItsWayThroughADocument)
{
    const auto records = givenRecords();
    EXPECT_GE(records.size(), 8u);
    for (const Type *record : records)
        for (uint32_t word = 0; word < 8; ++word) {
            const std::vector<uint32_t> value((record->size + 3) / 4, word);
            const vexoctl::Json printed = vexoctl::toJson(*record, value.data());
            std::vector<uint32_t> filled(value.size());
            vexoctl::Paths given;
            vexoctl::fromJson(*record, printed, {.members = true}, filled.data(), given);
            EXPECT_EQ(vexoctl::toJson(*record, filled.data()).dump(), printed.dump());
        }
}

// A function of the platform with the names of its arguments, as it is declared or as its row says.
std::string signature(const std::string &name, const std::vector<std::string> &arguments)
{
    std::string text = name + "(";
    for (const std::string &argument : arguments)
        text += (text.ends_with('(') ? "" : ", ") + argument;
    return text + ")";
}

std::string rowOf(const std::string &name)
{
    const describe::platform::Function *row = describe::platform::find(name);
    if (!row)
        return "no row";
    std::vector<std::string> arguments;
    for (const describe::platform::Argument &argument : row->arguments)
        arguments.emplace_back(argument.name);
    return signature(name, arguments);
}

TEST(Rows, OfThePlatformNameEveryFunctionThatItsHeadersDeclareAndItsArguments)
{
    static const std::regex FUNCTION{R"([\w *]+?(\w+)\((.*)\))"};
    static const std::regex ARGUMENT{R"((?:\(\*(\w+)\)\([^)]*\)|(\w+))(?:,|$))"};
    std::ifstream interface {
        INTERFACE
    };
    std::string header;
    size_t functions = 0;
    for (std::string line; std::getline(interface, line);) {
        std::smatch found;
        if (line.starts_with("=="))
            header = line.substr(3);
        if (!header.starts_with("platform/") || !std::regex_match(line, found, FUNCTION))
            continue;
        ++functions;
        std::vector<std::string> arguments;
        const std::string list = found[2] == "void" ? "" : found[2].str();
        for (std::sregex_iterator one{list.begin(), list.end(), ARGUMENT}, end; one != end; ++one)
            arguments.push_back((*one)[1].str() + (*one)[2].str());
        EXPECT_EQ(rowOf(found[1]), signature(found[1], arguments))
            << found[1] << "() of " << header
            << " needs a row in describe/platform.h that names these";
    }
    // The clock is the host's.
    EXPECT_EQ(functions + 2, describe::platform::FUNCTION_COUNT);
}

} // namespace
