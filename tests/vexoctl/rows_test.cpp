// What every row has to fulfil, so that commands and documents made from them are unambiguous.
#include <invocation.h>

#include <gtest/gtest.h>

#include <algorithm>

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

TEST(Rows, CoverEveryByteOfTheirRecordAndNoneBehindIt)
{
    for (const Type *record : describe::records()) {
        std::vector<bool> covered(record->size);
        for (const Field &field : record->fields) {
            const uint32_t end = field.offset + field.count * field.type->size;
            ASSERT_LE(end, record->size) << record->name << "." << field.name;
            for (uint32_t i = field.offset; i < end; ++i)
                covered[i] = true;
        }
        const auto gap = std::find(covered.begin(), covered.end(), false);
        EXPECT_EQ(gap, covered.end())
            << record->name << ": offset " << gap - covered.begin() << " has no row";
    }
}

TEST(Rows, NameOtherFieldsOnlyWhereTheseAreWords)
{
    for (const Type *record : describe::records())
        for (const Field &field : record->fields)
            for (const char *other : {field.options.flag, field.options.count, field.options.by}) {
                if (!other)
                    continue;
                const Field *found = fieldOf(*record, other);
                ASSERT_NE(found, nullptr) << record->name << "." << field.name << ": " << other;
                EXPECT_EQ(found->type->size, 4u);
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

} // namespace
