#include "platform.h"

#include <algorithm>
#include <array>

namespace describe
{

template <>
struct Row<kvCounter> {
    static constexpr Type type{.kind = Kind::word, .name = "counter", .size = sizeof(kvCounter)};
};

RECORD(swVersion, F(text))
RECORD(sysParams, F(platform0), F(tpid), F(platform302), F(text328), F(text410), F(text425),
       F(text446), F(text461), F(number), F(psnNetType), F(temperatureThr1), F(temperatureThr2),
       F(clkOut1), F(clkOut2), F(operState, .changes = true))
RECORD(sysStatus, F(operState, .changes = true), F(version), F(values1, .changes = true),
       F(values2, .changes = true))
RECORD(pweIf, F(srcIp, .type = &HEXADECIMAL), F(platform4), F(srcMac), F(platform14), F(lops1),
       F(lops2))
RECORD(lopsThreshold, F(first), F(second))
RECORD(clkOut, F(first), F(second))
RECORD(temperatureThr, F(first), F(second))
RECORD(sysLinkStatus, F(words, .changes = true))
RECORD(peerServer, F(address, .type = &HEXADECIMAL), F(platform4))
RECORD(debugInfo, F(text), F(state))
RECORD(sysLpbk, F(lpbk), F(second))
RECORD(tpgmSetup, F(params))
RECORD(tpgmStatus, F(words, .changes = true))

RECORD(pdhParams, F(adminStatus), F(clockMode), F(clockParam), F(frameMode), F(lineCode),
       F(cableLength), F(platform22), F(niuMode), F(syncAux), F(auxParam), F(platform36))
RECORD(pdhLpbk, F(lpbk), F(platform4))

using pwEncapsulation2 = decltype(pwEncapsulation::enc2);
using pwEncapsulation3 = decltype(pwEncapsulation::enc3);
using pwEncapsulation4 = decltype(pwEncapsulation::enc4);
RECORD(pwEncapsulation2, F(platform20), F(param1), F(param2), F(param3), F(param4), F(platform42))
RECORD(pwEncapsulation3, F(param1), F(param2))
RECORD(pwEncapsulation4, F(udpMode), F(param1), F(param2), F(param3))
RECORD(pwAtmXc, F(xcId1), F(xcId2), F(xcId3), F(xcId4), F(xcType))

template <uint32_t type>
constexpr bool isEncapsulated(const pwConfig &config)
{
    return config.encType == type;
}

// The parameters of an encapsulation lie at the same place.
#define ENCAPSULATION(member, type)                                                                \
    field<decltype(pwEncapsulation::member)>(#member, offsetof(Record, enc),                       \
                                             {.when = on<isEncapsulated<type>>, .by = "encType"})
RECORD(pwConfig, F(pweType), F(adminStatus), F(pwId), F(circuit), F(encType),
       ENCAPSULATION(enc2, 2), ENCAPSULATION(enc3, 3), ENCAPSULATION(enc4, 4), F(dstMac), F(srcMac),
       F(tagMode), F(outerPriority), F(platform61), F(outerVlanId), F(priority), F(platform65),
       F(vlanId), F(rtpEnable), F(rtpSsrc), F(rtpPayloadType), F(platform77), F(jitterBufferSize),
       F(payloadSize), F(serviceOption), F(serviceFlag), F(atmMode), F(atmType), F(atmFlag1),
       F(atmFlag2), F(atmClpMap), F(atmParam1), F(atmParam2), F(atmXc, .count = "atmXcCount"),
       F(atmXcCount), F(platform368), F(aisForced), F(platform396))
RECORD(pwDefaultsKey, F(pweType), F(encType))
RECORD(pwProvList, F(pwIds, .count = "count"), F(count), F(platform2050))

RECORD(imaLinkEntry, F(linkId), F(state, .changes = true))
RECORD(imaGroupState, F(words, .changes = true))
RECORD(imaParams, F(groupParam1), F(groupParam2), F(groupParam3), F(groupState), F(linkCount),
       F(links, .count = "linkCount"))

RECORD(pdhPmStat, F(platform0), F(layoutType), F(line), F(common))
RECORD(pwGenCounters, F(counters), F(flag))
RECORD(pwAtmCounters, F(counters), F(flag))

template <uint32_t kind>
constexpr bool hasBody(const pwPmStats &stats)
{
    return stats.bodyKind == kind;
}

#define BODY(member, kind)                                                                         \
    field<decltype(pwPmCounters::member)>(#member, offsetof(Record, body),                         \
                                          {.when = on<hasBody<kind>>, .by = "bodyKind"})
RECORD(pwPmStats, F(platform0), F(bodyKind), BODY(generic, PW_PM_GENERIC), BODY(atm, PW_PM_ATM))
RECORD(pwOmEntry, F(words), F(counters))
RECORD(pwOmStats, F(counters), F(entries))
RECORD(imaGroupPmStat, F(platform0), F(counters), F(flag), F(platform44))
RECORD(imaLinkPmStat, F(platform0), F(counters), F(flag), F(platform96))
RECORD(imaGroupOmStat, F(counters), F(platform16))
RECORD(imaLinkOmStat, F(counters), F(platform64))
RECORD(sysOmStat, F(words))

RECORD(upgradeRequest, F(mode), F(constant4), F(constant8), F(serverAddress, .type = &HEXADECIMAL),
       F(fileName), F(platform80), F(constant144))
RECORD(upgradeStatus, F(platform0), F(state, .changes = true), F(mode), F(platform136), F(fileName),
       F(platform340))

RECORD(timeval, F(tv_sec, .changes = true), F(tv_usec, .changes = true))

} // namespace describe

