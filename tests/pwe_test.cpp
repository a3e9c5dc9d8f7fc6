#include "device.h"

#include <vexo_cmi/convert.h>

#include <array>
#include <optional>
#include <ostream>
#include <set>

#include <dlfcn.h>

namespace
{

// What the platform answers instead of the device, and what it was sent.
std::optional<pwConfig> stored;
std::optional<pwConfig> added, changed;

template <class Function>
Function *next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

// The executable's functions come first: records that no device holds can be put under the library.
kvRc config_get_pw(pwConfig *out, uint32_t pwId)
{
    if (!stored)
        return next<decltype(config_get_pw)>("config_get_pw")(out, pwId);
    *out = *stored;
    return KV_OK;
}

kvRc config_get_pw_defaults(pwConfig *out, const pwDefaultsKey *key, uint32_t pwId)
{
    if (!stored)
        return next<decltype(config_get_pw_defaults)>("config_get_pw_defaults")(out, key, pwId);
    *out = *stored;
    return KV_OK;
}

kvRc config_add_pw(const pwConfig *in, uint32_t pwId)
{
    if (!stored)
        return next<decltype(config_add_pw)>("config_add_pw")(in, pwId);
    added = *in;
    return KV_OK;
}

kvRc config_set_pw(const pwConfig *in, uint32_t pwId)
{
    if (!stored)
        return next<decltype(config_set_pw)>("config_set_pw")(in, pwId);
    changed = *in;
    return KV_OK;
}

kvRc config_get_pw_oper_state(operState *out, uint32_t pwId)
{
    if (!stored)
        return next<decltype(config_get_pw_oper_state)>("config_get_pw_oper_state")(out, pwId);
    *out = operState{3};
    return KV_OK;
}

namespace
{

// A record as bytes, by the offsets of the interface.
template <class Record>
struct Bytes {
    explicit Bytes(uint8_t byte) { bytes.fill(byte); }
    explicit Bytes(const Record &record) { memcpy(bytes.data(), &record, sizeof record); }

    void put(size_t offset, uint32_t value, size_t width = 4)
    {
        memcpy(&bytes[offset], &value, width);
    }
    void putMac(size_t offset, uint8_t first) { std::fill_n(&bytes[offset], 6, first); }

    Record record() const
    {
        Record made;
        memcpy(&made, bytes.data(), sizeof made);
        return made;
    }

    // Where a record, or a part of one, differs.
    std::string differenceTo(const void *other, size_t from = 0,
                             size_t count = sizeof(Record)) const
    {
        const auto *read = static_cast<const uint8_t *>(other);
        for (size_t i = 0; i < count; ++i)
            if (bytes[from + i] != read[i])
                return "at offset " + std::to_string(from + i) + ": " + std::to_string(read[i]) +
                       " instead of " + std::to_string(bytes[from + i]);
        return "";
    }

