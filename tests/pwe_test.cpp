#include "instead.h"

#include <vexo_cmi/convert.h>

#include <optional>
#include <ostream>
#include <set>
#include <span>

namespace
{

template <class Record>
Record filled(uint8_t byte)
{
    Record record;
    memset(&record, byte, sizeof record);
    return record;
}

// Where the bytes of two records differ.
template <class Record>
std::string difference(const Record &expected, const Record &actual)
{
    const auto *wanted = reinterpret_cast<const uint8_t *>(&expected);
    const auto *found = reinterpret_cast<const uint8_t *>(&actual);
    for (size_t i = 0; i < sizeof(Record); ++i)
        if (wanted[i] != found[i])
            return "at offset " + std::to_string(i) + ": " + std::to_string(found[i]) +
                   " instead of " + std::to_string(wanted[i]);
    return "";
}

// A member of a record.
struct Member {
    uint32_t offset, size;
};

void put(void *record, Member member, uint32_t value)
{
    memcpy(static_cast<uint8_t *>(record) + member.offset, &value, member.size);
}

enum Kind {
    PLAIN,
    FLAGGED, // counts if the word behind it isn't 0
    NONZERO, // counts if it isn't 0
    SETS,    // 1 sets the platform's flag, 2 clears it, else it doesn't count
    CLEARS,  // 1 clears the platform's flag, 2 sets it, else it doesn't count
    ON_OFF,  // 2 sets the platform's flag, else it is cleared
};

// A member of the agent's record, and the platform's that holds it.
struct Row {
    std::set<uint32_t> when; // VLAN modes, PSN types or pseudowire types that have it
    Kind kind;
    Member cmi;         // of vexoPweParams
    Member platform;    // of pwConfig
    uint32_t given = 0; // a value that it can have; 0: any