namespace describe::platform
{

namespace
{

template <class T>
constexpr const Type *argumentType()
{
    using Pointee = std::remove_cv_t<std::remove_pointer_t<T>>;
    if constexpr (std::is_same_v<Pointee, unsigned char>) // of a MAC address
        return &Row<Mac>::type;
    else if constexpr (std::is_function_v<Pointee> || std::is_void_v<Pointee> ||
                       std::is_same_v<Pointee, struct timezone>)
        return nullptr;
    else
        return &Row<Pointee>::type;
}

constexpr std::string_view CHANGING[] = {"bits", "stat", "state", "stats", "temperature"};

constexpr bool changesByItself(std::string_view name, Direction direction)
{
    return name == "line" ||
           (direction == Direction::out && std::ranges::find(CHANGING, name) != std::end(CHANGING));
}

template <class Signature, size_t... i>
constexpr std::array<Argument, sizeof...(i)>
argumentsOf(const std::array<const char *, sizeof...(i)> &names, std::index_sequence<i...>)
{
    return {Argument{
        names[i], argumentType<typename Signature::template Argument<i>>(),
        directionOf<typename Signature::template Argument<i>>(),
        std::is_pointer_v<typename Signature::template Argument<i>>,
        changesByItself(names[i], directionOf<typename Signature::template Argument<i>>())}...};
}

constexpr struct {
    std::string_view name;
    Object kind;
} OBJECTS[] = {
    {"port", Object::port}, {"pwId", Object::pw},      {"group", Object::group},
    {"link", Object::link}, {"number", Object::alarm},
};

constexpr Function make(const char *name, Library library, Class kind, Returns returns,
                        std::span<const Argument> arguments)
{
    Function function{name, library, kind, returns, arguments, -1, Object::none};
    for (size_t i = 0; i < arguments.size() && function.object < 0; ++i)
        for (const auto &object : OBJECTS)
            if (arguments[i].name == object.name) {
                function.object = static_cast<int>(i);
                function.objectKind = object.kind;
            }
    return function;
}

template <Index index>
inline constexpr std::array<Argument, 0> ARGUMENTS{};

#define NAMES_0()
#define NAMES_1(a) #a
#define NAMES_2(a, b) #a, #b
#define NAMES_3(a, b, c) #a, #b, #c
#define NAMES_4(a, b, c, d) #a, #b, #c, #d
#define NAMES_6(a, b, c, d, e, f) #a, #b, #c, #d, #e, #f
#define ARGUMENTS_OF(library, kind, returns, function, ...)                                        \
    template <>                                                                                    \
    inline constexpr auto ARGUMENTS<Index::function> =                                             \
        argumentsOf<Signature<decltype(::function)>>(                                              \
            {PLATFORM_COUNT(NAMES, __VA_ARGS__)(__VA_ARGS__)},                                     \
            std::make_index_sequence<Signature<decltype(::function)>::count>{});
// The format that kv_log() is checked by is not part of its type.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wignored-attributes"
PLATFORM_FUNCTIONS(ARGUMENTS_OF)
#pragma GCC diagnostic pop

#define FUNCTION(library, kind, returns, function, ...)                                            \
    make(#function, Library::library, Class::kind, Returns::returns, ARGUMENTS<Index::function>),
constexpr std::array<Function, FUNCTION_COUNT> FUNCTIONS{PLATFORM_FUNCTIONS(FUNCTION)};

} // namespace

std::span<const Function, FUNCTION_COUNT> functions()
{
    return FUNCTIONS;
}

const Function *find(std::string_view name)
{
    const auto found =
        std::ranges::find_if(FUNCTIONS, [&](const Function &row) { return name == row.name; });
    return found == FUNCTIONS.end() ? nullptr : &*found;
}

std::span<const Type *const> records()
{
    static const std::vector<const Type *> all = [] {
        std::vector<const Type *> found;
        for (const Function &function : FUNCTIONS)
            for (const Argument &argument : function.arguments)
                if (argument.type)
                    addRecords(*argument.type, found);
        addRecords(Row<alarmEvent>::type, found);
        return found;
    }();
    return all;
}

FailureText failureTextOf(const Function &function)
{
    if (function.returns != Returns::code || function.library == Library::common)
        return FailureText::none;
    const bool byCode = function.library == Library::pmom || function.library == Library::upgrade;
    return byCode ? FailureText::code : FailureText::config;
}

bool canFail(const Function &function)
{
    return function.returns == Returns::code || function.returns == Returns::descriptor ||
           (function.returns == Returns::status && function.library == Library::clock);
}

} // namespace describe::platform