    std::array<uint8_t, sizeof(Record)> bytes;
};

enum Part { VLAN, PSN, SERVICE, RTP };

enum Kind {
    PLAIN,
    FLAGGED,   // counts if the word behind it isn't 0
    NONZERO,   // counts if it isn't 0
    TWO_STATE, // counts if it is 1 or 2
    ON_OFF,    // 1 of the platform if it is 2, else 0
};

// A value of the CMI, in a part of the agent's record, and what stands for it in the platform's.
struct Row {
    Part part;
    std::set<uint32_t> when; // VLAN modes, PSN types or pseudowire types
    size_t cmiAt;
    Kind kind;
    uint32_t cmi;
    size_t platformAt;
    size_t width;
    uint32_t platform;
};

const Row ROWS[] = {
    {VLAN, {0, 2, 3, 4, 5}, 20, FLAGGED, 0x1A01, 66, 2, 0x1A01},
    {VLAN, {0, 2, 3, 4, 5}, 28, FLAGGED, 0xA2, 64, 1, 0xA2},
    {VLAN, {3}, 4, FLAGGED, 0x1A03, 62, 2, 0x1A03},
    {VLAN, {3}, 12, FLAGGED, 0xA4, 60, 1, 0xA4},

    {PSN, {1}, 4, FLAGGED, 0xB0000001, 32, 4, 0xB0000001},
    {PSN, {1}, 12, FLAGGED, 0xB0000002, 36, 4, 0xB0000002},
    {PSN, {1}, 20, FLAGGED, 0xB3, 40, 1, 0xB3},
    {PSN, {1}, 28, FLAGGED, 0xB4, 41, 1, 0xB4},
    {PSN, {2}, 4, FLAGGED, 0xB0000005, 20, 4, 0xB0000005},
    {PSN, {2}, 12, FLAGGED, 0xB0000006, 24, 4, 0xB0000006},
    {PSN, {3}, 28, PLAIN, 2, 20, 4, 2},
    {PSN, {3}, 4, FLAGGED, 0xB0000007, 24, 4, 0xB0000007},
    {PSN, {3}, 12, FLAGGED, 0xB0000008, 28, 4, 0xB0000008},
    {PSN, {3}, 20, FLAGGED, 0xB0000009, 32, 4, 0xB0000009},

    {SERVICE, {1}, 0, PLAIN, 0xC0000001, 12, 4, 0xC0000001},
    {SERVICE, {1}, 4, NONZERO, 0xC0000002, 80, 4, 0xC0000002},
    {SERVICE, {1}, 8, NONZERO, 0xC0000003, 84, 4, 0xC0000003},
    {SERVICE, {2}, 0, PLAIN, 0xC0000004, 12, 4, 0xC0000004},
    {SERVICE, {2}, 4, FLAGGED, 0xC0000005, 88, 4, 0xC0000005},
    {SERVICE, {2}, 12, NONZERO, 0xC0000006, 80, 4, 0xC0000006},
    {SERVICE, {2}, 16, NONZERO, 0xC0000007, 84, 4, 0xC0000007},
    {SERVICE, {2}, 20, TWO_STATE, 1, 92, 4, 1},
    {SERVICE, {3, 4}, 0, PLAIN, 0xC0000008, 12, 4, 0xC0000008},
    {SERVICE, {3, 4}, 4, NONZERO, 0xC0000009, 84, 4, 0xC0000009},
    {SERVICE, {3, 4}, 8, NONZERO, 0xC000000A, 88, 4, 0xC000000A},
    {SERVICE, {3, 4}, 12, TWO_STATE, 2, 92, 4, 1},
    {SERVICE, {3, 4}, 16, PLAIN, 1, 96, 4, 1},
    {SERVICE, {3, 4}, 20, PLAIN, 2, 100, 4, 2},
    {SERVICE, {3, 4}, 24, TWO_STATE, 1, 104, 4, 0},
    {SERVICE, {3, 4}, 28, TWO_STATE, 2, 108, 4, 1},
    {SERVICE, {3, 4}, 32, PLAIN, 3, 112, 4, 3},
    {SERVICE, {3, 4}, 36, PLAIN, 0xC000000B, 116, 4, 0xC000000B},
    {SERVICE, {3, 4}, 40, PLAIN, 0xC000000C, 120, 4, 0xC000000C},

    {RTP, {1, 2}, 0, ON_OFF, 2, 68, 4, 1},
    {RTP, {1, 2}, 4, FLAGGED, 0xD1, 76, 1, 0xD1},
    {RTP, {1, 2}, 12, FLAGGED, 0xD0000002, 72, 4, 0xD0000002},
};

// The types of a record; `full`: what need not count does.
struct Case {
    uint32_t type, psn, mode;
    bool full = true;

    bool has(const Row &row) const
    {
        return row.when.contains(row.part == VLAN ? mode : row.part == PSN ? psn : type);
    }

    // Where a part begins in vexoPweParams; 8 bytes further in vexoPweParamsInfo.
    size_t start(Part part) const
    {
        const size_t starts[] = {20, 56, 120, type == VEXO_PWE_TYPE_TDM_1 ? 132u : 144u};
        return starts[part];
    }

