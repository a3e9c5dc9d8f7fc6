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
                const Field *found = vexoctl::fieldOf(*record, other);
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

// A name, and all that the interface's record says of it.
struct Declaration {
    std::string header, name;
    std::vector<std::string> parts; // a function's arguments, an enumeration's values
};

std::vector<Declaration> declarations(const std::string &folder, const std::regex &first,
                                      const std::regex &part)
{
    std::vector<Declaration> found;
    std::ifstream interface {
        INTERFACE
    };
    std::string header;
    bool within = false;
    for (std::string line; std::getline(interface, line);) {
        std::smatch match;
        if (line.starts_with("== "))
            header = line.substr(3);
        within &= line.starts_with(' ');
        std::string parts = line;
        if (header.starts_with(folder) && std::regex_match(line, match, first)) {
            found.push_back({header, match[1], {}});
            within = true;
            parts = match[2];
        }
        for (std::sregex_iterator one{parts.begin(), parts.end(), part}, end; within && one != end;
             ++one)
            found.back().parts.push_back((*one)[1].str() + (*one)[2].str());
    }
    EXPECT_FALSE(found.empty());
    return found;
}

std::vector<Declaration> functions(const std::string &folder)
{
    static const std::regex FUNCTION{R"([\w *]+?(\w+)\((?:void)?(.*)\))"};
    static const std::regex ARGUMENT{R"((?:\(\*(\w+)\)\([^)]*\)|(\w+)(?:\[\d*\])?)(?:,|$))"};
    return declarations(folder, FUNCTION, ARGUMENT);
}

using Names = std::vector<std::string>;

template <class Row>
Names argumentsOf(const Row *row)
{
    Names names;
    for (size_t i = 0; row && i < row->arguments.size(); ++i)
        names.emplace_back(row->arguments[i].name);
    return row ? names : Names{"no row"};
}

TEST(Rows, NameEveryDeclaredOperationAndItsArgumentsInTheirOrder)
{
    for (Declaration &operation : functions("include/")) {
        if (operation.parts.empty() || operation.parts.back() != "result")
            continue;
        operation.parts.pop_back();
        EXPECT_EQ(argumentsOf(describe::find(operation.name)), operation.parts)
            << operation.name << "() of " << operation.header
            << " needs a row in describe/operations.cpp that names these arguments";
    }
}

TEST(Rows, NameEveryDeclaredFunctionOfThePlatformAndItsArgumentsInTheirOrder)
{
    for (const Declaration &function : functions("platform/"))
        EXPECT_EQ(argumentsOf(describe::platform::find(function.name)), function.parts)
            << function.name << "() of " << function.header
            << " needs a row in describe/platform.h that names these arguments";
}

// The row of an enumeration as it would be written.
std::string row(const std::string &name, const std::string &first, const std::string &last)
{
    return "ENUMERATION(" + name + ", " + first + ", " + last + ")";
}

TEST(Rows, GiveEveryDeclaredEnumerationFromItsFirstToItsLastMember)
{
    std::set<std::string> rows{row("vexoRc", "0", "128")}; // which is no argument, nor in a record
    const auto add = [&](const Type &type) {
        if (type.kind == Kind::enumeration)
            rows.insert(row(type.name, std::to_string(type.first), std::to_string(type.last)));
    };
    for (const describe::Operation &operation : describe::operations())
        for (const describe::Argument &argument : operation.arguments)
            add(*argument.type);
    for (const Type *record : describe::records())
        for (const Field &field : record->fields)
            add(*field.type);
    static const std::regex ENUMERATION{R"(enum (\w+) : .*())"};
    static const std::regex MEMBER{R"(^ *(\d+) ()\w+$)"};
    for (const Declaration &one : declarations("include/", ENUMERATION, MEMBER)) {
        if (one.parts.empty()) // the platform's
            continue;
        const std::string wanted = row(one.name, one.parts.front(), one.parts.back());
        EXPECT_TRUE(rows.contains(wanted))
            << one.name << " of " << one.header << " needs a row " << wanted
            << " in describe/records.h, and an operation that gives or takes it";
    }
}

} // namespace
