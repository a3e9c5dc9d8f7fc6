// What the rows say of the functions that are recorded, for the recorder itself and, as JSON, for
// whoever reads the file: a later reader needs nothing else to read it.
#include "recorder.h"

#include <records.h>

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace trace
{

using describe::Direction;
using describe::Field;
using describe::Kind;
using describe::Type;

Shape shapes[FUNCTIONS];

namespace
{

#define TRACED(name, count) #name,
constexpr const char *OPERATIONS[] = {
#include "operations.inc"
};
#undef TRACED

// Of what has no row, as it has no result.
constexpr const char *REGISTRATIONS[] = {"vexo_cmi_alarm_callback_register",
                                         "vexo_cmi_pm_callback_register"};

constexpr struct {
    const char *name;
    const char *argument;
    const Type *type;
} CALLBACKS[] = {
    {"vexoAlarmCallback", "alarm", &describe::Row<vexoAlarmNotification>::type},
    {"vexoPmCallback", "pm", &describe::Row<vexoPmNotification>::type},
    {"alarm_notification_handler", "event", &describe::Row<alarmEvent>::type},
    {"pm_notification_handler", "interval", &describe::Row<pmInterval>::type},
};

constexpr size_t LONGEST = 256; // of texts whose row says nothing

void finish(Shape &shape)
{
    constexpr size_t SLACK = UNIT_SIZE + 16;
    size_t enter = sizeof(Event) + SLACK;
    size_t exit = sizeof(Event) + SLACK + sizeof(uint32_t) + LONGEST + sizeof(uint32_t);
    for (uint16_t i = 0; i < shape.argumentCount; ++i) {
        const Shape::Argument &argument = shape.arguments[i];
        const size_t size = sizeof(uint32_t) + roomFor(size_t{argument.size} * argument.count) + 8;
        enter += size;
        exit += size;
    }
    shape.enterRoom = static_cast<uint32_t>(enter);
    shape.exitRoom = static_cast<uint32_t>(exit);
}

void describeOperation(Shape &shape, const describe::Operation &operation)
{
    for (const describe::Argument &row : operation.arguments) {
        Shape::Argument &argument = shape.arguments[shape.argumentCount++];
        argument = {row.name, row.type, row.type->size, static_cast<uint16_t>(row.count), -1};
        if (row.type->kind == Kind::text && row.type->size == 0)
            argument.size = row.limit < LONGEST ? row.limit : LONGEST;
        for (size_t i = 0; row.countedBy && i < operation.arguments.size(); ++i)
            if (strcmp(operation.arguments[i].name, row.countedBy) == 0)
                argument.countedBy = static_cast<int8_t>(i);
    }
}

// ---- JSON ----

class Json
{
  public:
    Json(char *at, char *end) : at_{at}, end_{end} {}

    char *end() const { return full_ ? nullptr : at_; }

    void raw(const char *text)
    {
        for (; *text; ++text)
            put(*text);
    }

    void open(char bracket)
    {
        separate();
        put(bracket);
        first_ = true;
    }

    void close(char bracket)
    {
        put(bracket);
        first_ = false;
    }

    void name(const char *text)
    {
        this->text(text);
        put(':');
        first_ = true;
    }

    void text(const char *text)
    {
        separate();
        put('"');
        for (; *text; ++text) {
            const auto byte = static_cast<unsigned char>(*text);
            if (byte == '"' || byte == '\\') {
                put('\\');
                put(*text);
            } else if (byte < ' ' || byte >= 0x7F) {
                char escaped[8];
                snprintf(escaped, sizeof escaped, "\\u%04x", byte);
                raw(escaped);
            } else {
                put(*text);
            }
        }
        put('"');
    }

    void number(uint64_t value)
    {
        char digits[24];
        snprintf(digits, sizeof digits, "%llu", static_cast<unsigned long long>(value));
        separate();
        raw(digits);
    }

    void member(const char *key, const char *value)
    {
        if (!value)
            return;
        name(key);
        text(value);
    }

    void member(const char *key, uint64_t value)
    {
        name(key);
        number(value);
    }

    void truth(const char *key, bool value)
    {
        if (!value)
            return;
        name(key);
        separate();
        raw("true");
    }

  private:
    void separate()
    {
        if (!first_)
            put(',');
        first_ = false;
    }

    void put(char c)
    {
        if (at_ == end_)
            full_ = true;
        else
            *at_++ = c;
    }

    char *at_, *const end_;
    bool first_ = true, full_ = false;
};

constexpr size_t MOST_TYPES = 512;

struct Types {
    const Type *known[MOST_TYPES];
    size_t count = 0;

    size_t placeOf(const Type &type)
    {
        for (size_t i = 0; i < count; ++i)
            if (known[i] == &type)
                return i;
        if (count == MOST_TYPES)
            return 0;
        known[count] = &type;
        return count++;
    }

    void add(const Type &type)
    {
        const size_t before = count;
        if (placeOf(type) == before)
            for (const Field &field : type.fields)
                add(*field.type);
    }
};

constexpr const char *nameOf(Kind kind)
{
    constexpr const char *NAMES[] = {"word", "enumeration", "text", "mac", "record"};
    return NAMES[static_cast<size_t>(kind)];
}

const Field *fieldOf(const Type &type, const char *name)
{
    for (const Field &field : type.fields)
        if (strcmp(field.name, name) == 0)
            return &field;
    return nullptr;
}

// With which values of the field that it depends on a field is there.
void writeCondition(Json &json, const Type &record, const Field &field)
{
    constexpr uint32_t MOST = 64;
    const Field *const by = field.options.by ? fieldOf(record, field.options.by) : nullptr;
    alignas(8) uint8_t probe[4096]{};
    if (!by || record.size > sizeof probe || by->type->size != sizeof(uint32_t))
        return;
    json.member("by", field.options.by);
    json.name("values");
    json.open('[');
    for (uint32_t value = 0; value < MOST; ++value) {
        memcpy(probe + by->offset, &value, sizeof value);
        if (field.options.when(probe))
            json.number(value);
    }
    json.close(']');
}

void writeType(Json &json, Types &types, const Type &type)
{
    json.open('{');
    json.member("name", type.name);
    json.member("kind", nameOf(type.kind));
    json.member("size", type.size);
    json.member("title", type.title);
    json.truth("hexadecimal", type.hexadecimal);
    if (type.kind == Kind::enumeration) {
        json.member("first", type.first);
        json.member("last", type.last);
        json.name("members");
        json.open('[');
        for (const describe::Member &member : type.members) {
            json.open('{');
            json.member("value", member.value);
            json.member("name", member.name);
            json.close('}');
        }
        json.close(']');
    }
    if (type.kind == Kind::record) {
        json.name("fields");
        json.open('[');
        for (const Field &field : type.fields) {
            json.open('{');
            json.member("name", field.name);
            json.member("type", types.placeOf(*field.type));
            json.member("offset", field.offset);
            json.member("count", field.count);
            json.truth("hidden", field.options.hidden);
            json.truth("optional", field.options.optional);
            json.truth("changes", field.options.changes);
            json.member("flag", field.options.flag);
            json.member("counted", field.options.count);
            if (field.options.when)
                writeCondition(json, type, field);
            json.close('}');
        }
        json.close(']');
    }
    json.close('}');
}

struct Written {
    const char *name;
    const Type *type; // null: of a callback and the like
    bool output, pointer;
    uint32_t count;
    const char *countedBy;
    bool changes;
};

void writeArgument(Json &json, Types &types, const Written &argument)
{
    json.open('{');
    json.member("name", argument.name);
    if (argument.type)
        json.member("type", types.placeOf(*argument.type));
    json.truth("output", argument.output);
    json.truth("pointer", argument.pointer);
    if (argument.count > 1)
        json.member("count", argument.count);
    json.member("countedBy", argument.countedBy);
    json.truth("changes", argument.changes);
    json.close('}');
}

const char *kindOf(const describe::Argument &object)
{
    constexpr struct {
        const char *argument, *kind;
    } KINDS[] = {{"port", "port"}, {"pwId", "pw"}, {"groupId", "group"}};
    for (const auto &known : KINDS)
        if (strcmp(object.name, known.argument) == 0)
            return known.kind;
    return "";
}

void writeOperation(Json &json, Types &types, const char *name)
{
    const describe::Operation *const row = describe::find(name);
    json.open('{');
    json.member("name", name);
    json.member("layer", "operation");
    json.member("returns", row ? "result" : "nothing");
    if (const describe::Argument *const object = row ? describe::objectOf(*row) : nullptr) {
        json.member("object", static_cast<uint64_t>(object - row->arguments.data()));
        json.member("objectKind", kindOf(*object));
    }
    json.name("arguments");
    json.open('[');
    if (row)
        for (const describe::Argument &argument : row->arguments) {
            const bool output = argument.direction == Direction::out;
            const bool pointer = output || argument.type->kind == Kind::record ||
                                 argument.type->kind == Kind::mac ||
                                 argument.type->kind == Kind::text;
            writeArgument(json, types,
                          {argument.name, argument.type, output, pointer, argument.count,
                           argument.countedBy, describe::changesByItself(*row, argument)});
        }
    for (const char *registration : REGISTRATIONS)
        if (strcmp(name, registration) == 0)
            writeArgument(json, types, {"callback", nullptr, false, false, 1, nullptr, false});
    json.close(']');
    json.close('}');
}

void writeFunction(Json &json, Types &types, const describe::platform::Function &row)
{
    constexpr const char *LIBRARIES[] = {"config", "alarm",  "pmom", "upgrade",
                                         "forker", "common", "clock"};
    constexpr const char *CLASSES[] = {"reads", "writes", "acts", "notifies"};
    constexpr const char *RETURNS[] = {"code", "count", "text", "descriptor", "status"};
    constexpr const char *OBJECTS[] = {"none", "port", "pw", "group", "link", "alarm"};
    json.open('{');
    json.member("name", row.name);
    json.member("layer", "platform");
    json.member("library", LIBRARIES[static_cast<size_t>(row.library)]);
    json.member("class", CLASSES[static_cast<size_t>(row.kind)]);
    json.member("returns", RETURNS[static_cast<size_t>(row.returns)]);
    if (row.object >= 0) {
        json.member("object", static_cast<uint64_t>(row.object));
        json.member("objectKind", OBJECTS[static_cast<size_t>(row.objectKind)]);
    }
    json.name("arguments");
    json.open('[');
    for (const describe::platform::Argument &argument : row.arguments) {
        const bool typed = argument.type != nullptr;
        writeArgument(json, types,
                      {argument.name, argument.type,
                       typed && argument.isPointer && argument.direction == Direction::out,
                       typed && argument.isPointer, 1, nullptr, argument.changes});
    }
    json.close(']');
    json.close('}');
}

void writeCallback(Json &json, Types &types, Callback callback)
{
    const auto &row = CALLBACKS[static_cast<size_t>(callback)];
    json.open('{');
    json.member("name", row.name);
    json.member("layer", callback < Callback::alarmEvent ? "callback" : "handler");
    json.member("returns", "nothing");
    json.name("arguments");
    json.open('[');
    writeArgument(
        json, types,
        {row.argument, row.type, false, callback != Callback::pmInterval, 1, nullptr, false});
    json.close(']');
    json.close('}');
}

// As it was started, as far as there is room.
void writeCommand(Json &json)
{
    constexpr size_t MOST = 2048;
    char words[2 * MOST];
    const int descriptor = open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC);
    const ssize_t size = descriptor >= 0 ? read(descriptor, words, MOST - 1) : 0;
    if (descriptor >= 0)
        close(descriptor);
    json.name("command");
    json.open('[');
    for (ssize_t i = 0; i < size;) {
        char word[2 * MOST];
        words[size] = '\0';
        size_t length = strlen(words + i);
        memcpy(word, words + i, length + 1);
        i += static_cast<ssize_t>(length) + 1;
        if (redacting)
            word[redactText(word, length, MOST)] = '\0';
        json.text(word);
    }
    json.close(']');
}

} // namespace