    uint32_t value() const { return given ? given : (0xB0A0C001 + cmi.offset) & ~beyond(); }
    uint32_t stored() const
    {
        return kind == SETS ? given == 1 : kind == CLEARS || kind == ON_OFF ? given == 2 : value();
    }
    // What the platform's member has no room for.
    uint32_t beyond() const { return platform.size < 4 ? ~0U << 8 * platform.size : 0; }
    Member flag() const { return {cmi.offset + cmi.size, sizeof(uint32_t)}; }
};

#define MEMBERS(agents, platforms)                                                                 \
    .cmi = {offsetof(vexoPweParams, agents), sizeof(vexoPweParams::agents)},                       \
    .platform = {offsetof(pwConfig, platforms), sizeof(pwConfig::platforms)}

const Row VLAN[] = {
    {.when = {0, 2, 3, 4, 5}, .kind = FLAGGED, MEMBERS(vlan.vlanId, vlanId)},
    {.when = {0, 2, 3, 4, 5}, .kind = FLAGGED, MEMBERS(vlan.priority, priority)},
    {.when = {3}, .kind = FLAGGED, MEMBERS(vlan.outerVlanId, outerVlanId)},
    {.when = {3}, .kind = FLAGGED, MEMBERS(vlan.outerPriority, outerPriority)},
};
const Row PSN[] = {
    {.when = {1}, .kind = FLAGGED, MEMBERS(psn.param1, enc.enc2.param1)},
    {.when = {1}, .kind = FLAGGED, MEMBERS(psn.param2, enc.enc2.param2)},
    {.when = {1}, .kind = FLAGGED, MEMBERS(psn.param3, enc.enc2.param3)},
    {.when = {1}, .kind = FLAGGED, MEMBERS(psn.param4, enc.enc2.param4)},
    {.when = {2}, .kind = FLAGGED, MEMBERS(psn.param1, enc.enc3.param1)},
    {.when = {2}, .kind = FLAGGED, MEMBERS(psn.param2, enc.enc3.param2)},
    {.when = {3}, .kind = PLAIN, MEMBERS(psn.udpMode, enc.enc4.udpMode), .given = 2},
    {.when = {3}, .kind = FLAGGED, MEMBERS(psn.param1, enc.enc4.param1)},
    {.when = {3}, .kind = FLAGGED, MEMBERS(psn.param2, enc.enc4.param2)},
    {.when = {3}, .kind = FLAGGED, MEMBERS(psn.param3, enc.enc4.param3)},
};
const Row SERVICE[] = {
    {.when = {1}, .kind = PLAIN, MEMBERS(service.t1.circuit, circuit)},
    {.when = {1}, .kind = NONZERO, MEMBERS(service.t1.jitterBufferSize, jitterBufferSize)},
    {.when = {1}, .kind = NONZERO, MEMBERS(service.t1.payloadSize, payloadSize)},
    {.when = {2}, .kind = PLAIN, MEMBERS(service.t2.circuit, circuit)},
    {.when = {2}, .kind = FLAGGED, MEMBERS(service.t2.serviceOption, serviceOption)},
    {.when = {2}, .kind = NONZERO, MEMBERS(service.t2.jitterBufferSize, jitterBufferSize)},
    {.when = {2}, .kind = NONZERO, MEMBERS(service.t2.payloadSize, payloadSize)},
    {.when = {2}, .kind = SETS, MEMBERS(service.t2.serviceFlag, serviceFlag), .given = 1},
    {.when = {3, 4}, .kind = PLAIN, MEMBERS(service.a.circuit, circuit)},
    {.when = {3, 4}, .kind = NONZERO, MEMBERS(service.a.payloadSize, payloadSize)},
    {.when = {3, 4}, .kind = NONZERO, MEMBERS(service.a.serviceOption, serviceOption)},
    {.when = {3, 4}, .kind = CLEARS, MEMBERS(service.a.serviceFlag, serviceFlag), .given = 2},
    {.when = {3, 4}, .kind = PLAIN, MEMBERS(service.a.atmMode, atmMode), .given = 1},
    {.when = {3, 4}, .kind = PLAIN, MEMBERS(service.a.atmType, atmType), .given = 2},
    {.when = {3, 4}, .kind = CLEARS, MEMBERS(service.a.atmFlag1, atmFlag1), .given = 1},
    {.when = {3, 4}, .kind = CLEARS, MEMBERS(service.a.atmFlag2, atmFlag2), .given = 2},
    {.when = {3, 4}, .kind = PLAIN, MEMBERS(service.a.atmClpMode, atmClpMap), .given = 3},
    {.when = {3, 4}, .kind = PLAIN, MEMBERS(service.a.atmParam1, atmParam1)},
    {.when = {3, 4}, .kind = PLAIN, MEMBERS(service.a.atmParam2, atmParam2)},
};
const Row RTP[] = {
    {.when = {1}, .kind = ON_OFF, MEMBERS(service.t1.rtp.mode, rtpEnable), .given = 2},
    {.when = {1}, .kind = FLAGGED, MEMBERS(service.t1.rtp.payloadType, rtpPayloadType)},
    {.when = {1}, .kind = FLAGGED, MEMBERS(service.t1.rtp.ssrc, rtpSsrc)},
    {.when = {2}, .kind = ON_OFF, MEMBERS(service.t2.rtp.mode, rtpEnable), .given = 2},
    {.when = {2}, .kind = FLAGGED, MEMBERS(service.t2.rtp.payloadType, rtpPayloadType)},
    {.when = {2}, .kind = FLAGGED, MEMBERS(service.t2.rtp.ssrc, rtpSsrc)},
};

using Part = std::span<const Row>;
const std::initializer_list<Part> WHOLE{VLAN, PSN, SERVICE, RTP};

// The parts of what is read lie so much further.
constexpr size_t FURTHER = offsetof(vexoPweParamsInfo, vlan) - offsetof(vexoPweParams, vlan);

constexpr uint8_t DESTINATION = 0xE1;
constexpr uint8_t SOURCE = 0xE2;

// The types of a record; `full`: what need not count does.
struct Case {
    uint32_t type, psn, mode;
    bool full = true;

    // Those of a part that these types have.
    std::vector<Row> rows(Part part) const
    {
        const uint32_t choice = part.data() == VLAN ? mode : part.data() == PSN ? psn : type;
        std::vector<Row> found;
        for (const Row &row : part)
            if (row.when.contains(choice))
                found.push_back(row);
        return found;
    }

    vexoPweParams params() const
    {
        auto made = filled<vexoPweParams>(0x5A);
        made.pweType = vexoPweType{type};
        made.adminStatus = VEXO_ADMIN_STATUS_1;
        memset(made.dstMac, DESTINATION, sizeof made.dstMac);
        made.vlan.mode = vexoVlanMode{mode};
        made.psn.psnType = vexoPwePsnType{psn};
        for (const Part part : WHOLE)
            for (const Row &row : rows(part)) {
                const uint32_t leftAlone = row.kind == NONZERO ? 0 : 3;
                const bool counts = full || row.kind == PLAIN || row.kind == FLAGGED;
                put(&made, row.cmi, counts ? row.value() | row.beyond() : leftAlone);
                if (row.kind == FLAGGED)
                    put(&made, row.flag(), full ? 0x100 : 0);
            }
        return made;
    }

