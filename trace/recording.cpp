#include "recording.h"

#include <platform.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace trace
{

using describe::Kind;

namespace
{

// Closed at the end.
struct Descriptor {
    const int number;
    explicit Descriptor(int opened) : number{opened} {}
    ~Descriptor()
    {
        if (number >= 0)
            close(number);
    }
    Descriptor(const Descriptor &) = delete;
};

bool readAt(int descriptor, uint64_t offset, void *to, size_t size)
{
    auto *at = static_cast<uint8_t *>(to);
    while (size > 0) {
        const ssize_t got = pread(descriptor, at, size, static_cast<off_t>(offset));
        if (got <= 0)
            return false;
        at += got;
        offset += static_cast<uint64_t>(got);
        size -= static_cast<size_t>(got);
    }
    return true;
}

// Its head, unless it is none that this program can read.
void readHead(const std::string &path, int descriptor, Head &head)
{
    struct stat state;
    if (descriptor < 0)
        throw FileError(path + ": " + strerror(errno));
    if (fstat(descriptor, &state) != 0 || !S_ISREG(state.st_mode))
        throw FileError(path + ": is no file");
    if (state.st_size == 0)
        throw FileError(path + ": is empty: nothing was recorded, or the disk was full");
    if (!readAt(descriptor, 0, static_cast<void *>(&head), sizeof head) ||
        memcmp(head.magic, MAGIC, sizeof MAGIC) != 0)
        throw FileError(path + ": is no recording of vexotrace's");
    if (head.byteOrder != BYTE_ORDER_MARK)
        throw FileError(path + ": was recorded on a machine of the other byte order");
    if (head.version != VERSION)
        throw FileError(path + ": is of version " + std::to_string(head.version) +
                        ", this vexotrace reads version " + std::to_string(VERSION));
    const auto size = static_cast<uint64_t>(state.st_size);
    const auto holds = [&](uint64_t offset, uint64_t length) {
        return offset <= size && length <= size - offset;
    };
    const bool blocks = head.blockSize >= sizeof(Block) + sizeof(Event) &&
                        head.blockSize <= (1U << 20) && head.blockSize % 8 == 0;
    if (!holds(head.descriptionOffset, head.descriptionSize) ||
        !holds(head.snapshotOffset, head.snapshotSize) ||
        (head.blockCount > 0 &&
         (!blocks || head.blockCount > size / head.blockSize ||
          !holds(head.blocksOffset, uint64_t{head.blockCount} * head.blockSize))))
        throw FileError(path + ": is damaged: its head names parts that the file does not have");
}

// Of this program's own description, where it has the same record.
const describe::Type *rowOf(const std::string &name, uint32_t size)
{
    for (const auto records : {describe::records(), describe::platform::records()})
        for (const describe::Type *type : records)
            if (name == type->name && size == type->size)
                return type;
    return nullptr;
}

template <class T>
T optional(const Json &json, const char *key, T otherwise)
{
    const auto found = json.find(key);
    return found == json.end() ? otherwise : found->get<T>();
}

template <class T, size_t count>
T chosen(const Json &json, const char *key, const char *const (&names)[count])
{
    const auto name = json.at(key).get<std::string>();
    for (size_t i = 0; i < count; ++i)
        if (name == names[i])
            return static_cast<T>(i);
    throw std::out_of_range(name);
}

constexpr const char *KINDS[] = {"word", "enumeration", "text", "mac", "record"};
constexpr const char *LAYERS[] = {"operation", "platform", "callback", "handler"};
constexpr const char *RETURNS[] = {"nothing", "result",     "code",  "count",
                                   "text",    "descriptor", "status"};

// A record has its fields within it, and no type holds itself.
constexpr uint32_t LARGEST = 1U << 16;

Type readType(const Json &json, const std::deque<Type> &types)
{
    Type type{};
    type.name = json.at("name");
    type.kind = chosen<Kind>(json, "kind", KINDS);
    type.size = json.at("size");
    type.title = optional(json, "title", std::string{});
    type.hexadecimal = optional(json, "hexadecimal", false);
    type.first = optional(json, "first", 0U);
    type.last = optional(json, "last", 0U);
    for (const Json &member : optional(json, "members", Json::array()))
        type.members.emplace_back(member.at("value"), member.at("name"));
    const bool isWord = type.size == 1 || type.size == 2 || type.size == 4 || type.size == 8;
    if (type.size > LARGEST || (type.kind == Kind::word && !isWord) ||
        (type.kind == Kind::enumeration && type.size != 4) ||
        (type.kind == Kind::mac && type.size != sizeof(describe::Mac)))
        throw std::out_of_range(type.name);
    const describe::Type *const row = rowOf(type.name, type.size);
    for (const Json &element : optional(json, "fields", Json::array())) {
        Field &field = type.fields.emplace_back();
        field.name = element.at("name");
        field.type = &types.at(element.at("type"));
        field.offset = element.at("offset");
        field.count = element.at("count");
        field.hidden = optional(element, "hidden", false);
        field.optional = optional(element, "optional", false);
        field.changes = optional(element, "changes", false);
        field.flag = optional(element, "flag", std::string{});
        field.counted = optional(element, "counted", std::string{});
        field.by = optional(element, "by", std::string{});
        field.values = optional(element, "values", std::vector<uint32_t>{});
        if (row)
            for (const describe::Field &known : row->fields)
                if (field.name == known.name && field.offset == known.offset)
                    field.row = &known;
    }
    return type;
}

bool fits(const Type &type, int depth = 0)
{
    constexpr int DEEPEST = 16;
    return depth < DEEPEST && std::ranges::all_of(type.fields, [&](const Field &field) {
               return field.offset <= type.size && field.count <= LARGEST &&
                      uint64_t{field.count} * field.type->size <= type.size - field.offset &&
                      fits(*field.type, depth + 1);
           });
}

Function readFunction(const Json &json, const std::deque<Type> &types)
{
    Function function;
    function.name = json.at("name");
    function.layer = chosen<Layer>(json, "layer", LAYERS);
    function.returns = chosen<Returns>(json, "returns", RETURNS);
    function.library = optional(json, "library", std::string{});
    function.kind = optional(json, "class", std::string{});
    function.object = optional(json, "object", -1);
    function.objectKind = optional(json, "objectKind", std::string{});
    for (const Json &element : json.at("arguments")) {
        Argument &argument = function.arguments.emplace_back();
        argument.name = element.at("name");
        argument.type = element.contains("type") ? &types.at(element.at("type")) : nullptr;
        argument.output = optional(element, "output", false);
        argument.pointer = optional(element, "pointer", false);
        argument.changes = optional(element, "changes", false);
        argument.count = optional(element, "count", 1U);
        argument.countedBy = optional(element, "countedBy", std::string{});
        if (argument.count > LARGEST)
            throw std::out_of_range(argument.name);
    }
    if (function.object >= static_cast<int>(function.arguments.size()))
        throw std::out_of_range(function.name);
    return function;
}

// ---- The content of an event ----

// What is read beyond the end is 0.
class Cursor
{
  public:
    // Null: there is nothing to read.
    explicit Cursor(const Event *event)
        : at_{event ? reinterpret_cast<const uint8_t *>(event + 1) : nullptr},
          left_{event ? event->size - sizeof *event : 0}
    {
    }

    uint32_t number()
    {
        uint32_t value = 0;
        take(&value, sizeof value);
        return value;
    }

    std::string text()
    {
        const size_t length = std::min<size_t>(number(), left_);
        std::string value(length, '\0');
        plain(value.data(), length);
        return value;
    }

    void record(std::vector<uint8_t> &bytes)
    {
        if (bytes.size() <= PLAIN_SIZE)
            return plain(bytes.data(), bytes.size());
        uint32_t map = 0;
        for (size_t i = 0; i * UNIT_SIZE < bytes.size(); ++i) {
            if (i % MAPPED_UNITS == 0)
                map = number();
            if (map >> i % MAPPED_UNITS & 1) {
                uint8_t unit[UNIT_SIZE]{};
                take(unit, sizeof unit);
                const size_t at = i * UNIT_SIZE;
                memcpy(bytes.data() + at, unit, std::min(sizeof unit, bytes.size() - at));
            }
        }
    }

  private:
    void take(void *to, size_t size)
    {
        const size_t taken = std::min(size, left_);
        if (taken > 0)
            memcpy(to, at_, taken);
        at_ += taken;
        left_ -= taken;
    }

    void plain(void *to, size_t size)
    {
        take(to, size);
        uint8_t filler[4];
        take(filler, roundUp(size, 4) - size);
    }

    const uint8_t *at_;
    size_t left_;
};

void readValue(Cursor &cursor, const Argument &argument, Value &value)
{
    value.isThere = true;
    if (!argument.type || !argument.pointer) {
        value.number = cursor.number();
    } else if (argument.type->kind == Kind::text && argument.type->size == 0) {
        value.text = cursor.text();
    } else {
        if (argument.count > 1)
            value.count = std::min(cursor.number(), argument.count);
        value.bytes.assign(size_t{argument.type->size} * value.count, 0);
        cursor.record(value.bytes);
    }
}

} // namespace

uint64_t wordAt(const uint8_t *at, uint32_t size)
{
    switch (size) {
    case 1:
        return *at;
    case 2: {
        uint16_t word;
        memcpy(&word, at, sizeof word);
        return word;
    }
    case 4: {
        uint32_t word;
        memcpy(&word, at, sizeof word);
        return word;
    }
    default: {
        uint64_t word;
        memcpy(&word, at, sizeof word);
        return word;
    }
    }
}

namespace
{

uint32_t wordOf(const Type &record, const std::string &name, const uint8_t *value)
{
    const Field *field = record.find(name);
    const bool isWord =
        field && (field->type->kind == Kind::word || field->type->kind == Kind::enumeration);
    return isWord ? static_cast<uint32_t>(wordAt(value + field->offset, field->type->size)) : 0;
}

} // namespace

bool counts(const Field &field, const Type &record, const uint8_t *value)
{
    if (field.hidden)
        return false;
    if (!field.by.empty()) {
        if (std::ranges::find(field.values, wordOf(record, field.by, value)) == field.values.end())
            return false;
    } else if (field.row && field.row->options.when) {
        // As aligned as the record is.
        alignas(8) uint8_t copy[LARGEST];
        memcpy(copy, value, record.size);
        if (!field.row->options.when(copy))
            return false;
    }
    if (!field.flag.empty() && wordOf(record, field.flag, value) == 0)
        return false;
    return !field.optional || wordAt(value + field.offset, field.type->size) != describe::UNTOUCHED;
}

namespace
{

// Of the platform's object types.
std::optional<Object> objectOfType(uint32_t type, uint32_t number)
{
    switch (type) {
    case OBJ_SYSTEM:
        return Object{"system", number};
    case OBJ_PDH:
        return Object{"port", number};
    case OBJ_PWE:
        return Object{"pw", number};
    case OBJ_IMA_GROUP:
        return Object{"group", number};
    case OBJ_IMA_LINK:
        return Object{"link", number};
    default:
        return {};
    }
}

// The part of a notification that is there, and names an object.
std::optional<Object> objectOfNotification(const Type &notification, const uint8_t *value)
{
    constexpr const char *KINDS_OF[] = {"", "system", "port", "pw", "group"};
    const uint32_t type = wordOf(notification, "objType", value);
    for (const Field &part : notification.fields) {
        if (part.type->kind != Kind::record || part.count != 1 ||
            !counts(part, notification, value) || type >= std::size(KINDS_OF))
            continue;
        const auto word = [&](const char *name) {
            return wordOf(*part.type, name, value + part.offset);
        };
        constexpr uint32_t IMA = 4, LINK = 2;
        if (type != IMA)
            return Object{KINDS_OF[type], part.type->find("pwId") ? word("pwId") : word("objId")};
        return Object{word("imaType") == LINK ? "link" : "group", word("groupId")};
    }
    return {};
}

Json listOf(const Type &type, const uint8_t *value, uint32_t count, Detail detail)
{
    Json json = Json::array();
    for (uint32_t i = 0; i < count; ++i)
        json.push_back(toJson(type, value + size_t{i} * type.size, detail));
    return json;
}

Json wordJson(const Type &type, uint64_t word)
{
    for (const auto &[value, name] : type.members)
        if (value == word)
            return name;
    return word;
}

} // namespace

const Field *Type::find(std::string_view field) const
{
    const auto found =
        std::ranges::find_if(fields, [&](const Field &one) { return one.name == field; });
    return found == fields.end() ? nullptr : &*found;
}

const char *nameOf(Layer layer)
{
    return LAYERS[static_cast<size_t>(layer)];
}

std::string_view Function::shortName() const
{
    constexpr std::string_view PREFIX = "vexo_cmi_";
    return std::string_view{name}.substr(name.starts_with(PREFIX) ? PREFIX.size() : 0);
}

bool Call::isOpen(const Recording &recording) const
{
    return end == 0 && next == NONE &&
           (parent == NONE || recording.calls()[parent].isOpen(recording));
}

bool Call::isRunning(const Recording &recording) const
{
    return recording.isAlive() && isOpen(recording);
}

Json toJson(const Type &type, const uint8_t *value, Detail detail)
{
    switch (type.kind) {
    case Kind::word:
    case Kind::enumeration:
        return wordJson(type, wordAt(value, type.size));
    case Kind::text: {
        const char *text = reinterpret_cast<const char *>(value);
        return std::string(text, strnlen(text, type.size));
    }
    case Kind::mac:
        return describe::macText(value);
    case Kind::record:
        break;
    }
    Json json = Json::object();
    for (const Field &field : type.fields) {
        if ((detail != Detail::all && !counts(field, type, value)) ||
            (detail == Detail::steady && field.changes))
            continue;
        uint32_t count = field.count;
        if (detail != Detail::all && !field.counted.empty())
            count = std::min(count, wordOf(type, field.counted, value));
        json[field.name] = field.count == 1
                               ? toJson(*field.type, value + field.offset, detail)
                               : listOf(*field.type, value + field.offset, count, detail);
    }
    return json;
}

Json toJson(const Argument &argument, const Value &value, Detail detail)
{
    if (!value.isThere)
        return nullptr;
    if (!argument.type)
        return value.number;
    if (!argument.pointer)
        return wordJson(*argument.type, value.number);
    if (argument.type->kind == Kind::text && argument.type->size == 0)
        return value.text;
    if (argument.count > 1)
        return listOf(*argument.type, value.bytes.data(), value.count, detail);
    return toJson(*argument.type, value.bytes.data(), detail);
}

// ---- The file ----

Recording::Recording(const std::string &path)
{
    const Descriptor file{open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    readHead(path, file.number, head_);
    // The recorded process has a lock on it.
    struct flock lock {
    };
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_len = 1;
    alive_ = fcntl(file.number, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    std::string description(static_cast<size_t>(head_.descriptionSize), '\0');
    snapshot_.resize(static_cast<size_t>(head_.snapshotSize));
    if (!readAt(file.number, head_.descriptionOffset, description.data(), description.size()) ||
        !readAt(file.number, head_.snapshotOffset, snapshot_.data(), snapshot_.size()))
        throw FileError(path + ": can't be read: " + strerror(errno));
    if (head_.blockCount > 0) {
        try {
            readDescription(description);
        } catch (const std::exception &error) {
            throw FileError(path + ": is damaged: its description can't be read");
        }
    }
    readBlocks(file.number);
}

void Recording::readDescription(std::string_view text)
{
    const Json json = Json::parse(text);
    version_ = json.at("version");
    command_ = optional(json, "command", std::vector<std::string>{});
    const Json &types = json.at("types");
    // There before they are read: they name each other.
    types_.resize(types.size());
    for (size_t i = 0; i < types.size(); ++i)
        types_[i] = readType(types[i], types_);
    for (const Type &type : types_)
        if (!fits(type))
            throw std::out_of_range(type.name);
    for (const Json &function : json.at("functions"))
        functions_.push_back(readFunction(function, types_));
}

namespace
{

struct Span {
    uint64_t number;
    std::vector<uint8_t> bytes;
};

// A block that isn't taken anew meanwhile. Its bytes are those of its events.
bool readBlock(int descriptor, const Head &head, uint32_t place, Span &span)
{
    const uint64_t offset = head.blocksOffset + uint64_t{place} * head.blockSize;
    constexpr int TRIES = 100;
    for (int i = 0; i < TRIES; ++i) {
        struct {
            uint64_t number;
            uint32_t state, reserved;
            uint64_t filled;
        } before, after;
        static_assert(sizeof before == sizeof(Block));
        if (!readAt(descriptor, offset, &before, sizeof before) || before.number == 0)
            return false;
        const size_t used = static_cast<uint32_t>(before.filled);
        if (used > head.blockSize - sizeof(Block)) {
            span.number = 0;
            return true;
        }
        span.number = before.number;
        span.bytes.resize(used);
        if (!readAt(descriptor, offset + sizeof(Block), span.bytes.data(), used) ||
            !readAt(descriptor, offset, &after, sizeof after))
            return false;
        if (before.number == after.number)
            return true;
    }
    return false;
}

} // namespace

void Recording::readBlocks(int descriptor)
{
    std::vector<Span> spans;
    for (uint32_t i = 0; i < head_.blockCount; ++i) {
        Span span;
        if (!readBlock(descriptor, head_, i, span))
            continue;
        if (span.number == 0)
            ++damagedBlocks_;
        else
            spans.push_back(std::move(span));
    }
    // A thread takes its blocks one after the other.
    std::ranges::sort(spans, {}, &Span::number);
    std::map<uint32_t, uint32_t> places;
    std::vector<std::vector<const Event *>> eventsOf;
    for (Span &span : spans) {
        blocks_.push_back(std::move(span.bytes));
        const std::vector<uint8_t> &bytes = blocks_.back();
        uint32_t current = NONE;
        for (size_t at = 0; at + sizeof(Event) <= bytes.size();) {
            const auto &event = *reinterpret_cast<const Event *>(bytes.data() + at);
            if (event.size < sizeof event || event.size % 8 != 0 ||
                event.size > bytes.size() - at) {
                ++damagedBlocks_;
                break;
            }
            at += event.size;
            if (event.kind == EventKind::thread &&
                event.size >= sizeof event + sizeof(ThreadEvent)) {
                ThreadEvent thread;
                memcpy(&thread, &event + 1, sizeof thread);
                const auto [place, isNew] =
                    places.try_emplace(thread.number, static_cast<uint32_t>(threads_.size()));
                if (isNew) {
                    threads_.push_back({thread.id,
                                        {thread.name, strnlen(thread.name, sizeof thread.name)},
                                        event.clock,
                                        event.clock});
                    eventsOf.emplace_back();
                }
                current = place->second;
            } else if ((event.kind == EventKind::enter || event.kind == EventKind::exit) &&
                       event.function < functions_.size() && current != NONE) {
                eventsOf[current].push_back(&event);
                ++events_;
                eventBytes_ += event.size;
            } else {
                ++unknownEvents_;
                continue;
            }
            if (current != NONE)
                threads_[current].last = std::max(threads_[current].last, event.clock);
            lastClock_ = std::max(lastClock_, event.clock);
        }
    }
    calls_.reserve(static_cast<size_t>(events_ / 2 + 1));
    for (uint32_t i = 0; i < eventsOf.size(); ++i)
        readThread(i, eventsOf[i]);
    std::ranges::stable_sort(roots_, {}, [&](uint32_t root) { return calls_[root].clock(); });
}

// Calls that are in progress, from the outermost on.
void Recording::readThread(uint32_t thread, const std::vector<const Event *> &events)
{
    struct Open {
        uint32_t call;
        uint16_t depth;
        uint32_t last; // the latest call within it
    };
    std::vector<Open> open;
    uint32_t lastRoot = NONE;
    const auto add = [&](const Event &event) {
        const auto place = static_cast<uint32_t>(calls_.size());
        Call call{event.function, thread, NONE, NONE, 0, 0, nullptr, nullptr};
        uint32_t *before = &lastRoot;
        if (!open.empty()) {
            call.parent = open.back().call;
            before = &open.back().last;
        } else {
            roots_.push_back(place);
        }
        if (*before != NONE)
            calls_[*before].next = place;
        *before = place;
        calls_.push_back(call);
        return place;
    };
    for (const Event *event : events) {
        const bool enters = event->kind == EventKind::enter;
        // What is deeper has lost its end.
        while (!open.empty() &&
               (open.back().depth > event->depth || (enters && open.back().depth == event->depth)))
            open.pop_back();
        if (enters) {
            const uint32_t place = add(*event);
            calls_[place].begin = event->clock;
            calls_[place].enter = event;
            open.push_back({place, event->depth, NONE});
            continue;
        }
        const bool matches = !open.empty() && open.back().depth == event->depth &&
                             calls_[open.back().call].function == event->function;
        if (!matches && !open.empty() && open.back().depth == event->depth)
            open.pop_back();
        Call &call = calls_[matches ? open.back().call : add(*event)];
        call.end = event->clock;
        call.exit = event;
        if (matches)
            open.pop_back();
    }
}

uint32_t Recording::firstWithin(uint32_t call) const
{
    return call + 1 < calls_.size() && calls_[call + 1].parent == call ? call + 1 : NONE;
}

Content Recording::content(const Call &call) const
{
    Content content;
    read(call, content);
    return content;
}

void Recording::read(const Call &call, Content &content) const
{
    const Function &function = functionOf(call);
    content.arguments.resize(function.arguments.size());
    content.code.reset();
    content.text.reset();
    const auto readAll = [&](Cursor &cursor, const Event *event, bool outputs) {
        for (size_t i = 0; i < function.arguments.size(); ++i) {
            if (function.arguments[i].output != outputs)
                continue;
            content.arguments[i].isThere = false;
            if (event && !(event->absent >> i & 1))
                readValue(cursor, function.arguments[i], content.arguments[i]);
        }
    };
    Cursor given{call.enter};
    readAll(given, call.enter, false);
    Cursor back{call.exit};
    if (call.exit && !(call.exit->absent & NO_RESULT)) {
        if (function.returns == Returns::text) {
            content.text = back.text();
        } else if (function.returns != Returns::nothing) {
            content.code = back.number();
            if (function.returns == Returns::result && *content.code != 0)
                content.text = back.text();
        }
    }
    readAll(back, call.exit, true);
}

std::optional<Object> Recording::objectOf(const Call &call, const Content &content) const
{
    const Function &function = functionOf(call);
    const auto numberOf = [&](size_t argument) {
        return static_cast<uint32_t>(content.arguments[argument].number);
    };
    if (!call.enter || function.arguments.empty())
        return {};
    if (function.object >= 0) {
        const auto place = static_cast<size_t>(function.object);
        if (function.objectKind != "alarm")
            return Object{function.objectKind, numberOf(place)};
        return place > 0 ? objectOfType(numberOf(place - 1), numberOf(place)) : std::nullopt;
    }
    const Type *const record = function.arguments[0].type;
    const std::vector<uint8_t> &bytes = content.arguments[0].bytes;
    if (!record || record->kind != Kind::record || bytes.size() != record->size)
        return {};
    if (function.layer == Layer::handler)
        return objectOfType(wordOf(*record, "objType", bytes.data()),
                            wordOf(*record, "objId", bytes.data()));
    return function.layer == Layer::callback ? objectOfNotification(*record, bytes.data())
                                             : std::nullopt;
}

bool Recording::failed(const Call &call) const
{
    switch (functionOf(call).returns) {
    case Returns::result:
    case Returns::code:
    case Returns::status:
        return call.exit && !(call.exit->absent & NO_RESULT) && Cursor{call.exit}.number() != 0;
    case Returns::descriptor:
        return call.exit && static_cast<int>(Cursor{call.exit}.number()) < 0;
    case Returns::text:
        return call.exit && call.exit->absent & NO_RESULT;
    default:
        return false;
    }
}

void switchRecording(const std::string &path, bool on)
{
    const Descriptor file{open(path.c_str(), O_RDWR | O_CLOEXEC)};
    Head head;
    readHead(path, file.number, head);
    const uint32_t value = on;
    if (pwrite(file.number, &value, sizeof value, offsetof(Head, on)) !=
        static_cast<ssize_t>(sizeof value))
        throw FileError(path + ": can't be written: " + strerror(errno));
}

} // namespace trace