void describeFunctions()
{
    if (shapes[0].name)
        return;
    for (uint16_t i = 0; i < OPERATION_COUNT; ++i) {
        Shape &shape = shapes[i];
        if (const describe::Operation *row = describe::find(OPERATIONS[i]))
            describeOperation(shape, *row);
        finish(shape);
        shape.name = OPERATIONS[i];
    }
    for (uint16_t i = 0; i < PLATFORM_COUNT_ALL; ++i) {
        const describe::platform::Function &row = describe::platform::functions()[i];
        Shape &shape = shapes[OPERATION_COUNT + i];
        for (const describe::platform::Argument &argument : row.arguments) {
            const uint32_t size = argument.type ? argument.type->size : 0;
            const bool text = argument.type && argument.type->kind == Kind::text;
            shape.arguments[shape.argumentCount++] = {
                argument.name, argument.type, text ? static_cast<uint32_t>(LONGEST) : size, 1, -1};
        }
        finish(shape);
        shape.name = row.name;
    }
    for (uint16_t i = 0; i < static_cast<uint16_t>(Callback::count); ++i) {
        Shape &shape = shapes[placeOf(Callback{i})];
        const auto &row = CALLBACKS[i];
        shape.arguments[shape.argumentCount++] = {row.argument, row.type, row.type->size, 1, -1};
        finish(shape);
        shape.name = row.name;
    }
}

char *writeDescription(char *at, char *end)
{
    static Types types;
    types.count = 0;
    for (const Shape &shape : shapes)
        for (uint16_t i = 0; i < shape.argumentCount; ++i)
            if (shape.arguments[i].type)
                types.add(*shape.arguments[i].type);
    Json json{at, end};
    json.open('{');
    char version[32];
    snprintf(version, sizeof version, "%d.%d.%d", VEXO_CMI_VERSION_MAJOR, VEXO_CMI_VERSION_MINOR,
             VEXO_CMI_VERSION_PATCH);
    json.member("version", version);
    json.member("pointer", sizeof(void *));
    writeCommand(json);
    json.name("types");
    json.open('[');
    for (size_t i = 0; i < types.count; ++i)
        writeType(json, types, *types.known[i]);
    json.close(']');
    json.name("functions");
    json.open('[');
    for (const char *name : OPERATIONS)
        writeOperation(json, types, name);
    for (const describe::platform::Function &row : describe::platform::functions())
        writeFunction(json, types, row);
    for (uint16_t i = 0; i < static_cast<uint16_t>(Callback::count); ++i)
        writeCallback(json, types, Callback{i});
    json.close(']');
    json.close('}');
    return json.end();
}

} // namespace trace