    vexoPweParams params() const
    {
        Bytes<vexoPweParams> made{0x5A};
        made.put(0, type);
        made.put(8, VEXO_ADMIN_STATUS_1);
        made.putMac(12, 0xE1);
        made.put(start(VLAN), mode);
        made.put(start(PSN), psn);
        for (const Row &row : ROWS) {
            if (!has(row))
                continue;
            const size_t at = start(row.part) + row.cmiAt;
            const uint32_t leftAlone = row.kind == NONZERO ? 0 : 3;
            const bool counts = full || row.kind == PLAIN || row.kind == FLAGGED;
            // What the platform's field has no room for is cut.
            const uint32_t beyond = row.width < 4 ? ~0U << 8 * row.width : 0;
            made.put(at, counts ? row.cmi | beyond : leftAlone);
            if (row.kind == FLAGGED)
                made.put(at + 4, full ? 0x100 : 0);
        }
        return made.record();
    }

    void overlay(Bytes<pwConfig> &record, std::initializer_list<Part> parts) const
    {
        for (const Part part : parts) {
            if (part == VLAN)
                record.put(56, vexoVlanMode_to_tagMode(vexoVlanMode{mode}));
            if (part == PSN)
                record.put(16, vexoPwePsnType_to_pweEncType(vexoPwePsnType{psn}));
            for (const Row &row : ROWS)
                if (row.part == part && has(row) && (full || row.kind == PLAIN))
                    record.put(row.platformAt, row.platform, row.width);
                else if (row.part == part && has(row) && row.kind == ON_OFF)
                    record.put(row.platformAt, 0);
        }
    }

    void extract(Bytes<vexoPweParamsInfo> &info, Part part) const
    {
        if (part == VLAN)
            info.put(start(VLAN) + 8, mode);
        if (part == PSN)
            info.put(start(PSN) + 8, psn);
        for (const Row &row : ROWS)
            if (row.part == part && has(row)) {
                info.put(start(part) + 8 + row.cmiAt, row.cmi);
                if (row.kind == FLAGGED)
                    info.put(start(part) + 12 + row.cmiAt, 1);
            }
    }

    const char *refusal() const
    {
        return psn == 4 ? "Not supported" : psn == 5 ? "Not implemented" : "";
    }
    bool isRefused() const { return *refusal() != '\0'; }
    bool isTdm() const { return type == 1 || type == 2; }
};

std::ostream &operator<<(std::ostream &out, const Case &shown)
{
    return out << "type " << shown.type << ", PSN " << shown.psn << ", VLAN " << shown.mode
               << (shown.full ? "" : ", nothing counts");
}

// Values beside the enumerations, too. A platform's type beside them is read as 0.
std::vector<Case> cases(bool read)
{
    const uint32_t beside = read ? 0 : 1;
    std::vector<Case> all;
    for (uint32_t type = 0; type <= 5 + beside; ++type)
        for (uint32_t psn = 0; psn <= 5 + beside; ++psn)
            for (uint32_t mode = 0; mode <= 4 + beside; ++mode)
                for (const bool full : {true, false})
                    if (full || !read)
                        all.push_back({type, psn, mode, full});
    return all;
}

class PweRecord : public Device
{
  protected:
    void TearDown() override { stored.reset(); }

    static constexpr uint8_t PLATFORMS = 0x77;

    // Bytes of the platform's own, and what a case has in it.
    static Bytes<pwConfig> holding(const Case &held)
    {
        Bytes<pwConfig> record{PLATFORMS};
        held.overlay(record, {VLAN, PSN, SERVICE, RTP});
        record.put(0, vexoPweType_to_pweType(vexoPweType{held.type}));
        record.put(4, 2);
        record.putMac(44, 0xE1);
        record.putMac(50, 0xE2);
        return record;
    }

