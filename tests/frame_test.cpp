#include "device.h"

#include <frame/table.h>
#include <vexo_cmi/convert.h>

#include <fstream>
#include <functional>
#include <set>
#include <type_traits>

extern "C" unsigned tdmModeThroughC(unsigned mode);

namespace
{

using Frame = Device;

// No CMI value where the platform's is wanted, and the other way round.
static_assert(!std::is_convertible_v<vexoTdmMode, eqptMode>);
static_assert(!std::is_convertible_v<eqptMode, vexoTdmMode>);
static_assert(!std::is_convertible_v<vexoAdminStatus, vexoOperState>);

// A value that a table can't hold does not compile.
template <auto table, frame::Side from, frame::Side to, uint32_t other>
concept Mapped = requires
{
    frame::mapOf<table, from, to, other>();
};
constexpr frame::Table LARGE{{frame::Pair{1, 255}, {2, 256}}};
static_assert(!Mapped<LARGE, &frame::Pair::cmi, &frame::Pair::platform, 0>);
static_assert(Mapped<LARGE, &frame::Pair::platform, &frame::Pair::cmi, 255>);
static_assert(!Mapped<LARGE, &frame::Pair::platform, &frame::Pair::cmi, 256>);

TEST_F(Frame, EveryPlatformCodeBecomesItsClass)
{
    struct {
        uint32_t code, rc;
    } const expected[] = {{1, 1},         {2, 2},      {4, 4},       {8, 4},      {16, 4},
                          {32, 1},        {64, 1},     {128, 8},     {256, 16},   {512, 32},
                          {1024, 64},     {2048, 128}, {4096, 1},    {3, 1},      {5, 1},
                          {6, 1},         {12, 1},     {0x20000, 1}, {0x1000, 1}, {0x80000000, 1},
                          {0xFFFFFFFF, 1}};
    for (const auto &row : expected) {
        failing("config_get_system_mode", row.code);
        vexoTdmMode mode{77};
        vexo_cmi_sys_tdm_mode_get(&mode, &result);
        EXPECT_EQ(result.rc, row.rc) << "platform code " << row.code;
        EXPECT_STREQ(result.message, "injected fault in config_get_system_mode");
        EXPECT_EQ(mode, 77u);
    }
}

TEST_F(Frame, ASuccessClearsOneByteOfTheMessage)
{
    vexoResult marked = unwritten();
    vexo_cmi_sys_tdm_mode_set(VEXO_TDM_MODE_2, &marked);
    EXPECT_EQ(marked.rc, VEXO_RC_OK);
    EXPECT_EQ(marked.message[0], '\0');
    for (size_t i = 1; i < sizeof marked.message; ++i)
        EXPECT_EQ(marked.message[i], 0x5A) << "byte " << i;
}

TEST_F(Frame, APlatformWithoutTextsLeavesAnEmptyMessage)
{
    failing("config_get_error_string", 1, 0, 0);
    failing("kv_rc_to_string", 1, 0, 0);
    for (const char *function : {"config_get_pdh_params", "pmom_pdh_pm_stat_get"})
        failing(function, 2);
    vexoResult marked = unwritten();
    vexoPdhCode code;
    vexo_cmi_pdh_code_get(&code, 1, &marked);
    EXPECT_EQ(marked.rc, VEXO_RC_FAILURE_2);
    EXPECT_STREQ(marked.message, "");
    marked = unwritten();
    vexoPdhPm pm;
    vexo_cmi_pdh_pm_get(&pm, VEXO_PM_TYPE_1, 1, &marked);
    EXPECT_EQ(marked.rc, VEXO_RC_FAILURE_2);
    EXPECT_STREQ(marked.message, "");
    kv_sim_fault_clear();

    createPwe(VEXO_PWE_TYPE_TDM_1, 1);
    failing("config_pwe_srv_type_to_string", 1);
    vexoPweAtmXc xc[VEXO_PWE_ATM_XC_MAX];
    uint32_t count;
    vexo_cmi_pwe_atmop_xc_get(xc, &count, 1, &marked);
    EXPECT_STREQ(marked.message, "Bad PWE type ''");
}

TEST(StrcpyN, WritesExactlyItsSizeAndAlwaysTerminates)
{
    struct {
        const char *source;
        unsigned size;
        std::string written;
    } const rows[] = {
        {"abc", 4, {"abc\0", 4}},           {"abcd", 4, {"abc\0", 4}},
        {"abcdefgh", 4, {"abc\0", 4}},      {"", 8, std::string(8, '\0')},
        {"ab", 6, {"ab\0\0\0\0", 6}},       {"x", 1, {"\0", 1}},
        {nullptr, 3, std::string(3, '\0')}, {"x", 0, ""},
    };
    for (const auto &row : rows) {
        char buffer[16];
        memset(buffer, '#', sizeof buffer);
        EXPECT_EQ(strcpy_n(buffer + 1, row.source, row.size), buffer + 1);
        EXPECT_EQ(std::string(buffer, sizeof buffer),
                  "#" + row.written + std::string(15 - row.written.size(), '#'))
            << (row.source ? row.source : "null");
    }
}

// What a converter gives: its pairs, and one value for all others.
struct Conversion {
    const char *name;
    std::function<uint32_t(uint32_t)> convert;
    std::vector<std::pair<uint32_t, uint32_t>> pairs;
    uint32_t other;
};

#define CONVERSION(name, other, ...)                                                               \
    {                                                                                              \
#name, [](uint32_t value) { return convertWith(name, value); }, {__VA_ARGS__ }, other      \
    }

template <class From, class To>
uint32_t convertWith(To (*convert)(From), uint32_t value)
{
    return convert(static_cast<From>(value));
}

TEST(Converters, GiveTheirTableAndTheDefaultBesideItEachOfThem)
{
    const Conversion conversions[] = {
        CONVERSION(vexoTdmMode_to_eqptMode, 0, {1, 1}, {2, 2}, {3, 3}),
        CONVERSION(eqptMode_to_vexoTdmMode, 0, {1, 1}, {2, 2}, {3, 3}),
        CONVERSION(operState_to_vexoModuleState, 1, {0, 0}, {2, 2}, {3, 3}, {4, 4}, {6, 5}),
        CONVERSION(operState_to_vexoOperState, 0, {1, 2}, {2, 3}, {3, 1}, {4, 4}, {5, 5}),
        CONVERSION(vexoAdminStatus_to_adminStatus, 0, {1, 2}, {2, 1}, {3, 3}),
        CONVERSION(adminStatus_to_vexoAdminStatus, 0, {1, 2}, {2, 1}, {3, 3}),
        CONVERSION(vexoPdhFrameMode_to_pdhFrameMode, 0, {1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5},
                   {6, 6}),
        CONVERSION(pdhFrameMode_to_vexoPdhFrameMode, 0, {1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5},
                   {6, 6}),
        CONVERSION(vexoPdhCode_to_pdhCode, 0, {1, 1}, {2, 2}, {3, 3}, {4, 4}),
        CONVERSION(pdhCode_to_vexoPdhCode, 0, {1, 1}, {2, 2}, {3, 3}, {4, 4}),
        CONVERSION(vexoPdhNiuMode_to_pdhNiuMode, 0, {1, 1}, {2, 2}, {3, 3}, {4, 4}),
        CONVERSION(pdhNiuMode_to_vexoPdhNiuMode, 0, {1, 1}, {2, 2}, {3, 3}, {4, 4}),
        CONVERSION(vexoPdhSyncMode_to_pdhClockMode, 0, {1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}),
        CONVERSION(pdhClockMode_to_vexoPdhSyncMode, 0, {1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}),
        CONVERSION(vexoLpbk_to_lpbk, 0, {1, 1}, {2, 2}, {3, 3}, {4, 7}),
        CONVERSION(lpbk_to_vexoLpbk, 0, {1, 1}, {2, 2}, {3, 3}, {7, 4}),
        CONVERSION(vexoPmType_to_pmInterval, 0, {1, 1}, {2, 2}, {3, 3}, {4, 4}),
        CONVERSION(vexoPmInterval_to_pmInterval, 0, {1, 1}, {2, 2}, {3, 3}),
        CONVERSION(pmInterval_to_vexoPmInterval, 0, {1, 1}, {2, 2}, {3, 3}),
        CONVERSION(vexoVlanMode_to_tagMode, 0, {1, 1}, {2, 2}, {3, 3}, {4, 4}),
        CONVERSION(tagMode_to_vexoVlanMode, 0, {1, 1}, {2, 2}, {3, 3}, {4, 4}),
        CONVERSION(vexoPweUdpMode_to_pweIpUdpMode, 0, {1, 1}, {2, 2}, {3, 3}),
        CONVERSION(pweIpUdpMode_to_vexoPweUdpMode, 0, {1, 1}, {2, 2}, {3, 3}),
        CONVERSION(vexoPweType_to_pweType, 0, {1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 6}),
        CONVERSION(pweType_to_vexoPweType, 0, {1, 1}, {2, 2}, {3, 3}, {4, 4}, {6, 5}),
        CONVERSION(vexoPwePsnType_to_pweEncType, 0, {1, 2}, {2, 3}, {3, 4}, {4, 1}, {5, 5}),
        CONVERSION(pweEncType_to_vexoPwePsnType, 0, {1, 4}, {2, 1}, {3, 2}, {4, 3}, {5, 5}),
        CONVERSION(objType_to_vexoObjType, 0, {0, 1}, {1, 2}, {2, 4}, {3, 3}, {34, 4}),
        CONVERSION(vexoPweAtmXcType_to_pweAtmXcType, 0, {1, 2}, {2, 3}, {3, 1}),
        CONVERSION(pweAtmXcType_to_vexoPweAtmXcType, 0, {1, 3}, {2, 1}, {3, 2}),
        CONVERSION(vexoAlarmMode_to_alarmMode, 0, {1, 2}, {2, 4}),
        CONVERSION(vexoAtmMode_to_atmMode, 2, {1, 1}),
        CONVERSION(atmMode_to_vexoAtmMode, 0, {1, 1}, {2, 2}),
        CONVERSION(vexoAtmType_to_atmType, 1, {2, 2}),
        CONVERSION(atmType_to_vexoAtmType, 0, {1, 1}, {2, 2}),
        CONVERSION(vexoAtmClpMode_to_atmClpMap, 1, {2, 2}, {3, 3}, {4, 4}),
        CONVERSION(atmClpMap_to_vexoAtmClpMode, 0, {1, 1}, {2, 2}, {3, 3}, {4, 4}),
        CONVERSION(vexoNetQuality_to_psnNetType, 0, {1, 1}, {2, 2}),
        CONVERSION(psnNetType_to_vexoNetQuality, 0, {1, 1}, {2, 2}),
        CONVERSION(vexoUpgradeMode_to_UpgradeMode, 1, {2, 2}),
        CONVERSION(UpgradeMode_to_vexoUpgradeMode, 0, {1, 1}, {2, 2}),
        CONVERSION(UpgradeState_to_vexoUpgradeState, 1, {2, 2}, {3, 3}, {4, 4}, {5, 5}, {6, 6}),
        CONVERSION(DebugState_to_vexoDebugState, 1, {2, 2}, {3, 3}),
    };
    std::vector<uint32_t> values{0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF,
                                 0x100,      0x101,      0x10001,    0x1000001};
    for (uint32_t value = 0; value < 300; ++value)
        values.push_back(value);
    // These two have tests of their own.
    std::set<std::string> tested{"alarmMode_to_vexoAlarmMode", "swVersion_to_vexoSwVersion"};
    for (const Conversion &conversion : conversions) {
        tested.insert(conversion.name);
        for (uint32_t value : values) {
            uint32_t expected = conversion.other;
            for (const auto &[from, to] : conversion.pairs)
                expected = from == value ? to : expected;
            EXPECT_EQ(conversion.convert(value), expected) << conversion.name << " of " << value;
        }
    }

    std::ifstream map{EXPORTS};
    for (std::string name; map >> name;)
        if (name.find("_to_") != name.npos) {
            name.pop_back();
            EXPECT_TRUE(tested.contains(name))
                << name << "() needs a row CONVERSION(" << name << ", ...) in tests/frame_test.cpp";
        }
}

TEST(Converters, ReadTheAlarmReportModeBitByBit)
{
    for (uint32_t value : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 12u, 0xFFFFFFF9u, 0xFFFFFFFFu}) {
        const uint32_t expected = value & 2 ? 1 : value & 4 ? 2 : 0;
        EXPECT_EQ(alarmMode_to_vexoAlarmMode(alarmMode{value}), expected) << value;
    }
}

TEST(Converters, CopyVersionsButTakeTheHostsFromTheHost)
{
    swVersion from;
    memset(&from, 'v', sizeof from);
    snprintf(from.text[2], sizeof from.text[2], "2.0");
    vexoSwVersion to;
    memset(&to, '#', sizeof to);
    swVersion_to_vexoSwVersion(&from, &to);
    for (unsigned i = 0; i < 10; ++i) {
        const std::string expected = i == VEXO_SW_VERSION_GORV ? "test host 1.0"
                                     : i == 2                  ? "2.0"
                                                               : std::string(127, 'v');
        EXPECT_EQ(to.text[i], expected) << "text " << i;
    }
}

TEST(CProgram, UsesTheInterfaceWithTheSameLayout)
{
    EXPECT_EQ(tdmModeThroughC(3), 3u);
    EXPECT_EQ(tdmModeThroughC(4), 0u);
}

} // namespace