    void overlay(pwConfig &record, std::initializer_list<Part> parts) const
    {
        for (const Part part : parts) {
            if (part.data() == VLAN)
                record.tagMode = vexoVlanMode_to_tagMode(vexoVlanMode{mode});
            if (part.data() == PSN)
                record.encType = vexoPwePsnType_to_pweEncType(vexoPwePsnType{psn});
            for (const Row &row : rows(part))
                if (full || row.kind == PLAIN)
                    put(&record, row.platform, row.stored());
                else if (row.kind == ON_OFF)
                    put(&record, row.platform, 0);
        }
    }

    void extract(vexoPweParamsInfo &info, std::initializer_list<Part> parts) const
    {
        uint8_t *params = reinterpret_cast<uint8_t *>(&info) + FURTHER;
        for (const Part part : parts) {
            if (part.data() == VLAN)
                info.vlan.mode = vexoVlanMode{mode};
            if (part.data() == PSN)
                info.psn.psnType = vexoPwePsnType{psn};
            for (const Row &row : rows(part)) {
                put(params, row.cmi, row.value());
                if (row.kind == FLAGGED)
                    put(params, row.flag(), 1);
            }
        }
    }

    // That of a pseudowire without RTP is read as that of type 1.
    const vexoPweRtp &rtp(const vexoPweService &service) const
    {
        return type == VEXO_PWE_TYPE_TDM_2 ? service.t2.rtp : service.t1.rtp;
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

class PweRecord : public Twisted
{
  protected:
    void SetUp() override
    {
        Twisted::SetUp();
        added.reset();
        changed.reset();
        answer<config_get_pw_oper_state>(operState{3});
        instead<config_add_pw> = [](const pwConfig *in, uint32_t) {
            added = *in;
            return KV_OK;
        };
        instead<config_set_pw> = [](const pwConfig *in, uint32_t) {
            changed = *in;
            return KV_OK;
        };
    }

    // What the platform has, and what it was sent.
    static void store(const pwConfig &record)
    {
        answer<config_get_pw>(record);
        answer<config_get_pw_defaults>(record);
    }
    static inline std::optional<pwConfig> added, changed;

    static constexpr uint8_t PLATFORMS = 0x77;

    // Bytes of the platform's own, and what a case has in it.
    static pwConfig holding(const Case &held)
    {
        auto record = filled<pwConfig>(PLATFORMS);
        held.overlay(record, WHOLE);
        record.pweType = vexoPweType_to_pweType(vexoPweType{held.type});
        record.adminStatus = adminStatus{2};
        memset(record.dstMac, DESTINATION, sizeof record.dstMac);
        memset(record.srcMac, SOURCE, sizeof record.srcMac);
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
    const auto before = filled<pwConfig>(PLATFORMS);
    store(before);
    for (const Case &set : cases(false))
        for (const uint32_t action : {0u, 2u, 3u}) {
            SCOPED_TRACE(set);
            vexoPweParams params = set.params();
            params.pweAction = vexoPweAction{action};
            pwConfig expected = before;
            expected.pweType = vexoPweType_to_pweType(params.pweType);
            expected.adminStatus = adminStatus{2};
            expected.pwId = PW;
            memset(expected.dstMac, DESTINATION, sizeof expected.dstMac);
            set.overlay(expected, WHOLE);
            added.reset();
            changed.reset();
            result = unwritten();
            vexo_cmi_pwe_params_set(&params, PW, &result);
            expectRefusal(set);
            ASSERT_EQ(added.has_value(), !set.isRefused() && action == 2);
            ASSERT_EQ(changed.has_value(), !set.isRefused() && action != 2);
            if (!set.isRefused()) {
                ASSERT_EQ(difference(expected, added ? *added : *changed), "");
            }
        }
}

TEST_F(PweRecord, IsReadFieldByField)
{
    for (const Case &read : cases(true)) {
        SCOPED_TRACE(read);
        store(holding(read));
        vexoPweParamsInfo expected{};
        expected.pweType = vexoPweType{read.type};
        expected.pweAction = VEXO_PWE_ACTION_CREATE;
        expected.adminStatus = VEXO_ADMIN_STATUS_1;
        expected.operState = VEXO_OPER_STATE_1;
        memset(expected.srcMac, SOURCE, sizeof expected.srcMac);
        memset(expected.dstMac, DESTINATION, sizeof expected.dstMac);
        read.extract(expected, {VLAN, PSN});
        if (!read.isRefused())
            read.extract(expected, {SERVICE, RTP});
        auto info = filled<vexoPweParamsInfo>(0x5A);
        result = unwritten();
        vexo_cmi_pwe_params_get(&info, 1, &result);
        expectRefusal(read);
        ASSERT_EQ(difference(expected, info), "");
    }
}

TEST_F(PweRecord, ChangesOnlyInASingleAttributeThatIsSet)
{
    const auto expectChange = [](const pwConfig &expected) {
        ASSERT_TRUE(changed.has_value());
        EXPECT_EQ(difference(expected, *changed), "");
        changed.reset();
    };
    for (const Case &set : cases(false)) {
        SCOPED_TRACE(set);
        auto before = filled<pwConfig>(PLATFORMS);
        before.pweType = vexoPweType_to_pweType(vexoPweType{set.type});
        store(before);
        changed.reset();
        const vexoPweParams params = set.params();

        vexo_cmi_pwe_vlan_set(&params.vlan, 1, &result);
        pwConfig expected = before;
        set.overlay(expected, {VLAN});
        expectChange(expected);

        vexo_cmi_pwe_dst_mac_set(params.dstMac, 1, &result);
        expected = before;
        memset(expected.dstMac, DESTINATION, sizeof expected.dstMac);
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
            expected.payloadSize = 4711;
        if (set.isTdm())
            expectChange(expected);

        vexo_cmi_pwe_rtp_set(&set.rtp(params.service), 1, &result);
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
        pwConfig record = holding(read);
        if (read.isTdm()) {
            record.jitterBufferSize = 1111;
            record.payloadSize = 2222;
        }
        store(record);
        vexoPweParamsInfo whole{};
        read.extract(whole, {VLAN, PSN, RTP});
        struct {
            vexoPweVlan vlan;
            vexoPwePsn psn;
            vexoPweRtp rtp;
            uint32_t jitter, payload, ais;
        } got;
        memset(&got, 0x5A, sizeof got);
        vexo_cmi_pwe_vlan_get(&got.vlan, 1, &result);
        EXPECT_EQ(difference(whole.vlan, got.vlan), "");
        result = unwritten();
        vexo_cmi_pwe_psn_get(&got.psn, 1, &result);
        expectRefusal(read);
        EXPECT_EQ(difference(whole.psn, got.psn), "");
        vexo_cmi_pwe_rtp_get(&got.rtp, 1, &result);
        EXPECT_EQ(difference(read.rtp(whole.service), got.rtp), "");
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
        const auto read = [&](pweType type) {
            pwConfig record{};
            record.pweType = type;
            record.rtpEnable = record.serviceFlag = record.atmFlag1 = record.atmFlag2 = word;
            store(record);
            vexoPweParamsInfo info;
            vexo_cmi_pwe_params_get(&info, 1, &result);
            return info.service;
        };
        const vexoPweRtp off{VEXO_PWE_RTP_OFF, 0, 0, 0, 0, {}};
        const vexoPweService t2 = read(PWE_TYPE_TDM_2), a = read(PWE_TYPE_ATM_3);
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
        store(record);
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
    auto params = filled<vexoPweParams>(0xFF);
    params.pweAction = VEXO_PWE_ACTION_DELETE;
    mark();
    vexo_cmi_pwe_params_set(&params, 9, &result);
    EXPECT_EQ(result.rc, VEXO_RC_GENERAL);
    EXPECT_STREQ(result.message, "pseudowire 9 is not provisioned");
    EXPECT_EQ(calls(), Names{"config_del_pw"});
}

TEST_F(Pwe, AMissingOneIsReadAsMissingAndNotAsAFailure)
{
    auto info = filled<vexoPweParamsInfo>(0x5A);
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
    auto info = filled<vexoPweParamsInfo>(0x5A);
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
        auto pm = filled<vexoPwePm>(0x5A);
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
        auto om = filled<vexoPweOm>(0x5A);
        vexo_cmi_pwe_om_get(&om, 0, pwId, &result);
        vexo_cmi_pwe_om_get(&om, 1, pwId, &result);
        EXPECT_OK(result);
        EXPECT_EQ(om.pweType, pwId);
        auto expected = filled<vexoPweOm>(0x5A);
        expected.pweType = vexoPweType{pwId};
        if (pwId <= 2) {
            expected.counters[0] = 102;
            expected.counters[1] = 101;
        } else if (pwId <= 4) {
            for (uint32_t i = 0; i < 4; ++i)
                expected.counters[i] = 101 + i;
            for (uint32_t i = 0; i < 20; ++i)
                expected.entries[i] = {{0, 0}, {105 + 2 * i, 106 + 2 * i}};
        }
        EXPECT_EQ(difference(expected, om), "");
        vexo_cmi_pwe_om_get(&om, 0, pwId, &result);
        if (pwId <= 4) {
            EXPECT_EQ(om.counters[0], 0u) << "not cleared";
        }
    }
}

} // namespace