    void expectRefusal(const Case &refused)
    {
        EXPECT_EQ(result.rc, refused.isRefused() ? VEXO_RC_GENERAL : VEXO_RC_OK);
        EXPECT_STREQ(result.message, refused.refusal());
        EXPECT_EQ(result.message[strlen(result.message) + 1], 0x5A) << "written behind the text";
    }
};

TEST_F(PweRecord, IsSetFieldByField)
{
    constexpr uint32_t PW = 77;
    stored = Bytes<pwConfig>{PLATFORMS}.record();
    for (const Case &set : cases(false))
        for (const uint32_t action : {0u, 2u, 3u}) {
            SCOPED_TRACE(set);
            vexoPweParams params = set.params();
            params.pweAction = vexoPweAction{action};
            Bytes<pwConfig> expected{*stored};
            expected.put(0, vexoPweType_to_pweType(params.pweType));
            expected.put(4, 2);
            expected.put(8, PW);
            expected.putMac(44, 0xE1);
            set.overlay(expected, {VLAN, PSN, SERVICE, RTP});
            added.reset();
            changed.reset();
            result = unwritten();
            vexo_cmi_pwe_params_set(&params, PW, &result);
            expectRefusal(set);
            ASSERT_EQ(added.has_value(), !set.isRefused() && action == 2);
            ASSERT_EQ(changed.has_value(), !set.isRefused() && action != 2);
            if (!set.isRefused()) {
                ASSERT_EQ(expected.differenceTo(added ? &*added : &*changed), "");
            }
        }
}

TEST_F(PweRecord, IsReadFieldByField)
{
    for (const Case &read : cases(true)) {
        SCOPED_TRACE(read);
        stored = holding(read).record();
        Bytes<vexoPweParamsInfo> expected{0};
        expected.put(0, read.type);
        expected.put(4, 2);
        expected.put(8, VEXO_ADMIN_STATUS_1);
        expected.put(12, VEXO_OPER_STATE_1);
        expected.putMac(16, 0xE2);
        expected.putMac(22, 0xE1);
        read.extract(expected, VLAN);
        read.extract(expected, PSN);
        if (!read.isRefused()) {
            read.extract(expected, SERVICE);
            read.extract(expected, RTP);
        }
        vexoPweParamsInfo info;
        memset(&info, 0x5A, sizeof info);
        result = unwritten();
        vexo_cmi_pwe_params_get(&info, 1, &result);
        expectRefusal(read);
        ASSERT_EQ(expected.differenceTo(&info), "");
    }
}

TEST_F(PweRecord, ChangesOnlyInASingleAttributeThatIsSet)
{
    const auto expectChange = [](const Bytes<pwConfig> &expected) {
        ASSERT_TRUE(changed.has_value());
        EXPECT_EQ(expected.differenceTo(&*changed), "");
        changed.reset();
    };
    for (const Case &set : cases(false)) {
        SCOPED_TRACE(set);
        Bytes<pwConfig> before{PLATFORMS};
        before.put(0, vexoPweType_to_pweType(vexoPweType{set.type}));
        stored = before.record();
        changed.reset();
        const vexoPweParams params = set.params();

        vexo_cmi_pwe_vlan_set(&params.vlan, 1, &result);
        Bytes<pwConfig> expected = before;
        set.overlay(expected, {VLAN});
        expectChange(expected);

        vexo_cmi_pwe_dst_mac_set(params.dstMac, 1, &result);
        expected = before;
        expected.putMac(44, 0xE1);
        expectChange(expected);

        result = unwritten();
        vexo_cmi_pwe_psn_set(&params.psn, 1, &result);
        expectRefusal(set);
        expected = before;
        set.overlay(expected, {PSN});
        if (!set.isRefused())
            expectChange(expected);

        vexo_cmi_pwe_payload_set(set.full ? 4711 : 0, 1, &result);
        EXPECT_STREQ(result.message, set.isTdm() ? "" : "Bad PWE type");
        expected = before;
        if (set.full)
            expected.put(84, 4711);
        if (set.isTdm())
            expectChange(expected);

        const vexoPweRtp &rtp =
            set.type == VEXO_PWE_TYPE_TDM_2 ? params.service.t2.rtp : params.service.t1.rtp;
        vexo_cmi_pwe_rtp_set(&rtp, 1, &result);
        EXPECT_STREQ(result.message, set.isTdm() ? "" : "Bad PWE type");
        expected = before;
        if (set.full) // by itself a mode that is neither on nor off changes nothing
            set.overlay(expected, {RTP});
        if (set.isTdm())
            expectChange(expected);
        EXPECT_FALSE(changed.has_value());
    }
}

TEST_F(PweRecord, GivesSingleAttributesAsInTheWhole)
{
    for (const Case &read : cases(true)) {
        SCOPED_TRACE(read);
        Bytes<pwConfig> held = holding(read);
        if (read.isTdm()) {
            held.put(80, 1111);
            held.put(84, 2222);
        }
        stored = held.record();
        Bytes<vexoPweParamsInfo> whole{0};
        read.extract(whole, VLAN);
        read.extract(whole, PSN);
        if (read.isTdm())
            read.extract(whole, RTP);
        struct {
            vexoPweVlan vlan;
            vexoPwePsn psn;
            vexoPweRtp rtp;
            uint32_t jitter, payload, ais;
        } got;
        memset(&got, 0x5A, sizeof got);
        vexo_cmi_pwe_vlan_get(&got.vlan, 1, &result);
        EXPECT_EQ(whole.differenceTo(&got.vlan, 28, sizeof got.vlan), "");
        result = unwritten();
        vexo_cmi_pwe_psn_get(&got.psn, 1, &result);
        expectRefusal(read);
        EXPECT_EQ(whole.differenceTo(&got.psn, 64, sizeof got.psn), "");
        vexo_cmi_pwe_rtp_get(&got.rtp, 1, &result);
        EXPECT_EQ(whole.differenceTo(&got.rtp, 8 + read.start(RTP), sizeof got.rtp), "");
        vexo_cmi_pwe_pdv_get(&got.jitter, 1, &result);
        EXPECT_STREQ(result.message, read.isTdm() ? "" : "Bad PWE type");
        vexo_cmi_pwe_payload_get(&got.payload, 1, &result);
        EXPECT_STREQ(result.message, read.isTdm() ? "" : "Bad PWE type");
        vexo_cmi_pwe_atm_force_ais_get(&got.ais, 1, &result);
        EXPECT_EQ(got.jitter, read.isTdm() ? 1111 : 0x5A5A5A5A);
        EXPECT_EQ(got.payload, read.isTdm() ? 2222 : 0x5A5A5A5A);
        EXPECT_EQ(got.ais, 1u) << "of 0x77777777";
    }
}

TEST_F(PweRecord, IsReadAsOffOrClearWhereAFieldIsNot1)
{
    for (const uint32_t word : {0u, 2u}) {
        Bytes<pwConfig> record{0};
        for (const size_t offset : {68u, 92u, 104u, 108u})
            record.put(offset, word);
        const auto read = [&](uint32_t type) {
            record.put(0, type);
            stored = record.record();
            vexoPweParamsInfo info;
            vexo_cmi_pwe_params_get(&info, 1, &result);
            return info.service;
        };
        const vexoPweRtp off{VEXO_PWE_RTP_OFF, 0, 0, 0, 0, {}};
        const vexoPweService t2 = read(VEXO_PWE_TYPE_TDM_2), a = read(VEXO_PWE_TYPE_ATM_3);
        EXPECT_EQ(memcmp(&t2.t2.rtp, &off, sizeof off), 0);
        EXPECT_EQ(t2.t2.serviceFlag, 2u);
        EXPECT_EQ(a.a.serviceFlag, 1u);
        EXPECT_EQ(a.a.atmFlag1, 1u);
        EXPECT_EQ(a.a.atmFlag2, 1u);
    }
}

TEST_F(PweRecord, HasItsCrossConnectsClampedToItsRoom)
{
    for (uint32_t count : {0u, 1u, 19u, 20u, 21u, 0xFFFFFFFFu}) {
        pwConfig record{};
        record.pweType = PWE_TYPE_ATM_4;
        record.atmXcCount = count;
        for (uint16_t i = 0; i < PW_ATM_XC_MAX; ++i)
            record.atmXc[i] = {uint16_t(i + 100), uint16_t(i + 200), uint16_t(i + 300),
                               uint16_t(i + 400), pweAtmXcType{i}};
        stored = record;
        vexoPweAtmXc xc[VEXO_PWE_ATM_XC_MAX + 1];
        memset(xc, 0x5A, sizeof xc);
        uint32_t used = 99;
        vexo_cmi_pwe_atmop_xc_get(xc, &used, 1, &result);
        EXPECT_OK(result);
        EXPECT_EQ(used, std::min(count, 20u));
        for (uint32_t i = 0; i < used; ++i) {
            const vexoPweAtmXc expected{pweAtmXcType_to_vexoPweAtmXcType(pweAtmXcType{i}), 100 + i,
                                        200 + i, 300 + i, 400 + i};
            EXPECT_EQ(memcmp(&xc[i], &expected, sizeof expected), 0) << i;
        }
        EXPECT_EQ(xc[used].xcType, 0x5A5A5A5Au);
    }
}

using Pwe = Device;

TEST_F(Pwe, ADeleteReadsNothingElse)
{
    vexoPweParams params;
    memset(&params, 0xFF, sizeof params);
    params.pweAction = VEXO_PWE_ACTION_DELETE;
    mark();
    vexo_cmi_pwe_params_set(&params, 9, &result);
    EXPECT_EQ(result.rc, VEXO_RC_GENERAL);
    EXPECT_STREQ(result.message, "pseudowire 9 is not provisioned");
    EXPECT_EQ(calls(), Names{"config_del_pw"});
}

TEST_F(Pwe, AMissingOneIsReadAsMissingAndNotAsAFailure)
{
    vexoPweParamsInfo info;
    memset(&info, 0x5A, sizeof info);
    result = unwritten();
    vexo_cmi_pwe_params_get(&info, 9, &result);
    EXPECT_EQ(result.rc, VEXO_RC_OK);
    EXPECT_EQ(result.message[0], '\0');
    vexoPweParamsInfo expected{};
    expected.pweAction = vexoPweAction{1};
    EXPECT_EQ(memcmp(&info, &expected, sizeof info), 0);
    vexoAdminStatus status;
    vexo_cmi_pwe_admin_get(&status, 9, &result);
    EXPECT_EQ(result.rc, VEXO_RC_GENERAL);
}

TEST_F(Pwe, AnUnreadableStateLeavesTheHeaderFilled)
{
    createPwe(VEXO_PWE_TYPE_TDM_2, 5);
    failing("config_get_pw_oper_state", 1024);
    vexoPweParamsInfo info;
    memset(&info, 0x5A, sizeof info);
    vexo_cmi_pwe_params_get(&info, 5, &result);
    EXPECT_EQ(result.rc, VEXO_RC_FAILURE_64);
    vexoPweParamsInfo expected{};
    expected.pweType = VEXO_PWE_TYPE_TDM_2;
    expected.pweAction = VEXO_PWE_ACTION_CREATE;
    expected.adminStatus = VEXO_ADMIN_STATUS_1;
    EXPECT_EQ(memcmp(&info, &expected, sizeof info), 0);
}

TEST_F(Pwe, LivesFromTheDefaultsThroughAModifyToADelete)
{
    vexoPweParams params = newPwe(VEXO_PWE_TYPE_TDM_1);
    params.service.t1.circuit = 3;
    mark();
    vexo_cmi_pwe_params_set(&params, 1024, &result);
    EXPECT_OK(result);
    EXPECT_EQ(calls(), (Names{"config_get_pw_defaults", "config_add_pw"}));
    const auto key = given<pwDefaultsKey>("config_get_pw_defaults");
    EXPECT_EQ(key.pweType, 1u);
    EXPECT_EQ(key.encType, 3u);
    vexo_cmi_pwe_params_set(&params, 1024, &result);
    EXPECT_STREQ(result.message, "pseudowire 1024 is provisioned already");
    vexo_cmi_pwe_params_set(&params, 1025, &result);
    EXPECT_EQ(result.rc, VEXO_RC_FAILURE_4);

    params.pweAction = VEXO_PWE_ACTION_MODIFY;
    params.service.t1.payloadSize = 128;
    vexo_cmi_pwe_params_set(&params, 1024, &result);
    EXPECT_OK(result);
    vexoPweParamsInfo info;
    vexo_cmi_pwe_params_get(&info, 1024, &result);
    EXPECT_EQ(info.service.t1.payloadSize, 128u);
    EXPECT_EQ(info.service.t1.jitterBufferSize, 5000u) << "the default";
    EXPECT_EQ(info.operState, VEXO_OPER_STATE_1);
    ASSERT_EQ(kv_sim_alarm_set(KV_SIM_PW, 1024, 4), 0);
    vexo_cmi_pwe_params_get(&info, 1024, &result);
    EXPECT_EQ(info.operState, VEXO_OPER_STATE_2) << "an alarm takes it down";

    params.pweAction = VEXO_PWE_ACTION_DELETE;
    vexo_cmi_pwe_params_set(&params, 1024, &result);
    EXPECT_OK(result);
    vexo_cmi_pwe_params_get(&info, 1024, &result);
    EXPECT_EQ(info.pweAction, VEXO_PWE_ACTION_DELETE);
}

TEST_F(Pwe, CrossConnectsAreAddedListedAndRefused)
{
    createPwe(VEXO_PWE_TYPE_ATM_3, 1);
    createPwe(VEXO_PWE_TYPE_TDM_1, 2);
    vexoPweAtmXc xc{VEXO_PWE_ATM_XC_TYPE_2, 0x10001, 2, 3, 4};
    mark();
    vexo_cmi_pwe_atmop_xc_set(&xc, 1, &result);
    EXPECT_OK(result);
    const auto record = given<pwAtmXc>("config_add_pw_atm_xc");
    EXPECT_EQ(record.xcId1, 1u);
    EXPECT_EQ(record.xcType, 3u);

    struct {
        uint32_t type, pwId;
        const char *text;
    } const refusals[] = {
        {2, 1, "pseudowire 1 has this cross-connect already"},
        {9, 1, "cross-connect type 0 is not one of 1 to 3"},
        {2, 2, "pseudowire 2 is not ATM"},
        {2, 3, "pseudowire 3 is not provisioned"},
    };
    for (const auto &row : refusals) {
        xc.xcType = vexoPweAtmXcType{row.type};
        vexo_cmi_pwe_atmop_xc_set(&xc, row.pwId, &result);
        EXPECT_STREQ(result.message, row.text);
    }
    xc.xcType = VEXO_PWE_ATM_XC_TYPE_2;
    for (uint32_t id = 2; id <= 20; ++id) {
        xc.xcId1 = id;
        vexo_cmi_pwe_atmop_xc_set(&xc, 1, &result);
        ASSERT_OK(result);
    }
    xc.xcId1 = 21;
    vexo_cmi_pwe_atmop_xc_set(&xc, 1, &result);
    EXPECT_STREQ(result.message, "pseudowire 1 has 20 cross-connects, no more can be");
    xc.xcId1 = 5;
    vexo_cmi_pwe_atmop_xc_delete(&xc, 1, &result);
    EXPECT_OK(result);
    vexo_cmi_pwe_atmop_xc_delete(&xc, 1, &result);
    EXPECT_STREQ(result.message, "pseudowire 1 has no such cross-connect");

    vexoPweAtmXc list[VEXO_PWE_ATM_XC_MAX];
    uint32_t count;
    vexo_cmi_pwe_atmop_xc_get(list, &count, 1, &result);
    EXPECT_OK(result);
    EXPECT_EQ(count, 19u);
    EXPECT_EQ(list[3].xcId1, 4u);
    EXPECT_EQ(list[4].xcId1, 6u);
    EXPECT_EQ(list[4].xcType, VEXO_PWE_ATM_XC_TYPE_2);
    count = 77;
    vexo_cmi_pwe_atmop_xc_get(list, &count, 2, &result);
    EXPECT_STREQ(result.message, "Bad PWE type 'tdm-1'");
    EXPECT_EQ(count, 77u);
}

TEST_F(Pwe, PmCountersComeInTheKindThatThePlatformHasWhateverTheType)
{
    createPwe(VEXO_PWE_TYPE_ATM_4, 1);
    // Word 0 is the kind; counters follow, and the flag behind them.
    const auto read = [&](uint32_t kind, uint32_t flagWord, uint32_t flag) {
        for (uint32_t word = 1; word <= 14; ++word)
            kv_sim_pm_set(KV_SIM_PW, 1, 4, word, word == flagWord ? flag : 100 + word);
        kv_sim_pm_set(KV_SIM_PW, 1, 4, 0, kind);
        vexoPwePm pm;
        memset(&pm, 0x5A, sizeof pm);
        result = unwritten();
        vexo_cmi_pwe_pm_get(&pm, VEXO_PM_TYPE_4, 1, &result);
        EXPECT_EQ(pm.pmType, VEXO_PM_TYPE_4);
        EXPECT_EQ(pm.pweType, VEXO_PWE_TYPE_ATM_4);
        return pm.body;
    };
    EXPECT_EQ(read(0, 14, 1).generic.counters[12], 113u);
    EXPECT_EQ(read(0, 14, 1).generic.valid, 1u);
    EXPECT_EQ(read(0, 14, 2).generic.valid, 0u);
    EXPECT_EQ(read(1, 5, 1).atm.counters[3], 104u);
    EXPECT_EQ(read(1, 5, 1).atm.valid, 1u);
    EXPECT_EQ(read(1, 5, 2).atm.valid, 0u);
    EXPECT_EQ(read(1, 5, 1).generic.counters[5], 0x5A5A5A5Au) << "behind the ATM counters";
    EXPECT_OK(result);
    EXPECT_EQ(read(2, 5, 1).generic.counters[0], 0x5A5A5A5Au);
    EXPECT_EQ(result.rc, VEXO_RC_GENERAL);
    EXPECT_EQ(std::string(result.message, sizeof result.message),
              "Bad PWE type" + std::string(116, '\0'));
}

TEST_F(Pwe, OmCountersDependOnTheTypeAndAreClearedOnlyOnRequest)
{
    for (uint32_t type = 1; type <= 5; ++type)
        createPwe(vexoPweType{type}, type);
    for (uint32_t pwId = 1; pwId <= 5; ++pwId)
        for (uint32_t counter = 0; counter < 45; ++counter)
            ASSERT_EQ(kv_sim_om_set(KV_SIM_PW, pwId, counter, (7ULL << 32) + 100 + counter), 0);
    for (uint32_t pwId = 1; pwId <= 5; ++pwId) {
        SCOPED_TRACE(pwId);
        vexoPweOm om;
        memset(&om, 0x5A, sizeof om);
        vexo_cmi_pwe_om_get(&om, 0, pwId, &result);
        vexo_cmi_pwe_om_get(&om, 1, pwId, &result);
        EXPECT_OK(result);
        EXPECT_EQ(om.pweType, pwId);
        Bytes<vexoPweOm> expected{0x5A};
        expected.put(0, pwId);
        if (pwId <= 2) {
            expected.put(4, 102);
            expected.put(8, 101);
        } else if (pwId <= 4) {
            for (uint32_t i = 0; i < 4; ++i)
                expected.put(4 + 4 * i, 101 + i);
            for (uint32_t i = 0; i < 20; ++i) {
                expected.put(20 + 16 * i, 0);
                expected.put(24 + 16 * i, 0);
                expected.put(28 + 16 * i, 105 + 2 * i);
                expected.put(32 + 16 * i, 106 + 2 * i);
            }
        }
        EXPECT_EQ(expected.differenceTo(&om), "");
        vexo_cmi_pwe_om_get(&om, 0, pwId, &result);
        if (pwId <= 4) {
            EXPECT_EQ(om.counters[0], 0u) << "not cleared";
        }
    }
}

} // namespace
